#include "kit/shared_mutex.h"

namespace kit {

void ReaderPreferringSharedMutex::LockSlowly() {
    std::unique_lock waitLock(waitMutex_);
    while (!try_lock())
        WaitWhileHeldBy(~kSomebodyWaits, waitLock);
}

void ReaderPreferringSharedMutex::LockSharedSlowly() {
    std::unique_lock waitLock(waitMutex_);
    while (!try_lock_shared())
        WaitWhileHeldBy(kWriter, waitLock);
}

void ReaderPreferringSharedMutex::WaitWhileHeldBy(std::uint32_t blockers, std::unique_lock<std::mutex>& waitLock) {
    std::uint32_t state = state_.load(std::memory_order_relaxed);
    // The flag is raised only in one step with the sight of a blocker, who will then see it when letting go.
    do {
        if ((state & blockers) == 0) return;
    } while ((state & kSomebodyWaits) == 0 &&
             !state_.compare_exchange_weak(state, state | kSomebodyWaits, std::memory_order_relaxed));
    changed_.wait(waitLock);
}

void ReaderPreferringSharedMutex::WakeAll() {
    {
        const std::lock_guard waitLock(waitMutex_);
        state_.fetch_and(~kSomebodyWaits, std::memory_order_relaxed);
    }
    changed_.notify_all();
}

}  // namespace kit
