#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <set>

namespace kit {

/// Where all waiting and measuring of this project takes its time from. Thread-safe.
class Clock {
public:
    virtual ~Clock() = default;
    /// Time since some fixed moment; never runs backwards.
    [[nodiscard]] virtual std::chrono::nanoseconds Now() const = 0;
    /// Blocks for at least the duration; returns at once if it is not positive.
    virtual void SleepFor(std::chrono::nanoseconds duration) = 0;
};

/// The clock in force; the system's steady clock unless another was set. Thread-safe.
[[nodiscard]] Clock& GetClock();
/// Puts a clock in force, nullptr the system's. The clock is not owned and must outlive its use. Thread-safe.
void SetClock(Clock* clock);

/// A clock for tests: its time stands still until it is advanced. Nobody may sleep on it when it is destroyed.
class FakeClock final : public Clock {
public:
    /// What becomes of whoever sleeps on the clock.
    enum class Mode {
        ByHand,       ///< a sleeper waits until Advance has passed its moment
        AutoAdvance,  ///< a sleeper moves the time on by itself and returns at once
    };

    /// Its time begins at 0; the mode is the object's for life.
    explicit FakeClock(Mode mode = Mode::ByHand) : mode_(mode) {}

    [[nodiscard]] std::chrono::nanoseconds Now() const override;
    void SleepFor(std::chrono::nanoseconds duration) override;

    /// Moves the time on and wakes the sleepers whose moment has come.
    void Advance(std::chrono::nanoseconds duration);
    /// Blocks until at least this many threads sleep whose moment has not come.
    void WaitForSleepers(std::size_t count) const;

private:
    const Mode mode_;
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    // Guarded by mutex_:
    std::chrono::nanoseconds now_{0};
    std::multiset<std::chrono::nanoseconds> wakeTimes_;
};

/// Puts a clock in force for a scope and afterwards the one that was in force before.
class ScopedClock {
public:
    /// `clock` is not owned and outlives the object and all who wait on it. Scopes end in the reverse order.
    explicit ScopedClock(Clock& clock) : previous_(&GetClock()) { SetClock(&clock); }
    ~ScopedClock() { SetClock(previous_); }
    ScopedClock(const ScopedClock&) = delete;
    ScopedClock& operator=(const ScopedClock&) = delete;

private:
    Clock* const previous_;
};

}  // namespace kit
