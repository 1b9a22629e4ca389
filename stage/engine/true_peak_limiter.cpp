#include "stage/engine/true_peak_limiter.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numbers>
#include <numeric>
#include <utility>

namespace stage {

namespace {

constexpr double ReleaseSeconds = 0.1;
/// A gain as near to 1 as this has come back.
constexpr double NearlyOne = 1 - 1e-4;

/// The weight of a sample at `distance` from a place between two, of a sinc under a Hann window.
double WeightAt(double distance, double half) {
    if (std::fabs(distance) >= half) return 0;
    const double x = std::numbers::pi * distance;
    return std::sin(x) / x * (0.5 + 0.5 * std::cos(x / half));
}

}  // namespace

TruePeakLimiter::TruePeakLimiter(std::uint32_t framesPerSecond)
    : release_(1 - std::exp(-1 / (ReleaseSeconds * framesPerSecond))) {
    wanted_.fill(1.0F);
    moved_.fill(1.0F);
    double largestSum = 1;
    for (std::size_t phase = 0; phase < phases_.size(); ++phase) {
        const double place = 0.25 * static_cast<double>(phase + 1);
        // The samples from HalfTaps - 1 before the one that the place follows to HalfTaps after it.
        std::array<double, Taps> weights{};
        double sum = 0;
        for (std::uint32_t tap = 0; tap < Taps; ++tap) {
            weights.at(tap) = WeightAt(place - (static_cast<double>(tap) - (HalfTaps - 1)), HalfTaps);
            sum += weights.at(tap);
        }
        double absolute = 0;
        for (std::uint32_t tap = 0; tap < Taps; ++tap) {
            phases_.at(phase).at(tap) = static_cast<float>(weights.at(tap) / sum);
            absolute += std::fabs(weights.at(tap) / sum);
        }
        largestSum = std::max(largestSum, absolute);
    }
    quietPeak_ = static_cast<float>(0.999 / largestSum);
}

void TruePeakLimiter::Process(float* left, float* right, std::uint32_t frames) {
    while (frames > 0) {
        const std::uint32_t chunk = std::min(frames, ChunkFrames);
        ProcessChunk_(left, right, chunk);
        left += chunk;
        right += chunk;
        frames -= chunk;
    }
}

void TruePeakLimiter::ProcessChunk_(float* left, float* right, std::uint32_t frames) {
    std::copy_n(left, frames, left_.begin() + DelayFrames);
    std::copy_n(right, frames, right_.begin() + DelayFrames);
    const bool isQuiet = FindPeak_(DelayFrames + 1 - Taps, DelayFrames + frames) <= quietPeak_;
    if (isQuiet && activeFrames_ == 0) {
        std::copy_n(left_.begin(), frames, left);
        std::copy_n(right_.begin(), frames, right);
    } else {
        std::uint64_t limited = 0;
        for (std::uint32_t i = 0; i < frames; ++i) {
            float wanted = 1.0F;
            if (!isQuiet) {
                const std::uint32_t end = DelayFrames + i + 1;
                wanted = 1.0F / std::max({1.0F, FindTruePeak_(left_, end), FindTruePeak_(right_, end)});
            }
            const float gain = NextGain_(wanted);
            left[i] = left_[i];
            right[i] = right_[i];
            if (gain == 1.0F) continue;
            ++limited;
            left[i] = std::clamp(left[i] * gain, -1.0F, 1.0F);
            right[i] = std::clamp(right[i] * gain, -1.0F, 1.0F);
        }
        limitedFrames_.fetch_add(limited, std::memory_order_relaxed);
    }
    std::copy_n(left_.begin() + frames, DelayFrames, left_.begin());
    std::copy_n(right_.begin() + frames, DelayFrames, right_.begin());
}

float TruePeakLimiter::FindPeak_(std::uint32_t from, std::uint32_t to) const {
    // In lanes beside each other, so that the comparisons do not wait for one another.
    constexpr std::size_t Lanes = 8;
    std::array<float, Lanes> peaks{};
    for (const Channel* const channel : {&left_, &right_}) {
        const float* const samples = channel->data();
        std::uint32_t i = from;
        for (; i + Lanes <= to; i += Lanes)
            for (std::size_t lane = 0; lane < Lanes; ++lane)
                peaks[lane] = std::max(peaks[lane], std::fabs(samples[i + lane]));
        for (; i < to; ++i)
            peaks[0] = std::max(peaks[0], std::fabs(samples[i]));
    }
    return *std::max_element(peaks.begin(), peaks.end());
}

// From the sample in the middle of the last Taps before `end` to just before the one that follows it.
float TruePeakLimiter::FindTruePeak_(const Channel& channel, std::uint32_t end) const {
    const float* const samples = channel.data() + (end - Taps);
    float peak = std::fabs(samples[HalfTaps - 1]);
    for (const Phase& phase : phases_) {
        float sum = 0;
        for (std::uint32_t tap = 0; tap < Taps; ++tap)
            sum += samples[tap] * phase[tap];
        peak = std::max(peak, std::fabs(sum));
    }
    return peak;
}

// The least that is wanted in the window ahead, back to 1 slowly, and smoothed over a window as long: so it is never
// above what any frame wants.
float TruePeakLimiter::NextGain_(float wanted) {
    // What lies between two samples is turned down with both of them.
    const float ofBoth = std::min(wanted, std::exchange(lastWanted_, wanted));
    if (ofBoth < 1.0F || released_ < 1.0) activeFrames_ = 2 * Window + 1;
    if (activeFrames_ == 0) return 1.0F;
    --activeFrames_;
    place_ = (place_ + 1) % Window;
    wanted_[place_] = ofBoth;
    const float least = *std::min_element(wanted_.begin(), wanted_.end());
    released_ = std::min<double>(least, released_ + (1.0 - released_) * release_);
    if (least == 1.0F && released_ > NearlyOne) released_ = 1.0;
    moved_[place_] = static_cast<float>(released_);
    return std::accumulate(moved_.begin(), moved_.end(), 0.0F) / static_cast<float>(Window);
}

}  // namespace stage
