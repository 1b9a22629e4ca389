#pragma once

#include <atomic>
#include <cstdint>
#include <span>

#include "stage/engine/stereo_buffer.h"

namespace stage {

/// A tone of 440 Hz at -20 dBFS that proves wires: of each pair the left side, a second, and then the right one. It
/// comes and goes within 10 ms, also where it is ended before.
class TestTone {
public:
    /// With the next frames that are added; while it plays it goes on as it is. Any thread; wait-free.
    void Begin() { isWanted_ = true; }
    /// Any thread; wait-free.
    [[nodiscard]] bool IsPlaying() const { return isWanted_ || isPlaying_; }
    /// Adds it to the pairs, the next frames of each; with `isToEnd` it goes. One thread; wait-free.
    void AddTo(std::span<const StereoBuffer> pairs, std::uint32_t frames, std::uint32_t framesPerSecond,
               bool isToEnd) noexcept;

private:
    std::atomic<bool> isWanted_{false};
    std::atomic<bool> isPlaying_{false};
    // Used by the thread that adds.
    std::uint64_t played_ = 0;
    float gain_ = 0;
};

}  // namespace stage
