#include "kit/shared_mutex.h"

#include <chrono>

namespace kit {

namespace {

constexpr std::chrono::milliseconds longestKeptOut{100};

}  // namespace

void FairSharedMutex::LockSlowly() {
    MutexLock waitLock(waitMutex_);
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
        waitLock.Wait(writerMayCome_);
    }
}

void FairSharedMutex::UnlockSlowly() {
    const MutexLock waitLock(waitMutex_);
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
    MutexLock waitLock(waitMutex_);
    const std::uint64_t turn = readerTurn_;
    const auto keptOutUntil = std::chrono::steady_clock::now() + longestKeptOut;
    std::uint32_t obstacles = sharedHoldsOfThread_ == 0 ? kWriter | kWriterWaits : kWriter;
    for (;;) {
        if (TryLockShared(obstacles)) return;
        const std::uint32_t state = state_.fetch_or(kReaderWaits, std::memory_order_relaxed);
        // What was in the way may have left before the flag was seen.
        if ((state & obstacles) == 0) continue;
        ++waitingReaders_;
        bool isInTime = true;
        while (readerTurn_ == turn && (isInTime || obstacles == kWriter)) {
            if (obstacles == kWriter)
                waitLock.Wait(readersMayCome_);
            else
                isInTime = waitLock.WaitUntil(readersMayCome_, keptOutUntil);
        }
        if (readerTurn_ == turn) {
            --waitingReaders_;
            obstacles = kWriter;
            continue;
        }
        ++sharedHoldsOfThread_;  // the writer that left has counted this reader in
        return;
    }
}

void FairSharedMutex::WakeWriter() {
    const MutexLock waitLock(waitMutex_);
    writerMayCome_.notify_one();
}

}  // namespace kit
