#include "stage/engine/level_meter.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>

namespace stage {

namespace {

constexpr double RmsSeconds = 0.3;
constexpr double FallPerSecond = 0.1;  // 20 dB

struct Sum {
    float peak = 0;
    float squares = 0;
};

// In lanes beside each other, so that the additions do not wait for one another.
Sum AddUp(const float* samples, std::uint32_t frames) {
    constexpr std::size_t Lanes = 8;
    std::array<float, Lanes> peaks{};
    std::array<float, Lanes> squares{};
    std::size_t i = 0;
    for (; i + Lanes <= frames; i += Lanes) {
        for (std::size_t lane = 0; lane < Lanes; ++lane) {
            const float value = samples[i + lane];
            peaks[lane] = std::max(peaks[lane], std::fabs(value));
            squares[lane] += value * value;
        }
    }
    Sum sum;
    for (; i < frames; ++i) {
        sum.peak = std::max(sum.peak, std::fabs(samples[i]));
        sum.squares += samples[i] * samples[i];
    }
    for (std::size_t lane = 0; lane < Lanes; ++lane) {
        sum.peak = std::max(sum.peak, peaks[lane]);
        sum.squares += squares[lane];
    }
    return sum;
}

}  // namespace

void LevelMeter::Measure(const float* left, const float* right, std::uint32_t frames) {
    if (frames == 0) return;
    const Sum sumLeft = AddUp(left, frames);
    const Sum sumRight = AddUp(right, frames);
    const double seconds = static_cast<double>(frames) / framesPerSecond_;
    const auto kept = static_cast<float>(std::exp(-seconds / RmsSeconds));
    const float added = (1 - kept) / static_cast<float>(frames);
    meanLeft_ = meanLeft_ * kept + sumLeft.squares * added;
    meanRight_ = meanRight_ * kept + sumRight.squares * added;
    const float fallen = peak_.load(std::memory_order_relaxed) * static_cast<float>(std::pow(FallPerSecond, seconds));
    peak_.store(std::max({fallen, sumLeft.peak, sumRight.peak}), std::memory_order_relaxed);
    rms_.store(std::sqrt(std::max(meanLeft_, meanRight_)), std::memory_order_relaxed);
}

}  // namespace stage
