#include "stage/live/output_feed.h"

#include <algorithm>

namespace stage {

namespace {

// 4 ms at 48 kHz.
constexpr std::uint32_t FadeFrames = 192;
constexpr float GainStep = 1.0F / FadeFrames;
// A device is allowed to fill its buffers before it begins, and to catch up with what it slept through.
constexpr double StartSeconds = 2.5;
constexpr double CatchUpSeconds = 2;
constexpr double ForgetSeconds = 10;

}  // namespace

void OutputFeed::TakeFrames(std::span<const StereoBuffer> pairs, std::uint32_t frames,
                            std::chrono::nanoseconds moment) noexcept {
    const std::uint64_t first = ring_.CountTaken();
    while (HasMidiBefore_(first))
        nextMidi_.reset();
    periodBegin_ = periodEnd_ = first;
    WatchPace_(frames, moment);
    if (HasRunAway() || (!HasSettled() && !Settle_(frames, moment))) {
        clock_.NotePeriod(first, 0, moment, frames);
        for (const StereoBuffer& pair : pairs) {
            std::fill_n(pair.left, frames, 0.0F);
            std::fill_n(pair.right, frames, 0.0F);
        }
        return;
    }
    const std::uint32_t got = ring_.Take(pairs, frames);
    periodEnd_ = first + got;
    clock_.NotePeriod(first, got, moment, frames - got);
    if (got > 0) isWaiting_ = false;
    if (gain_ < 1.0F) FadeIn_(pairs, got);
    if (got > 0) NoteLastFrames_(pairs, got);
    if (got == frames) return;
    FadeOut_(pairs, got, frames);
    if (isWaiting_) return;
    latePeriods_.fetch_add(1, std::memory_order_relaxed);
    missingFrames_.fetch_add(frames - got, std::memory_order_relaxed);
}

bool OutputFeed::HasMidiBefore_(std::uint64_t frame) noexcept {
    if (!nextMidi_) {
        FramedMessage next;
        if (!midi_.Pop(next)) return false;
        nextMidi_ = next;
    }
    return nextMidi_->frame < frame;
}

bool OutputFeed::TakeMidi(MidiMessage& message) noexcept {
    if (!HasMidiBefore_(periodEnd_)) return false;
    message = nextMidi_->message;
    message.offset = static_cast<std::uint32_t>(nextMidi_->frame - std::min(nextMidi_->frame, periodBegin_));
    nextMidi_.reset();
    return true;
}

// One period is always silent: only the next one shows how fast they come.
bool OutputFeed::Settle_(std::uint32_t frames, std::chrono::nanoseconds moment) noexcept {
    if (framesBefore_ == 0) firstMoment_ = moment;
    const double rate = clock_.GetFormat().framesPerSecond;
    const double played = std::chrono::duration<double>(moment - firstMoment_).count() * rate;
    const bool isInTime = framesBefore_ > 0 && played + frames / 2.0 >= static_cast<double>(framesBefore_);
    framesBefore_ += frames;
    if (isInTime) hasSettled_.store(true, std::memory_order_relaxed);
    return isInTime;
}

void OutputFeed::WatchPace_(std::uint32_t frames, std::chrono::nanoseconds moment) noexcept {
    const OutputFormat format = clock_.GetFormat();
    const double rate = format.framesPerSecond;
    const bool isFirst = framesBefore_ == 0;
    const double seconds = isFirst ? 0 : std::chrono::duration<double>(moment - lastMoment_).count();
    lastMoment_ = moment;
    // What is long ago is forgotten: a device's clock may be a little faster than ours for a whole evening.
    framesAhead_ =
        std::max(framesAhead_ * std::max(1 - seconds / ForgetSeconds, 0.0) - seconds * rate, -CatchUpSeconds * rate) +
        frames;
    const double allowed = format.latencyFrames + 8.0 * format.periodFrames + 0.1 * rate;
    if (framesAhead_ > (HasSettled() ? allowed : allowed + StartSeconds * rate))
        hasRunAway_.store(true, std::memory_order_relaxed);
}

void OutputFeed::NoteLastFrames_(std::span<const StereoBuffer> pairs, std::uint32_t frames) noexcept {
    const std::size_t count = std::min(pairs.size(), lastFrames_.size());
    for (std::size_t i = 0; i < count; ++i)
        lastFrames_[i] = {pairs[i].left[frames - 1], pairs[i].right[frames - 1]};
}

// What was there ends softly; where nothing was, the last value dies away.
void OutputFeed::FadeOut_(std::span<const StereoBuffer> pairs, std::uint32_t sounding, std::uint32_t frames) noexcept {
    const std::uint32_t fading = std::min(sounding, FadeFrames);
    if (sounding > 0) std::fill(lastFrames_.begin(), lastFrames_.end(), LastFrame());
    for (std::size_t pair = 0; pair < pairs.size(); ++pair) {
        const auto [left, right] = pairs[pair];
        for (std::uint32_t i = 0; i < fading; ++i) {
            const float gain = static_cast<float>(fading - 1 - i) / static_cast<float>(fading);
            left[sounding - fading + i] *= gain;
            right[sounding - fading + i] *= gain;
        }
        LastFrame none;
        LastFrame& last = pair < lastFrames_.size() ? lastFrames_[pair] : none;
        for (std::uint32_t i = sounding; i < frames; ++i) {
            last.left *= 1.0F - 4 * GainStep;
            last.right *= 1.0F - 4 * GainStep;
            left[i] = last.left;
            right[i] = last.right;
        }
    }
    gain_ = isWaiting_ ? gain_ : 0.0F;
}

void OutputFeed::FadeIn_(std::span<const StereoBuffer> pairs, std::uint32_t frames) noexcept {
    for (std::uint32_t i = 0; i < frames && gain_ < 1.0F; ++i) {
        gain_ = std::min(gain_ + GainStep, 1.0F);
        for (const StereoBuffer& pair : pairs) {
            pair.left[i] *= gain_;
            pair.right[i] *= gain_;
        }
    }
}

void OutputFeed::Rest(bool fadesIn) {
    isWaiting_ = true;
    hasSettled_ = false;
    hasRunAway_ = false;
    framesAhead_ = 0;
    framesBefore_ = 0;
    gain_ = fadesIn ? 0.0F : 1.0F;
    std::fill(lastFrames_.begin(), lastFrames_.end(), LastFrame());
}

}  // namespace stage
