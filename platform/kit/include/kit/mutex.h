#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

/// Mutexes that clang's thread-safety analysis knows (-Wthread-safety): a field marked KIT_GUARDED_BY is read and
/// written only while its mutex is held, a function marked KIT_REQUIRES is called only then, or the build with clang
/// fails. For other compilers the marks are empty.
#if defined(__clang__)
#define KIT_THREAD_SAFETY(mark) __attribute__((mark))
#else
#define KIT_THREAD_SAFETY(mark)
#endif

#define KIT_CAPABILITY(name) KIT_THREAD_SAFETY(capability(name))
#define KIT_SCOPED_CAPABILITY KIT_THREAD_SAFETY(scoped_lockable)
#define KIT_GUARDED_BY(mutex) KIT_THREAD_SAFETY(guarded_by(mutex))
#define KIT_REQUIRES(...) KIT_THREAD_SAFETY(requires_capability(__VA_ARGS__))
#define KIT_EXCLUDES(...) KIT_THREAD_SAFETY(locks_excluded(__VA_ARGS__))
#define KIT_ACQUIRE(...) KIT_THREAD_SAFETY(acquire_capability(__VA_ARGS__))
#define KIT_RELEASE(...) KIT_THREAD_SAFETY(release_capability(__VA_ARGS__))
#define KIT_TRY_ACQUIRE(...) KIT_THREAD_SAFETY(try_acquire_capability(__VA_ARGS__))
#define KIT_ACQUIRE_SHARED(...) KIT_THREAD_SAFETY(acquire_shared_capability(__VA_ARGS__))
#define KIT_RELEASE_SHARED(...) KIT_THREAD_SAFETY(release_shared_capability(__VA_ARGS__))
#define KIT_TRY_ACQUIRE_SHARED(...) KIT_THREAD_SAFETY(try_acquire_shared_capability(__VA_ARGS__))

namespace kit {

/// std::mutex, known to the analysis. Thread-safe; locking blocks.
class KIT_CAPABILITY("mutex") Mutex : public std::mutex {
public:
    /// Not recursive.
    void lock() KIT_ACQUIRE() { std::mutex::lock(); }
    /// Does not wait: false where it is held.
    [[nodiscard]] bool try_lock() KIT_TRY_ACQUIRE(true) { return std::mutex::try_lock(); }
    /// On the thread that locked it.
    void unlock() KIT_RELEASE() { std::mutex::unlock(); }
};

/// Holds a mutex for a scope; may let go of it and take it again in between. Belongs to one thread.
class KIT_SCOPED_CAPABILITY MutexLock {
public:
    /// Blocks until the mutex is taken, which outlives the object.
    explicit MutexLock(Mutex& mutex) KIT_ACQUIRE(mutex) : lock_(mutex) {}
    ~MutexLock() KIT_RELEASE() = default;
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

    /// Blocks. As std::unique_lock: std::system_error where it is held already, or is not.
    void Lock() KIT_ACQUIRE() { lock_.lock(); }
    /// Lets go until Lock is called; the destructor then has nothing to release.
    void Unlock() KIT_RELEASE() { lock_.unlock(); }

    /// Lets go of the mutex until `condition` is notified, or for no reason, and takes it again. What it guards may
    /// have changed: to be called in a loop that looks. Written so, the analysis follows it, unlike a predicate.
    void Wait(std::condition_variable& condition) { condition.wait(lock_); }
    /// The same until `moment` at most; false once that has come.
    bool WaitUntil(std::condition_variable& condition, std::chrono::steady_clock::time_point moment) {
        return condition.wait_until(lock_, moment) == std::cv_status::no_timeout;
    }

private:
    std::unique_lock<std::mutex> lock_;
};

}  // namespace kit
