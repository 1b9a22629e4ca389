#include "stage/live/rate_converter.h"

#include <fmt/format.h>
#include <samplerate.h>

#include <cmath>
#include <stdexcept>

namespace stage {

struct RateConverter::State {
    explicit State(SRC_STATE* made) : src(made) {}
    ~State() { src_delete(src); }
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    SRC_STATE* src;
};

RateConverter::RateConverter(std::uint32_t fromRate, std::uint32_t toRate, std::uint32_t longestBlock,
                             std::size_t pairs)
    : ratio_(static_cast<double>(toRate) / fromRate),
      longestOutput_(static_cast<std::uint32_t>(std::ceil(longestBlock * ratio_)) + 64) {
    int error = 0;
    SRC_STATE* const src = src_new(SRC_SINC_MEDIUM_QUALITY, static_cast<int>(2 * pairs), &error);
    if (src == nullptr || src_is_valid_ratio(ratio_) == 0) {
        if (src != nullptr) src_delete(src);
        throw std::runtime_error(
            fmt::format("sound at {} frames a second cannot be converted to {}", fromRate, toRate));
    }
    state_ = std::make_unique<State>(src);
    in_.resize(2 * pairs * longestBlock);
    out_.resize(2 * pairs * longestOutput_);
    samples_.resize(out_.size());
    for (std::size_t pair = 0; pair < pairs; ++pair) {
        float* const left = samples_.data() + 2 * pair * longestOutput_;
        pairs_.push_back({left, left + longestOutput_});
    }
}

RateConverter::~RateConverter() = default;

std::uint32_t RateConverter::Convert(std::span<const StereoBuffer> pairs, std::uint32_t frames) {
    const std::size_t channels = 2 * pairs_.size();
    for (std::size_t pair = 0; pair < pairs_.size(); ++pair) {
        for (std::size_t i = 0; i < frames; ++i) {
            in_[channels * i + 2 * pair] = pairs[pair].left[i];
            in_[channels * i + 2 * pair + 1] = pairs[pair].right[i];
        }
    }
    SRC_DATA data{};
    data.data_in = in_.data();
    data.input_frames = static_cast<long>(frames);
    data.data_out = out_.data();
    data.output_frames = static_cast<long>(longestOutput_);
    data.src_ratio = ratio_;
    if (src_process(state_->src, &data) != 0) return 0;
    const auto made = static_cast<std::size_t>(data.output_frames_gen);
    for (std::size_t pair = 0; pair < pairs_.size(); ++pair) {
        for (std::size_t i = 0; i < made; ++i) {
            pairs_[pair].left[i] = out_[channels * i + 2 * pair];
            pairs_[pair].right[i] = out_[channels * i + 2 * pair + 1];
        }
    }
    return static_cast<std::uint32_t>(made);
}

}  // namespace stage
