#include "kit/shared_mutex.h"

#include <chrono>

namespace kit {

namespace {

constexpr std::chrono::milliseconds LongestKeptOut{100};

}  // namespace

void FairSharedMutex::LockSlowly() {
    MutexLock waitLock(waitMutex_);
    ++waitingWriters_;
    for (;;) {
        // Whoever leaves last from now on sees that somebody waits.
        std::uint32_t state = state_.fetch_or(WriterWaits, std::memory_order_relaxed) | WriterWaits;
        const std::uint32_t next = Writer | (state & ReaderWaits) | (waitingWriters_ > 1 ? WriterWaits : 0);
        while ((state & (Writer | Readers)) == 0) {
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
    state_.store(waitingReaders_ | (waitingWriters_ > 0 ? WriterWaits : 0), std::memory_order_release);
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
    const auto keptOutUntil = std::chrono::steady_clock::now() + LongestKeptOut;
    std::uint32_t obstacles = sharedHoldsOfThread_ == 0 ? Writer | WriterWaits : Writer;
    for (;;) {
        if (TryLockShared(obstacles)) return;
        const std::uint32_t state = state_.fetch_or(ReaderWaits, std::memory_order_relaxed);
        // What was in the way may have left before the flag was seen.
        if ((state & obstacles) == 0) continue;
        ++waitingReaders_;
        bool isInTime = true;
        while (readerTurn_ == turn && (isInTime || obstacles == Writer)) {
            if (obstacles == Writer)
                waitLock.Wait(readersMayCome_);
            else
                isInTime = waitLock.WaitUntil(readersMayCome_, keptOutUntil);
        }
        if (readerTurn_ == turn) {
            --waitingReaders_;
            obstacles = Writer;
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
