#pragma once

#include <array>
#include <atomic>
#include <cstddef>

namespace tavo_midi {

/// A queue of fixed size between one writing and one reading thread. All operations are real-time safe.
template <class T, std::size_t capacity>
class SpscQueue {
    static_assert((capacity & (capacity - 1)) == 0, "a power of two, so that counters may wrap");

public:
    /// Room for the writing thread; it can only grow until that thread pushes.
    [[nodiscard]] std::size_t GetRoom() const {
        return capacity - (written_.load(std::memory_order_relaxed) - read_.load(std::memory_order_acquire));
    }
    bool Push(const T& value) {
        if (GetRoom() == 0) return false;
        const std::size_t written = written_.load(std::memory_order_relaxed);
        values_[written % capacity] = value;
        written_.store(written + 1, std::memory_order_release);
        return true;
    }
    bool Pop(T& value) {
        const std::size_t read = read_.load(std::memory_order_relaxed);
        if (read == written_.load(std::memory_order_acquire)) return false;
        value = values_[read % capacity];
        read_.store(read + 1, std::memory_order_release);
        return true;
    }

private:
    std::array<T, capacity> values_{};
    alignas(64) std::atomic<std::size_t> written_{0};
    alignas(64) std::atomic<std::size_t> read_{0};
};

}  // namespace tavo_midi
