#include "stage/engine/pair_delay.h"

#include <algorithm>
#include <array>

namespace stage {

void PairDelay::Process(std::span<const StereoBuffer> pairs, std::uint32_t frames) {
    if (frames == 0) return;
    constexpr std::size_t HeldOfPair = 2 * std::size_t{DelayFrames};
    for (std::size_t i = 0; i < pairs.size(); ++i) {
        float* const held = held_.data() + i * HeldOfPair;
        ProcessChannel_(pairs[i].left, frames, held);
        ProcessChannel_(pairs[i].right, frames, held + DelayFrames);
    }
    if (given_ > pairs.size())
        std::fill_n(held_.data() + pairs.size() * HeldOfPair, (given_ - pairs.size()) * HeldOfPair, 0.0F);
    given_ = pairs.size();
}

void PairDelay::ProcessChannel_(float* samples, std::uint32_t frames, float* held) {
    std::array<float, DelayFrames> last{};
    if (frames < DelayFrames) {
        std::copy_n(samples, frames, last.begin());
        std::copy_n(held, frames, samples);
        std::copy(held + frames, held + DelayFrames, held);
        std::copy_n(last.begin(), frames, held + (DelayFrames - frames));
        return;
    }
    std::copy_n(samples + (frames - DelayFrames), DelayFrames, last.begin());
    std::copy_backward(samples, samples + (frames - DelayFrames), samples + frames);
    std::copy_n(held, DelayFrames, samples);
    std::copy_n(last.begin(), DelayFrames, held);
}

}  // namespace stage
