#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "kit/spsc_queue.h"
#include "stage/live/audio_output.h"
#include "stage/live/device_clock.h"
#include "stage/live/frame_ring.h"

namespace stage {

/// Where rendering and the device meet: the ring between them, the clock that tells what is heard, and the count of
/// what came too late. Where frames are missing the sound is faded out and in again, and goes on where it stopped.
class OutputFeed final : public FrameSource {
public:
    /// For so many stereo pairs.
    explicit OutputFeed(std::size_t pairs = 1) : ring_(pairs), lastFrames_(pairs) {}

    // FrameSource.
    using FrameSource::TakeFrames;
    void TakeFrames(std::span<const StereoBuffer> pairs, std::uint32_t frames,
                    std::chrono::nanoseconds moment) noexcept override;
    bool TakeMidi(MidiMessage& message) noexcept override;
    void NoteFormat(const OutputFormat& format) noexcept override { clock_.NoteFormat(format); }

    /// Has `message` leave with the ring's frame `frame`, counted from the beginning; `offset` is not used. For the
    /// thread that writes the ring, before it writes that frame, in ascending order. What no device takes with its
    /// frame is dropped. False where there is no room. Real-time safe.
    [[nodiscard]] bool PushMidi(std::uint64_t frame, const MidiMessage& message) noexcept {
        return midi_.Push({frame, message});
    }
    [[nodiscard]] std::size_t CountRoomForMidi() const noexcept { return midi_.GetRoom(); }

    [[nodiscard]] FrameRing& GetRing() { return ring_; }
    [[nodiscard]] const FrameRing& GetRing() const { return ring_; }
    [[nodiscard]] const DeviceClock& GetClock() const { return clock_; }
    /// Periods that did not find all their frames, and the frames that were missing in them. Any thread.
    [[nodiscard]] std::uint64_t CountLatePeriods() const { return latePeriods_.load(std::memory_order_relaxed); }
    [[nodiscard]] std::uint64_t CountMissingFrames() const { return missingFrames_.load(std::memory_order_relaxed); }
    /// To be called while no device is open: the next one begins with a fade in where the last was cut off, and what it
    /// asks for before the first frames are there is not late.
    void Rest(bool fadesIn);
    /// Whether the device that is open asks for periods as it plays them. Many fill their buffers in one go first, then
    /// ask for nothing until they have begun, a second or two with some sound servers: they get silence for that, so
    /// that music neither starts before them nor comes in two pieces. Any thread.
    [[nodiscard]] bool HasSettled() const { return hasSettled_.load(std::memory_order_relaxed); }
    /// Whether it asks for far more than can have been heard, as one does that has lost its server: it gets silence
    /// until the next rest, for the music must not race past. Any thread.
    [[nodiscard]] bool HasRunAway() const { return hasRunAway_.load(std::memory_order_relaxed); }

private:
    [[nodiscard]] bool Settle_(std::uint32_t frames, std::chrono::nanoseconds moment) noexcept;
    void WatchPace_(std::uint32_t frames, std::chrono::nanoseconds moment) noexcept;
    struct FramedMessage {
        std::uint64_t frame = 0;
        MidiMessage message;
    };
    [[nodiscard]] bool HasMidiBefore_(std::uint64_t frame) noexcept;

    /// The last values of a pair's channels.
    struct LastFrame {
        float left = 0;
        float right = 0;
    };

    void FadeOut_(std::span<const StereoBuffer> pairs, std::uint32_t sounding, std::uint32_t frames) noexcept;
    void FadeIn_(std::span<const StereoBuffer> pairs, std::uint32_t frames) noexcept;
    void NoteLastFrames_(std::span<const StereoBuffer> pairs, std::uint32_t frames) noexcept;

    FrameRing ring_;
    kit::SpscQueue<FramedMessage, 8192> midi_;
    DeviceClock clock_;
    std::atomic<std::uint64_t> latePeriods_{0};
    std::atomic<std::uint64_t> missingFrames_{0};
    std::atomic<bool> hasSettled_{false};
    std::atomic<bool> hasRunAway_{false};
    // Used by the device's thread, or while there is none.
    bool isWaiting_ = true;           // for its first frames
    std::uint64_t framesBefore_ = 0;  // that the device asked for before it settled
    std::chrono::nanoseconds firstMoment_{0};
    double framesAhead_ = 0;  // that it asked for beyond what was heard, in the last seconds
    std::chrono::nanoseconds lastMoment_{0};
    float gain_ = 1.0F;
    std::vector<LastFrame> lastFrames_;  // of each pair
    std::uint64_t periodBegin_ = 0;      // of the period that was written last, the ring's frames
    std::uint64_t periodEnd_ = 0;
    std::optional<FramedMessage> nextMidi_;  // taken out of the queue, not due yet
};

}  // namespace stage
