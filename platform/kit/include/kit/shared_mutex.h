#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>

#include "kit/mutex.h"

namespace kit {

/// A shared mutex in which readers and writers take turns, and which a thread may take shared again while it holds it
/// shared. While a writer waits, a thread that holds no mutex of this class is kept out, so that the writer gets in
/// once those who read have left; whoever came meanwhile reads next, ahead of any other writer. Works with
/// std::shared_lock and std::unique_lock; released on the thread that took it. Not recursive for writers, and a thread
/// cannot go from shared to exclusive or back. Thread-safe; uncontended calls are one atomic operation.
///
/// No hang can come of keeping readers out as long as whoever holds the mutex asks for nothing that another thread may
/// hold while it asks for this mutex: the common rule for the order of locks, which for a mutex that always lets
/// readers in need not be obeyed. Against those who break it a reader is kept out for 100 ms at most.
class FairSharedMutex {
public:
    FairSharedMutex() = default;
    FairSharedMutex(const FairSharedMutex&) = delete;
    FairSharedMutex& operator=(const FairSharedMutex&) = delete;

    /// Blocks until nobody is inside. Not for a thread that holds it already, shared or not.
    void lock() {
        if (!try_lock()) LockSlowly();
    }
    /// Does not wait: false as soon as somebody is inside or waits.
    [[nodiscard]] bool try_lock() {
        std::uint32_t free = 0;
        return state_.compare_exchange_strong(free, Writer, std::memory_order_acquire, std::memory_order_relaxed);
    }
    /// Lets those in who read and wait, else a writer that waits.
    void unlock() {
        std::uint32_t unwanted = Writer;
        if (!state_.compare_exchange_strong(unwanted, 0, std::memory_order_release, std::memory_order_relaxed))
            UnlockSlowly();
    }

    /// Blocks while a writer is inside and, on a thread that holds no mutex of this class shared, while one waits.
    void lock_shared() {
        if (!try_lock_shared()) LockSharedSlowly();
    }
    /// Does not wait: false where lock_shared would.
    [[nodiscard]] bool try_lock_shared() {
        const std::uint32_t obstacles = sharedHoldsOfThread_ == 0 ? Writer | WriterWaits : Writer;
        return TryLockShared(obstacles);
    }
    /// Once for each time that it was taken; the last reader wakes a writer that waits.
    void unlock_shared() {
        --sharedHoldsOfThread_;
        const std::uint32_t before = state_.fetch_sub(1, std::memory_order_release);
        if ((before & ~ReaderWaits) == (WriterWaits | 1)) WakeWriter();
    }

private:
    // Below the flags, the number of readers inside.
    static constexpr std::uint32_t Writer = 1U << 31;
    static constexpr std::uint32_t WriterWaits = 1U << 30;
    static constexpr std::uint32_t ReaderWaits = 1U << 29;
    static constexpr std::uint32_t Readers = ReaderWaits - 1;

    bool TryLockShared(std::uint32_t obstacles) {
        std::uint32_t state = state_.load(std::memory_order_relaxed);
        while ((state & obstacles) == 0) {
            if (state_.compare_exchange_weak(state, state + 1, std::memory_order_acquire, std::memory_order_relaxed)) {
                ++sharedHoldsOfThread_;
                return true;
            }
        }
        return false;
    }
    void LockSlowly();
    void UnlockSlowly();
    void LockSharedSlowly();
    void WakeWriter();

    /// Of all mutexes of this class: a thread that reads under one is not kept out of another either.
    static inline constinit thread_local std::uint32_t sharedHoldsOfThread_ = 0;

    std::atomic<std::uint32_t> state_{0};
    // The flags of those who wait are raised only under this mutex.
    Mutex waitMutex_;
    std::condition_variable readersMayCome_;
    std::condition_variable writerMayCome_;
    std::uint32_t waitingWriters_ KIT_GUARDED_BY(waitMutex_) = 0;
    std::uint32_t waitingReaders_ KIT_GUARDED_BY(waitMutex_) = 0;
    std::uint64_t readerTurn_ KIT_GUARDED_BY(waitMutex_) = 0;
};

}  // namespace kit
