#include "stage/live/output_feed.h"

#include <algorithm>

namespace stage {

namespace {

// 4 ms at 48 kHz.
constexpr std::uint32_t FadeFrames = 192;
constexpr float GainStep = 1.0F / FadeFrames;

}  // namespace

void OutputFeed::TakeFrames(float* left, float* right, std::uint32_t frames, std::chrono::nanoseconds moment) noexcept {
    const std::uint64_t first = ring_.CountTaken();
    const std::uint32_t got = ring_.Take(left, right, frames);
    clock_.NotePeriod(first, got, moment);
    if (got > 0) isWaiting_ = false;
    if (gain_ < 1.0F) FadeIn_(left, right, got);
    if (got > 0) {
        lastLeft_ = left[got - 1];
        lastRight_ = right[got - 1];
    }
    if (got == frames) return;
    FadeOut_(left, right, got, frames);
    if (isWaiting_) return;
    latePeriods_.fetch_add(1, std::memory_order_relaxed);
    missingFrames_.fetch_add(frames - got, std::memory_order_relaxed);
}

// What was there ends softly; where nothing was, the last value dies away.
void OutputFeed::FadeOut_(float* left, float* right, std::uint32_t sounding, std::uint32_t frames) noexcept {
    const std::uint32_t fading = std::min(sounding, FadeFrames);
    for (std::uint32_t i = 0; i < fading; ++i) {
        const float gain = static_cast<float>(fading - 1 - i) / static_cast<float>(fading);
        left[sounding - fading + i] *= gain;
        right[sounding - fading + i] *= gain;
    }
    if (sounding > 0) lastLeft_ = lastRight_ = 0;
    for (std::uint32_t i = sounding; i < frames; ++i) {
        lastLeft_ *= 1.0F - 4 * GainStep;
        lastRight_ *= 1.0F - 4 * GainStep;
        left[i] = lastLeft_;
        right[i] = lastRight_;
    }
    gain_ = isWaiting_ ? gain_ : 0.0F;
}

void OutputFeed::FadeIn_(float* left, float* right, std::uint32_t frames) noexcept {
    for (std::uint32_t i = 0; i < frames && gain_ < 1.0F; ++i) {
        gain_ = std::min(gain_ + GainStep, 1.0F);
        left[i] *= gain_;
        right[i] *= gain_;
    }
}

void OutputFeed::Rest(bool fadesIn) {
    isWaiting_ = true;
    gain_ = fadesIn ? 0.0F : 1.0F;
    lastLeft_ = lastRight_ = 0;
}

}  // namespace stage
