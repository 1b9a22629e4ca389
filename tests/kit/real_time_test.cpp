#include "kit/real_time.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>

#include <future>

#include "tests/support/sanitizers.h"

namespace {

/// What the thread is scheduled by, and its priority.
std::pair<int, int> FindSchedule(pthread_t thread) {
    int policy = 0;
    sched_param parameters{};
    pthread_getschedparam(thread, &policy, &parameters);
    return {policy, parameters.sched_priority};
}

TEST(RealTime, ThisThread_RunsBeforeOrdinaryOnesUntilThatIsTakenBack) {
    std::thread([] {
        const auto before = FindSchedule(pthread_self());
        const bool isPermitted = kit::MakeThisThreadRealTime(3);
        EXPECT_EQ(FindSchedule(pthread_self()), isPermitted ? std::pair(SCHED_FIFO, 3) : before);
        EXPECT_FALSE(isPermitted && test_support::IsSanitized) << "a sanitizer's locks would be waited for in vain";
        kit::MakeThisThreadOrdinary();
        EXPECT_EQ(FindSchedule(pthread_self()), std::pair(SCHED_OTHER, 0));
    }).join();
}

TEST(RealTime, AnotherThread_IsToldWhetherItIsPermitted) {
    std::promise<void> mayEnd;
    std::thread thread([end = mayEnd.get_future()] { end.wait(); });
    const auto before = FindSchedule(thread.native_handle());
    const bool isPermitted = kit::MakeRealTime(thread, 2);
    EXPECT_EQ(FindSchedule(thread.native_handle()), isPermitted ? std::pair(SCHED_FIFO, 2) : before);
    EXPECT_FALSE(kit::MakeRealTime(thread, 1000)) << "there is no such priority";
    mayEnd.set_value();
    thread.join();
}

}  // namespace
