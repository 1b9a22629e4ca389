#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <optional>

#include "stage/live/audio_output.h"

namespace stage {

/// When which frame is heard. One thread, the device's, notes each period; any thread asks. Wait-free and real-time
/// safe, both sides.
class DeviceClock {
public:
    /// The device has begun a period at `moment`, in which it takes the `frames` from `firstFrame` on and is silent for
    /// `silentFrames` after them.
    void NotePeriod(std::uint64_t firstFrame, std::uint32_t frames, std::chrono::nanoseconds moment,
                    std::uint32_t silentFrames = 0) noexcept;
    void NoteFormat(const OutputFormat& format) noexcept;

    [[nodiscard]] OutputFormat GetFormat() const noexcept;
    /// The frame that is heard at `moment`: the newest period's, moved on with the time, but not beyond that period's
    /// last frame by more than one more period, for a device that was lost plays nothing. Negative before the first is
    /// heard.
    [[nodiscard]] std::int64_t FindHeardFrame(std::chrono::nanoseconds moment) const noexcept;
    /// When the frame is heard that is `frame`, by the newest period; it may be one to come, which is then heard in the
    /// next period at the earliest. Nothing before the first period, or where the device has not begun another for
    /// eight periods before `now`: it was lost.
    [[nodiscard]] std::optional<std::chrono::nanoseconds> FindMomentHeard(std::int64_t frame,
                                                                          std::chrono::nanoseconds now) const noexcept;
    /// When the device began its newest period; nothing before the first.
    [[nodiscard]] std::optional<std::chrono::nanoseconds> GetLastMoment() const noexcept;
    [[nodiscard]] std::uint64_t CountPeriods() const noexcept { return periods_.load(std::memory_order_acquire); }
    /// The frames of all periods, the silent ones among them.
    [[nodiscard]] std::uint64_t CountFrames() const noexcept { return allFrames_.load(std::memory_order_relaxed); }

private:
    struct Period {
        std::uint64_t firstFrame = 0;
        std::uint32_t frames = 0;
        std::int64_t moment = 0;
        std::uint32_t silentFrames = 0;
    };

    [[nodiscard]] Period ReadPeriod_() const noexcept;

    // A sequence lock over fields that are atomic themselves: a reader that meets a write reads again.
    std::atomic<std::uint64_t> version_{0};
    std::atomic<std::uint64_t> firstFrame_{0};
    std::atomic<std::uint32_t> frames_{0};
    std::atomic<std::int64_t> moment_{0};
    std::atomic<std::uint32_t> silentFrames_{0};
    std::atomic<std::uint64_t> periods_{0};
    std::atomic<std::uint64_t> allFrames_{0};

    // By themselves: they change seldom, and one of them a period late does no harm.
    std::atomic<std::uint32_t> framesPerSecond_{48000};
    std::atomic<std::uint32_t> periodFrames_{0};
    std::atomic<std::uint32_t> latencyFrames_{0};
    std::atomic<std::uint32_t> periodsAtOnce_{1};
};

/// What the playhead was at each of the last blocks, so that a frame which is heard later is found again. One thread
/// writes, any reads; wait-free and real-time safe.
class PlayheadHistory {
public:
    void Note(std::int64_t frame, std::uint32_t tick) noexcept;
    /// The playhead of the newest block that began at or before `frame`; of the oldest known one before that.
    [[nodiscard]] std::uint32_t FindTick(std::int64_t frame) const noexcept;

private:
    /// At 64 frames a block and 48 kHz, 1.4 seconds: more than any device is late.
    static constexpr std::size_t Blocks = 1024;

    struct Block {
        std::atomic<std::int64_t> frame{0};
        std::atomic<std::uint32_t> tick{0};
    };

    std::array<Block, Blocks> blocks_;
    std::atomic<std::uint64_t> written_{0};
};

}  // namespace stage
