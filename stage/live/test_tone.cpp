#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <numbers>
#include <stdexcept>
#include <thread>

#include "stage/live/audio_output.h"

namespace stage {

namespace {

constexpr double Frequency = 440;
constexpr double Level = 0.1;  // -20 dBFS
constexpr double FadeSeconds = 0.01;

/// A second on the left, a second on the right, then silence.
class Tone final : public FrameSource {
public:
    void TakeFrames(std::span<const StereoBuffer> pairs, std::uint32_t frames,
                    std::chrono::nanoseconds) noexcept override {
        const auto [left, right] = pairs.front();
        const double rate = framesPerSecond_;
        for (std::uint32_t i = 0; i < frames; ++i, ++played_) {
            const double seconds = static_cast<double>(played_) / rate;
            const double within = std::fmod(seconds, 1.0);
            const double gain = std::min({within / FadeSeconds, (1 - within) / FadeSeconds, 1.0}) * Level;
            const auto value = static_cast<float>(gain * std::sin(2 * std::numbers::pi * Frequency * seconds));
            left[i] = seconds < 1 ? value : 0.0F;
            right[i] = seconds >= 1 && seconds < 2 ? value : 0.0F;
        }
        isDone_ = static_cast<double>(played_) > 2.2 * rate;
    }
    void NoteFormat(const OutputFormat& format) noexcept override { framesPerSecond_ = format.framesPerSecond; }
    [[nodiscard]] bool IsDone() const { return isDone_; }

private:
    std::atomic<std::uint32_t> framesPerSecond_{48000};
    std::atomic<bool> isDone_{false};
    std::uint64_t played_ = 0;  // used by the device's thread
};

}  // namespace

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
