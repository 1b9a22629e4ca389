#pragma once

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace stage {

/// Stereo frames from one writing to one reading thread, in order. Memory for all of them is in the object. Every
/// operation is wait-free and real-time safe.
class FrameRing {
public:
    /// A power of two: four of the longest periods.
    static constexpr std::uint64_t Capacity = 8192;

    /// Frames written since the beginning, and frames taken. Any thread.
    [[nodiscard]] std::uint64_t CountWritten() const { return written_.load(std::memory_order_acquire); }
    [[nodiscard]] std::uint64_t CountTaken() const { return taken_.load(std::memory_order_acquire); }
    /// For either side: frames that wait. The reader's answer can only grow until it takes, the writer's only shrink.
    [[nodiscard]] std::uint32_t CountWaiting() const {
        const std::uint64_t taken = taken_.load(std::memory_order_acquire);
        return static_cast<std::uint32_t>(written_.load(std::memory_order_acquire) - taken);
    }

    /// For the writing thread, which has seen that there is room for them.
    void Write(const float* left, const float* right, std::uint32_t frames) {
        const std::uint64_t written = written_.load(std::memory_order_relaxed);
        for (std::uint32_t i = 0; i < frames; ++i) {
            left_[(written + i) % Capacity] = left[i];
            right_[(written + i) % Capacity] = right[i];
        }
        written_.store(written + frames, std::memory_order_release);
    }
    /// For the reading thread: copies as many as there are, `frames` at most; returns how many.
    std::uint32_t Take(float* left, float* right, std::uint32_t frames) {
        const std::uint64_t taken = taken_.load(std::memory_order_relaxed);
        const std::uint64_t waiting = written_.load(std::memory_order_acquire) - taken;
        const auto count = static_cast<std::uint32_t>(std::min<std::uint64_t>(frames, waiting));
        for (std::uint32_t i = 0; i < count; ++i) {
            left[i] = left_[(taken + i) % Capacity];
            right[i] = right_[(taken + i) % Capacity];
        }
        taken_.store(taken + count, std::memory_order_release);
        return count;
    }

private:
    std::array<float, Capacity> left_{};
    std::array<float, Capacity> right_{};
    // On cache lines of their own, so that the two threads do not hold each other up.
    alignas(64) std::atomic<std::uint64_t> written_{0};
    alignas(64) std::atomic<std::uint64_t> taken_{0};
};

}  // namespace stage
