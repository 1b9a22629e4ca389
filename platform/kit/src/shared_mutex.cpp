#include "kit/shared_mutex.h"

#include <chrono>

namespace kit {

namespace {

constexpr std::chrono::milliseconds longestKeptOut{100};

}  // namespace

void FairSharedMutex::LockSlowly() {
    std::unique_lock waitLock(waitMutex_);
    ++waitingWriters_;
    for (;;) {
        // Whoever leaves last from now on sees that somebody waits.
        std::uint32_t state = state_.fetch_or(kWriterWaits, std::memory_order_relaxed) | kWriterWaits;
        const std::uint32_t next = kWriter | (state & kReaderWaits) | (waitingWriters_ > 1 ? kWriterWaits : 0);
        while ((state & (kWriter | kReaders)) == 0) {
            if (state_.compare_exchange_weak(state, next, std::memory_order_acquire, std::memory_order_relaxed)) {
                --waitingWriters_;
                return;
            }
        }
        writerMayCome_.wait(waitLock);
    }
}

void FairSharedMutex::UnlockSlowly() {
    const std::lock_guard waitLock(waitMutex_);
    // Nobody else changes the state while the writer's flag and the mutex are held. All readers that wait are let in.
    state_.store(waitingReaders_ | (waitingWriters_ > 0 ? kWriterWaits : 0), std::memory_order_release);
    if (waitingReaders_ == 0) {
        writerMayCome_.notify_one();
        return;
    }
    waitingReaders_ = 0;
    ++readerTurn_;
    readersMayCome_.notify_all();
}

void FairSharedMutex::LockSharedSlowly() {
    std::unique_lock waitLock(waitMutex_);
    const std::uint64_t turn = readerTurn_;
    const auto isLetIn = [&] { return readerTurn_ != turn; };
    std::uint32_t obstacles = sharedHoldsOfThread_ == 0 ? kWriter | kWriterWaits : kWriter;
    for (;;) {
        if (TryLockShared(obstacles)) return;
        const std::uint32_t state = state_.fetch_or(kReaderWaits, std::memory_order_relaxed);
        // What was in the way may have left before the flag was seen.
        if ((state & obstacles) == 0) continue;
        ++waitingReaders_;
        if (obstacles == kWriter) {
            readersMayCome_.wait(waitLock, isLetIn);
        } else if (!readersMayCome_.wait_for(waitLock, longestKeptOut, isLetIn)) {
            --waitingReaders_;
            obstacles = kWriter;
            continue;
        }
        ++sharedHoldsOfThread_;  // the writer that left has counted this reader in
        return;
    }
}

void FairSharedMutex::WakeWriter() {
    const std::lock_guard waitLock(waitMutex_);
    writerMayCome_.notify_one();
}

}  // namespace kit
