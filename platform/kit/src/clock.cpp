#include "kit/clock.h"

#include <atomic>
#include <iterator>
#include <thread>

#include "kit/sleep.h"

namespace kit {

namespace {

class SystemClock final : public Clock {
public:
    [[nodiscard]] std::chrono::nanoseconds Now() const override {
        return std::chrono::steady_clock::now().time_since_epoch();
    }
    void SleepFor(std::chrono::nanoseconds duration) override { std::this_thread::sleep_for(duration); }
};

// Never destroyed, because threads may still sleep while the program ends.
Clock& GetSystemClock() {
    static Clock& clock = *new SystemClock;
    return clock;
}

constinit std::atomic<Clock*> clockInForce = nullptr;

}  // namespace

Clock& GetClock() {
    Clock* clock = clockInForce.load(std::memory_order_acquire);
    return clock != nullptr ? *clock : GetSystemClock();
}

void SetClock(Clock* clock) {
    clockInForce.store(clock, std::memory_order_release);
}

void Sleep(unsigned int milliseconds) {
    GetClock().SleepFor(std::chrono::milliseconds(milliseconds));
}

std::chrono::nanoseconds FakeClock::Now() const {
    const std::lock_guard lock(mutex_);
    return now_;
}

void FakeClock::SleepFor(std::chrono::nanoseconds duration) {
    if (duration <= std::chrono::nanoseconds::zero()) return;
    std::unique_lock lock(mutex_);
    const std::chrono::nanoseconds wakeTime = now_ + duration;
    if (mode_ == Mode::AutoAdvance) {
        now_ = wakeTime;
        return;
    }
    const auto entry = wakeTimes_.insert(wakeTime);
    changed_.notify_all();
    changed_.wait(lock, [&] { return now_ >= wakeTime; });
    wakeTimes_.erase(entry);
}

void FakeClock::Advance(std::chrono::nanoseconds duration) {
    const std::lock_guard lock(mutex_);
    now_ += duration;
    changed_.notify_all();
}

void FakeClock::WaitForSleepers(std::size_t count) const {
    std::unique_lock lock(mutex_);
    // A sleeper whose moment has come may not have left yet; it no longer counts.
    changed_.wait(lock, [&] {
        const auto sleeping = std::distance(wakeTimes_.upper_bound(now_), wakeTimes_.end());
        return static_cast<std::size_t>(sleeping) >= count;
    });
}

}  // namespace kit
