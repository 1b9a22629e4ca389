#pragma once

#include <cstddef>
#include <mutex>
#include <system_error>
#include <tuple>
#include <utility>

namespace kit {

/// One or several mutexes that a function may be handed in order to let go of them for a while; the state changes
/// behind a const reference. A lock object belongs to one thread.
class LockInterface {
public:
    virtual ~LockInterface() = default;
    /// Blocks. Throws std::system_error: resource_deadlock_would_occur if already owned, operation_not_permitted if
    /// there is no mutex.
    virtual void Lock() const = 0;
    /// Throws std::system_error (operation_not_permitted) if not owned.
    virtual void Unlock() const = 0;
    /// Whether this object has it locked; another lock object's hold does not count.
    [[nodiscard]] virtual bool OwnsLock() const = 0;

protected:
    LockInterface() = default;
    /// For derived classes, which say what becomes of the hold.
    LockInterface(const LockInterface&) = default;
    /// Likewise.
    LockInterface& operator=(const LockInterface&) = default;
};

/// Owns one level of a mutex, which must outlive it. Allocates nothing.
template <class Mutex>
class UniqueLock final : public LockInterface {
public:
    /// Has no mutex.
    UniqueLock() = default;
    /// Blocks until the mutex is taken.
    explicit UniqueLock(Mutex& mutex) : mutex_(&mutex) {
        mutex.lock();
        owns_ = true;
    }
    /// Does not take the mutex yet.
    UniqueLock(Mutex& mutex, std::defer_lock_t) noexcept : mutex_(&mutex) {}
    /// Takes mutex and hold over; `other` has no mutex then.
    UniqueLock(UniqueLock&& other) noexcept
        : mutex_(std::exchange(other.mutex_, nullptr)), owns_(std::exchange(other.owns_, false)) {}
    /// The same, and releases what it owned itself, once the other hold is its own.
    UniqueLock& operator=(UniqueLock&& other) noexcept {
        UniqueLock taken(std::move(other));
        std::swap(mutex_, taken.mutex_);
        std::swap(owns_, taken.owns_);
        return *this;
    }
    ~UniqueLock() override {
        if (owns_) mutex_->unlock();
    }

    void Lock() const override {
        if (mutex_ == nullptr) throw std::system_error(std::make_error_code(std::errc::operation_not_permitted));
        if (owns_) throw std::system_error(std::make_error_code(std::errc::resource_deadlock_would_occur));
        mutex_->lock();
        owns_ = true;
    }
    void Unlock() const override {
        if (!owns_) throw std::system_error(std::make_error_code(std::errc::operation_not_permitted));
        owns_ = false;
        mutex_->unlock();
    }
    /// False as well where there is no mutex.
    [[nodiscard]] bool OwnsLock() const override { return owns_; }

private:
    Mutex* mutex_ = nullptr;
    mutable bool owns_ = false;
};

/// Several locks as one: taken in the given order, released in reverse. A part given as an lvalue is referred to, one
/// given as an rvalue is owned. Write braces, `LockCollection{UniqueLock(a), UniqueLock(b)}`, where the parts lock at
/// once: between parentheses the language does not say which argument comes first.
template <class... Locks>
class LockCollection final : public LockInterface {
public:
    /// Locks nothing: the parts are as they were made.
    explicit LockCollection(Locks... locks) : locks_(std::forward<Locks>(locks)...) {}
    LockCollection(const LockCollection&) = delete;
    LockCollection& operator=(const LockCollection&) = delete;

    /// If a part refuses, the parts taken before it are released again and its exception goes on to the caller.
    void Lock() const override { LockFrom<0>(); }
    /// Throws, and releases nothing, unless all parts are owned.
    void Unlock() const override {
        if (!OwnsLock()) throw std::system_error(std::make_error_code(std::errc::operation_not_permitted));
        std::apply([](const auto&... lock) { UnlockInReverse(lock...); }, locks_);
    }
    /// True if all parts are owned.
    [[nodiscard]] bool OwnsLock() const override {
        return std::apply([](const auto&... lock) { return (lock.OwnsLock() && ...); }, locks_);
    }

private:
    template <std::size_t index>
    void LockFrom() const {
        if constexpr (index < sizeof...(Locks)) {
            const auto& lock = std::get<index>(locks_);
            lock.Lock();
            try {
                LockFrom<index + 1>();
            } catch (...) {
                lock.Unlock();
                throw;
            }
        }
    }

    static void UnlockInReverse() {}
    template <class First, class... Rest>
    static void UnlockInReverse(const First& first, const Rest&... rest) {
        UnlockInReverse(rest...);
        first.Unlock();
    }

    std::tuple<Locks...> locks_;
};

/// Makes a part that is an lvalue a reference, and any other one the collection's own.
template <class... Locks>
LockCollection(Locks&&...) -> LockCollection<Locks...>;

/// Releases a lock for a scope. The destructor takes it again; if that fails, the program ends.
class ScopedUnlock {
public:
    /// Throws std::system_error (operation_not_permitted) if the lock is not owned.
    explicit ScopedUnlock(const LockInterface& lock) : lock_(lock) { lock_.Unlock(); }
    ~ScopedUnlock() { lock_.Lock(); }
    ScopedUnlock(const ScopedUnlock&) = delete;
    ScopedUnlock& operator=(const ScopedUnlock&) = delete;

private:
    const LockInterface& lock_;
};

}  // namespace kit
