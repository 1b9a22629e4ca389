// The device's callback on a real JACK server: it takes no lock, allocates nothing and calls nothing of the system.

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <thread>

#include "stage/live/audio_output.h"
#include "stage/live/output_feed.h"
#include "tests/midi_ports/jack_server.h"
#include "tests/support/real_time_watch.h"

namespace {

using namespace std::chrono_literals;
using test_support::RealTimeWatch;

/// Watches the feed while the device takes frames from it.
class WatchedFeed final : public stage::FrameSource {
public:
    void TakeFrames(float* left, float* right, std::uint32_t frames,
                    std::chrono::nanoseconds moment) noexcept override {
        // Switching the watch on is itself a call of the system, once a thread.
        RealTimeWatch::PrepareThread();
        {
            const RealTimeWatch::Scope watch;
            feed.TakeFrames(left, right, frames, moment);
        }
        ++calls;
    }
    void NoteFormat(const stage::OutputFormat& format) noexcept override { feed.NoteFormat(format); }

    stage::OutputFeed feed;
    std::atomic<int> calls{0};
};

void WaitForCalls(const std::atomic<int>& calls, int wanted) {
    const auto end = std::chrono::steady_clock::now() + 20s;
    while (calls < wanted && std::chrono::steady_clock::now() < end)
        std::this_thread::sleep_for(2ms);
    ASSERT_GE(calls, wanted) << "the device does not call";
}

class Callback : public testing::Test {
protected:
    void SetUp() override {
        if (test_support::IsSanitized) GTEST_SKIP() << "A sanitizer allocates and locks for itself.";
        if (!RealTimeWatch::CanWatch()) GTEST_SKIP() << "The system does not hand its calls to programs here.";
        if (!test_support::EnterOwnSharedMemory())
            GTEST_SKIP() << "A /dev/shm of its own, which a JACK server of its own needs, is not permitted here.";
        server_ = test_support::StartJackServer();
        if (server_ == nullptr) GTEST_SKIP() << "No JACK server with the dummy driver can be started here.";
    }

    std::unique_ptr<test_support::Child> server_;
};

TEST_F(Callback, WholeLateAndReturningPeriods_CallNothingThatWaits) {
    WatchedFeed source;
    stage::OutputChoice choice;
    choice.kind = stage::OutputChoice::Kind::Jack;
    RealTimeWatch::Reset();
    {
        const auto output = stage::OpenOutput(choice, source);
        const std::vector<float> sound(128, 0.25F);
        // Whole periods, then none, then whole ones again: fading out and in is part of the callback.
        for (int round = 0; round < 3; ++round) {
            for (int period = 0; period < 20; ++period)
                source.feed.GetRing().Write(sound.data(), sound.data(), 128);
            WaitForCalls(source.calls, source.calls + 40);
        }
    }
    EXPECT_GT(source.feed.CountLatePeriods(), 0U);
    EXPECT_EQ(0, RealTimeWatch::CountSystemCalls());
    EXPECT_EQ(0, RealTimeWatch::CountAllocations());
    EXPECT_EQ(0, RealTimeWatch::CountLocks());
}

// Each of the three methods would notice.
TEST_F(Callback, WatchItself_NoticesAllThree) {
    RealTimeWatch::Reset();
    std::thread([] {
        RealTimeWatch::PrepareThread();
        const RealTimeWatch::Scope watch;
        void* volatile memory = std::malloc(100);
        std::free(memory);
        pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
        pthread_mutex_lock(&mutex);
        pthread_mutex_unlock(&mutex);
        static_cast<void>(syscall(SYS_getppid));
    }).join();
    EXPECT_GT(RealTimeWatch::CountSystemCalls(), 0);
    EXPECT_GT(RealTimeWatch::CountAllocations(), 0);
    EXPECT_GT(RealTimeWatch::CountLocks(), 0);
}

}  // namespace
