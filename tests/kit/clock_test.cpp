#include "kit/clock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "kit/sleep.h"

using namespace std::chrono_literals;

TEST(SystemClock, Now_NeverRunsBackwards) {
    const auto before = kit::GetClock().Now();
    EXPECT_LE(before, kit::GetClock().Now());
}

TEST(SystemClock, SleepFor_LastsAtLeastItsDuration) {
    const auto before = kit::GetClock().Now();
    kit::GetClock().SleepFor(1us);
    EXPECT_GE(kit::GetClock().Now() - before, 1us);
}

TEST(ScopedClock, AtItsEnd_ThePreviousClockIsInForce) {
    kit::Clock& system = kit::GetClock();
    kit::FakeClock outer;
    {
        const kit::ScopedClock outerScope(outer);
        {
            kit::FakeClock inner;
            const kit::ScopedClock innerScope(inner);
            EXPECT_EQ(&inner, &kit::GetClock());
        }
        EXPECT_EQ(&outer, &kit::GetClock());
    }
    EXPECT_EQ(&system, &kit::GetClock());
}

TEST(SetClock, Nullptr_IsTheSystemsClock) {
    kit::Clock& system = kit::GetClock();
    kit::FakeClock fake;
    kit::SetClock(&fake);
    EXPECT_EQ(&fake, &kit::GetClock());
    kit::SetClock(nullptr);
    EXPECT_EQ(&system, &kit::GetClock());
}

TEST(FakeClock, AutoAdvance_SleepMovesTheTimeByItself) {
    kit::FakeClock clock(kit::FakeClock::Mode::AutoAdvance);
    const kit::ScopedClock scope(clock);
    kit::Sleep(250);
    EXPECT_EQ(250ms, clock.Now());
    kit::Sleep(0);
    EXPECT_EQ(250ms, clock.Now());
}

TEST(FakeClock, SleepOfNoLength_ReturnsAtOnce) {
    kit::FakeClock clock;
    clock.SleepFor(0ns);
    clock.SleepFor(-5ms);
    EXPECT_EQ(0ns, clock.Now());
}

TEST(FakeClock, SleeperWakesOnlyWhenItsMomentHasCome) {
    kit::FakeClock clock;
    std::atomic<bool> isAwake = false;
    std::jthread sleeper([&] {
        clock.SleepFor(10ms);
        isAwake = true;
    });
    clock.WaitForSleepers(1);
    clock.Advance(9ms);
    clock.WaitForSleepers(1);
    EXPECT_FALSE(isAwake);
    clock.Advance(1ms);
    sleeper.join();
    EXPECT_TRUE(isAwake);
    EXPECT_EQ(10ms, clock.Now());
}

TEST(FakeClock, SleeperWhoseMomentHasCome_DoesNotCount) {
    kit::FakeClock clock;
    std::jthread early([&] { clock.SleepFor(1ms); });
    std::jthread late([&] { clock.SleepFor(3ms); });
    clock.WaitForSleepers(2);
    clock.Advance(2ms);
    // The early one is on its way; were it still counted, the next sleep could not be told from it.
    early.join();
    std::jthread third([&] { clock.SleepFor(1ms); });
    clock.WaitForSleepers(2);
    clock.Advance(1ms);
}
