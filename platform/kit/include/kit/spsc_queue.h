#pragma once

#include <array>
#include <atomic>
#include <cstddef>

namespace kit {

/// A first-in first-out queue of `capacity` values, a power of two, between one writing and one reading thread. Memory
/// for all of them is in the object. Every operation is wait-free and, where T's assignment is, real-time safe. A
/// thread may take over a side from another one if something else (a lock, a join) orders the two.
template <class T, std::size_t capacity>
class SpscQueue {
    static_assert(capacity > 0 && (capacity & (capacity - 1)) == 0, "a power of two, so that counters may wrap");

public:
    /// How many values can be pushed. For the writing thread: the room can only grow until that thread pushes.
    [[nodiscard]] std::size_t GetRoom() const {
        return capacity - (written_.load(std::memory_order_relaxed) - read_.load(std::memory_order_acquire));
    }
    /// For the writing thread. False, and nothing is done, if the queue is full.
    [[nodiscard]] bool Push(const T& value) {
        if (GetRoom() == 0) return false;
        const std::size_t written = written_.load(std::memory_order_relaxed);
        values_[written % capacity] = value;
        written_.store(written + 1, std::memory_order_release);
        return true;
    }
    /// For the reading thread: copies the oldest value and frees its place. False, and `value` is as before, if the
    /// queue is empty.
    [[nodiscard]] bool Pop(T& value) {
        const std::size_t read = read_.load(std::memory_order_relaxed);
        if (read == written_.load(std::memory_order_acquire)) return false;
        value = values_[read % capacity];
        read_.store(read + 1, std::memory_order_release);
        return true;
    }

private:
    std::array<T, capacity> values_{};
    // On cache lines of their own, so that the two threads do not hold each other up.
    alignas(64) std::atomic<std::size_t> written_{0};
    alignas(64) std::atomic<std::size_t> read_{0};
};

}  // namespace kit
