#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "stage/engine/stereo_buffer.h"

namespace stage {

/// Frames of one or more stereo pairs from one writing to one reading thread, in order. The constructor allocates the
/// memory for all of them; every operation is wait-free and real-time safe.
class FrameRing {
public:
    /// A power of two: two of the longest periods that a JACK server has.
    static constexpr std::uint64_t Capacity = 16384;

    explicit FrameRing(std::size_t pairs = 1) : samples_(2 * pairs * Capacity) {}

    [[nodiscard]] std::size_t CountPairs() const { return samples_.size() / (2 * Capacity); }
    /// Frames written since the beginning, and frames taken. Any thread.
    [[nodiscard]] std::uint64_t CountWritten() const { return written_.load(std::memory_order_acquire); }
    [[nodiscard]] std::uint64_t CountTaken() const { return taken_.load(std::memory_order_acquire); }
    /// For either side: frames that wait. The reader's answer can only grow until it takes, the writer's only shrink.
    [[nodiscard]] std::uint32_t CountWaiting() const {
        const std::uint64_t taken = taken_.load(std::memory_order_acquire);
        return static_cast<std::uint32_t>(written_.load(std::memory_order_acquire) - taken);
    }

    /// For the writing thread, which has seen that there is room for them. Pairs that are not given are silent, those
    /// beyond the ring's are left out.
    void Write(std::span<const StereoBuffer> pairs, std::uint32_t frames) {
        const std::uint64_t written = written_.load(std::memory_order_relaxed);
        for (std::size_t pair = 0; pair < CountPairs(); ++pair) {
            const StereoBuffer from = pair < pairs.size() ? pairs[pair] : StereoBuffer();
            CopyIn_(2 * pair, written, from.left, frames);
            CopyIn_(2 * pair + 1, written, from.right, frames);
        }
        written_.store(written + frames, std::memory_order_release);
    }
    void Write(const float* left, const float* right, std::uint32_t frames) {
        const std::uint64_t written = written_.load(std::memory_order_relaxed);
        for (std::size_t channel = 2; channel < 2 * CountPairs(); ++channel)
            CopyIn_(channel, written, nullptr, frames);
        CopyIn_(0, written, left, frames);
        CopyIn_(1, written, right, frames);
        written_.store(written + frames, std::memory_order_release);
    }
    /// For the reading thread: copies as many as there are, `frames` at most; returns how many. A pair that the ring
    /// does not have is silent.
    std::uint32_t Take(std::span<const StereoBuffer> pairs, std::uint32_t frames) {
        const std::uint64_t taken = taken_.load(std::memory_order_relaxed);
        const std::uint64_t waiting = written_.load(std::memory_order_acquire) - taken;
        const auto count = static_cast<std::uint32_t>(std::min<std::uint64_t>(frames, waiting));
        for (std::size_t pair = 0; pair < pairs.size(); ++pair) {
            CopyOut_(2 * pair, taken, pairs[pair].left, count);
            CopyOut_(2 * pair + 1, taken, pairs[pair].right, count);
        }
        taken_.store(taken + count, std::memory_order_release);
        return count;
    }

private:
    // In two pieces where the ring begins anew; null is silence.
    void CopyIn_(std::size_t channel, std::uint64_t place, const float* from, std::uint32_t frames) {
        float* const ring = samples_.data() + channel * Capacity;
        const std::uint64_t at = place % Capacity;
        const std::uint64_t first = std::min<std::uint64_t>(frames, Capacity - at);
        if (from == nullptr) {
            std::fill_n(ring + at, first, 0.0F);
            std::fill_n(ring, frames - first, 0.0F);
        } else {
            std::copy_n(from, first, ring + at);
            std::copy_n(from + first, frames - first, ring);
        }
    }
    void CopyOut_(std::size_t channel, std::uint64_t place, float* to, std::uint32_t frames) const {
        if (channel >= 2 * CountPairs()) {
            std::fill_n(to, frames, 0.0F);
            return;
        }
        const float* const ring = samples_.data() + channel * Capacity;
        const std::uint64_t at = place % Capacity;
        const std::uint64_t first = std::min<std::uint64_t>(frames, Capacity - at);
        std::copy_n(ring + at, first, to);
        std::copy_n(ring, frames - first, to + first);
    }

    std::vector<float> samples_;  // Capacity for each channel, left and right of each pair
    // On cache lines of their own, so that the two threads do not hold each other up.
    alignas(64) std::atomic<std::uint64_t> written_{0};
    alignas(64) std::atomic<std::uint64_t> taken_{0};
};

}  // namespace stage
