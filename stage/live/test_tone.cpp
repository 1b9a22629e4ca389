#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <numbers>
#include <stdexcept>
#include <thread>

#include "stage/live/audio_output.h"
#include "stage/live/test_tone.h"

namespace stage {

namespace {

constexpr double Frequency = 440;
constexpr double Level = 0.1;  // -20 dBFS
constexpr double FadeSeconds = 0.01;

/// Plays the tone by itself.
class Tone final : public FrameSource {
public:
    Tone() { tone_.Begin(); }

    void TakeFrames(std::span<const StereoBuffer> pairs, std::uint32_t frames,
                    std::chrono::nanoseconds) noexcept override {
        for (const StereoBuffer& pair : pairs) {
            std::fill_n(pair.left, frames, 0.0F);
            std::fill_n(pair.right, frames, 0.0F);
        }
        tone_.AddTo(pairs.first(1), frames, framesPerSecond_, false);
        // What was given is heard a little later.
        silence_ = tone_.IsPlaying() ? 0 : silence_ + frames;
        isDone_ = silence_ > framesPerSecond_ / 5;
    }
    void NoteFormat(const OutputFormat& format) noexcept override { framesPerSecond_ = format.framesPerSecond; }
    [[nodiscard]] bool IsDone() const { return isDone_; }

private:
    std::atomic<std::uint32_t> framesPerSecond_{48000};
    std::atomic<bool> isDone_{false};
    // Used by the device's thread.
    TestTone tone_;
    std::uint32_t silence_ = 0;
};

}  // namespace

void TestTone::AddTo(std::span<const StereoBuffer> pairs, std::uint32_t frames, std::uint32_t framesPerSecond,
                     bool isToEnd) noexcept {
    if (isWanted_.exchange(false) && !isPlaying_) {
        played_ = 0;
        gain_ = 0;
        isPlaying_ = true;
    }
    if (!isPlaying_) return;
    const double rate = framesPerSecond;
    const auto step = static_cast<float>(Level / (FadeSeconds * rate));
    const auto level = static_cast<float>(Level);
    const std::uint64_t sides = 2 * pairs.size();
    for (std::uint32_t i = 0; i < frames; ++i, ++played_) {
        const std::uint64_t side = played_ / framesPerSecond;
        const double within = static_cast<double>(played_ % framesPerSecond) / rate;
        const bool fades = isToEnd || within >= 1 - FadeSeconds;
        gain_ = fades ? std::max(gain_ - step, 0.0F) : std::min(gain_ + step, level);
        if (side >= sides || (isToEnd && gain_ <= 0)) {
            isPlaying_ = false;
            return;
        }
        const StereoBuffer& pair = pairs[side / 2];
        (side % 2 == 0 ? pair.left : pair.right)[i] +=
            gain_ * static_cast<float>(std::sin(2 * std::numbers::pi * Frequency * within));
    }
}

std::string PlayTestTone(const OutputChoice& choice) {
    Tone tone;
    const std::unique_ptr<AudioOutput> output = OpenOutput(choice, tone);
    const auto patience = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!tone.IsDone()) {
        if (const std::string problem = output->GetProblem(); !problem.empty()) throw std::runtime_error(problem);
        if (std::chrono::steady_clock::now() > patience)
            throw std::runtime_error(fmt::format("{} does not take any sound", output->GetName()));
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    const OutputFormat format = output->GetFormat();
    return fmt::format("{}, {} frames a second, {} at a time, {:.1f} ms until they are heard", output->GetName(),
                       format.framesPerSecond, format.periodFrames,
                       1000.0 * format.latencyFrames / format.framesPerSecond);
}

}  // namespace stage
