#pragma once

#include <atomic>
#include <cstdint>

#include "stage/live/audio_output.h"
#include "stage/live/device_clock.h"
#include "stage/live/frame_ring.h"

namespace stage {

/// Where rendering and the device meet: the ring between them, the clock that tells what is heard, and the count of
/// what came too late. Where frames are missing the sound is faded out and in again, and goes on where it stopped.
class OutputFeed final : public FrameSource {
public:
    // FrameSource.
    void TakeFrames(float* left, float* right, std::uint32_t frames, std::chrono::nanoseconds moment) noexcept override;
    void NoteFormat(const OutputFormat& format) noexcept override { clock_.NoteFormat(format); }

    [[nodiscard]] FrameRing& GetRing() { return ring_; }
    [[nodiscard]] const FrameRing& GetRing() const { return ring_; }
    [[nodiscard]] const DeviceClock& GetClock() const { return clock_; }
    /// Periods that did not find all their frames, and the frames that were missing in them. Any thread.
    [[nodiscard]] std::uint64_t CountLatePeriods() const { return latePeriods_.load(std::memory_order_relaxed); }
    [[nodiscard]] std::uint64_t CountMissingFrames() const { return missingFrames_.load(std::memory_order_relaxed); }
    /// To be called while no device is open: the next one begins with a fade in where the last was cut off, and what it
    /// asks for before the first frames are there is not late.
    void Rest(bool fadesIn);

private:
    void FadeOut_(float* left, float* right, std::uint32_t sounding, std::uint32_t frames) noexcept;
    void FadeIn_(float* left, float* right, std::uint32_t frames) noexcept;

    FrameRing ring_;
    DeviceClock clock_;
    std::atomic<std::uint64_t> latePeriods_{0};
    std::atomic<std::uint64_t> missingFrames_{0};
    // Used by the device's thread, or while there is none.
    bool isWaiting_ = true;  // for its first frames
    float gain_ = 1.0F;
    float lastLeft_ = 0;
    float lastRight_ = 0;
};

}  // namespace stage
