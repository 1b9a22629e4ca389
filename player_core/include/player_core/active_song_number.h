#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>

/// The number of the song that is loaded, guarded for many readers and one writer. It meets the standard's shared
/// lockable requirements: std::shared_lock and std::unique_lock on it are the guards, with their rules (acquiring an
/// absent one throws std::system_error operation_not_permitted, one already owned resource_deadlock_would_occur).
/// Thread-safe; locking blocks. In the order of locks it comes after the GUI mutex and before the change log; it is
/// written with no other lock held.
class ActiveSongNumber {
public:
    /// Waits until there is neither reader nor writer. Not recursive.
    void lock();
    /// For whoever has locked it; wakes all who wait.
    void unlock();
    /// Waits only for a writer that is in, not for one that waits: a reader may come in twice.
    void lock_shared();
    /// Once for each time that it was locked shared; the last one wakes a writer that waits.
    void unlock_shared();

    /// A copy, read shared.
    [[nodiscard]] std::string Get();
    /// Writes exclusive; the calling thread holds no guard of it.
    void Set(const std::string& songNumber);
    /// The number itself, for callers that hold a guard.
    [[nodiscard]] const std::string& Peek() const { return songNumber_; }

private:
    std::mutex mutex_;
    std::condition_variable condition_;
    std::uint64_t readerCount_ = 0;
    bool hasWriter_ = false;
    std::string songNumber_;
};
