#include "stage/live/device_clock.h"

#include <algorithm>

namespace stage {

namespace {

constexpr std::int64_t NanosecondsPerSecond = 1'000'000'000;
constexpr int MaxTries = 1000;
constexpr int PeriodsUntilLost = 8;

}  // namespace

void DeviceClock::NotePeriod(std::uint64_t firstFrame, std::uint32_t frames, std::chrono::nanoseconds moment,
                             std::uint32_t silentFrames) noexcept {
    const std::uint64_t version = version_.load(std::memory_order_relaxed);
    version_.store(version + 1, std::memory_order_release);
    firstFrame_.store(firstFrame, std::memory_order_release);
    frames_.store(frames, std::memory_order_release);
    moment_.store(moment.count(), std::memory_order_release);
    silentFrames_.store(silentFrames, std::memory_order_release);
    version_.store(version + 2, std::memory_order_release);
    allFrames_.fetch_add(std::uint64_t{frames} + silentFrames, std::memory_order_relaxed);
    periods_.fetch_add(1, std::memory_order_release);
}

void DeviceClock::NoteFormat(const OutputFormat& format) noexcept {
    framesPerSecond_.store(format.framesPerSecond, std::memory_order_relaxed);
    periodFrames_.store(format.periodFrames, std::memory_order_relaxed);
    latencyFrames_.store(format.latencyFrames, std::memory_order_relaxed);
    periodsAtOnce_.store(format.periodsAtOnce, std::memory_order_relaxed);
}

OutputFormat DeviceClock::GetFormat() const noexcept {
    return {framesPerSecond_.load(std::memory_order_relaxed), periodFrames_.load(std::memory_order_relaxed),
            latencyFrames_.load(std::memory_order_relaxed), periodsAtOnce_.load(std::memory_order_relaxed)};
}

DeviceClock::Period DeviceClock::ReadPeriod_() const noexcept {
    // The writer is at it for some nanoseconds every period: the second try succeeds. Where it was interrupted just
    // there by this very thread, it never would; an inexact answer is better then.
    for (int tries = 0;; ++tries) {
        const std::uint64_t before = version_.load(std::memory_order_acquire);
        // Acquired one by one: none of them may be read after the version is looked at again.
        const Period period{firstFrame_.load(std::memory_order_acquire), frames_.load(std::memory_order_acquire),
                            moment_.load(std::memory_order_acquire), silentFrames_.load(std::memory_order_acquire)};
        const bool isWhole = before % 2 == 0 && version_.load(std::memory_order_acquire) == before;
        if (isWhole || tries == MaxTries) return period;
    }
}

std::int64_t DeviceClock::FindHeardFrame(std::chrono::nanoseconds moment) const noexcept {
    if (CountPeriods() == 0) return -1;
    const Period period = ReadPeriod_();
    const std::int64_t elapsed = std::max<std::int64_t>(moment.count() - period.moment, 0);
    const std::int64_t rate = framesPerSecond_.load(std::memory_order_relaxed);
    const std::int64_t moved = std::min<std::int64_t>(
        elapsed / NanosecondsPerSecond * rate + elapsed % NanosecondsPerSecond * rate / NanosecondsPerSecond,
        std::int64_t{2} * std::max(period.frames, periodFrames_.load(std::memory_order_relaxed)) +
            latencyFrames_.load(std::memory_order_relaxed));
    const auto end = static_cast<std::int64_t>(period.firstFrame) + period.frames;
    const std::int64_t heard = static_cast<std::int64_t>(period.firstFrame) + moved -
                               std::int64_t{latencyFrames_.load(std::memory_order_relaxed)};
    return std::min(heard, end);
}

std::optional<std::chrono::nanoseconds> DeviceClock::FindMomentHeard(std::int64_t frame,
                                                                     std::chrono::nanoseconds now) const noexcept {
    if (CountPeriods() == 0) return std::nullopt;
    const Period period = ReadPeriod_();
    const OutputFormat format = GetFormat();
    const std::int64_t rate = format.framesPerSecond;
    const auto lengthOf = [rate](std::int64_t frames) {
        return frames / rate * NanosecondsPerSecond + frames % rate * NanosecondsPerSecond / rate;
    };
    const std::int64_t unheardOf =
        lengthOf(std::int64_t{PeriodsUntilLost} * std::max(period.frames + period.silentFrames, format.periodFrames));
    if (now.count() - period.moment > unheardOf) return std::nullopt;
    const std::int64_t intoPeriod = frame - static_cast<std::int64_t>(period.firstFrame);
    const std::int64_t silent = intoPeriod >= period.frames ? period.silentFrames : 0;
    return std::chrono::nanoseconds(period.moment + lengthOf(intoPeriod + silent + format.latencyFrames));
}

std::optional<std::chrono::nanoseconds> DeviceClock::GetLastMoment() const noexcept {
    if (CountPeriods() == 0) return std::nullopt;
    return std::chrono::nanoseconds(ReadPeriod_().moment);
}

void PlayheadHistory::Note(std::int64_t frame, std::uint32_t tick) noexcept {
    const std::uint64_t written = written_.load(std::memory_order_relaxed);
    Block& block = blocks_[written % Blocks];
    block.frame.store(frame, std::memory_order_relaxed);
    block.tick.store(tick, std::memory_order_relaxed);
    written_.store(written + 1, std::memory_order_release);
}

std::uint32_t PlayheadHistory::FindTick(std::int64_t frame) const noexcept {
    const std::uint64_t written = written_.load(std::memory_order_acquire);
    // The oldest quarter is left out: the writer may come by while it is read.
    const std::uint64_t known = std::min<std::uint64_t>(written, Blocks * 3 / 4);
    std::uint32_t tick = 0;
    for (std::uint64_t back = 1; back <= known; ++back) {
        const Block& block = blocks_[(written - back) % Blocks];
        tick = block.tick.load(std::memory_order_relaxed);
        if (block.frame.load(std::memory_order_relaxed) <= frame) break;
    }
    return tick;
}

}  // namespace stage
