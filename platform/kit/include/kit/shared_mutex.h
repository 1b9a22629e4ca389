#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace kit {

/// A shared mutex whose readers wait only while a writer holds it, never behind a waiting one: a thread may take it
/// shared a second time at any moment. Writers can be kept waiting for as long as readers overlap. Works with
/// std::shared_lock and std::unique_lock. Not recursive for writers. Thread-safe; uncontended calls are one atomic
/// operation.
class ReaderPreferringSharedMutex {
public:
    ReaderPreferringSharedMutex() = default;
    ReaderPreferringSharedMutex(const ReaderPreferringSharedMutex&) = delete;
    ReaderPreferringSharedMutex& operator=(const ReaderPreferringSharedMutex&) = delete;

    void lock() {
        if (!try_lock()) LockSlowly();
    }
    [[nodiscard]] bool try_lock() {
        std::uint32_t state = state_.load(std::memory_order_relaxed);
        while ((state & ~kSomebodyWaits) == 0) {
            if (state_.compare_exchange_weak(state, state | kWriter, std::memory_order_acquire,
                                             std::memory_order_relaxed))
                return true;
        }
        return false;
    }
    void unlock() {
        const std::uint32_t before = state_.fetch_and(~(kWriter | kSomebodyWaits), std::memory_order_release);
        if ((before & kSomebodyWaits) != 0) WakeAll();
    }

    void lock_shared() {
        if (!try_lock_shared()) LockSharedSlowly();
    }
    [[nodiscard]] bool try_lock_shared() {
        std::uint32_t state = state_.load(std::memory_order_relaxed);
        while ((state & kWriter) == 0) {
            if (state_.compare_exchange_weak(state, state + 1, std::memory_order_acquire, std::memory_order_relaxed))
                return true;
        }
        return false;
    }
    void unlock_shared() {
        const std::uint32_t before = state_.fetch_sub(1, std::memory_order_release);
        if (before == (kSomebodyWaits | 1)) WakeAll();
    }

private:
    static constexpr std::uint32_t kWriter = 1U << 31;
    static constexpr std::uint32_t kSomebodyWaits = 1U << 30;

    void LockSlowly();
    void LockSharedSlowly();
    void WaitWhileHeldBy(std::uint32_t blockers, std::unique_lock<std::mutex>& waitLock);
    void WakeAll();

    // The two flags and, below them, the number of readers.
    std::atomic<std::uint32_t> state_{0};
    // kSomebodyWaits is set only under this mutex, by a thread that then waits for changed_ without letting go of it in
    // between.
    std::mutex waitMutex_;
    std::condition_variable changed_;
};

}  // namespace kit
