// The device's callback on a real JACK server under the real-time sanitizer, which ends the program at the first call
// that may wait. It knows the library's functions by name, and misses bare calls of the system, which callback_test.cpp
// counts.

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>

#include "tests/live/watched_feed.h"
#include "tests/midi_ports/jack_server.h"

extern "C" {
void __rtsan_realtime_enter();
void __rtsan_realtime_exit();
}

namespace {

struct RealTimeSanitizer {
    static void PrepareThread() noexcept {}
    class Scope {
    public:
        Scope() noexcept { __rtsan_realtime_enter(); }
        ~Scope() { __rtsan_realtime_exit(); }
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;
    };
};

TEST(CallbackUnderTheRealTimeSanitizer, WholeLateAndReturningPeriods_CallNothingThatWaits) {
    if (!test_support::EnterOwnSharedMemory())
        GTEST_SKIP() << "A /dev/shm of its own, which a JACK server of its own needs, is not permitted here.";
    const auto server = test_support::StartJackServer();
    if (server == nullptr) GTEST_SKIP() << "No JACK server with the dummy driver can be started here.";
    test_support::WatchedFeed<RealTimeSanitizer> source;
    test_support::PlayWholeLateAndReturningPeriods(source);
    EXPECT_GT(source.feed.CountLatePeriods(), 0U);
}

TEST(CallbackUnderTheRealTimeSanitizerDeathTest, SanitizerItself_EndsAtAnAllocation) {
    EXPECT_DEATH(
        {
            const RealTimeSanitizer::Scope watch;
            void* volatile memory = std::malloc(100);
            std::free(memory);
        },
        "real-time unsafe function `malloc`");
}

}  // namespace
