// The device's callback on a real JACK server: it takes no lock, allocates nothing and calls nothing of the system. Nor
// does what the rendering thread does for output groups.

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <memory>
#include <thread>
#include <vector>

#include "stage/engine/engine_sound.h"
#include "stage/engine/sound_font.h"
#include "tests/live/watched_feed.h"
#include "tests/midi_ports/jack_server.h"
#include "tests/support/real_time_watch.h"

namespace {

using test_support::RealTimeWatch;

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
    test_support::WatchedFeed<RealTimeWatch> source;
    RealTimeWatch::Reset();
    test_support::PlayWholeLateAndReturningPeriods(source);
    EXPECT_GT(source.feed.CountLatePeriods(), 0U);
    EXPECT_EQ(0, RealTimeWatch::CountSystemCalls());
    EXPECT_EQ(0, RealTimeWatch::CountAllocations());
    EXPECT_EQ(0, RealTimeWatch::CountLocks());
}

TEST(RenderedGroups, WithASoundFontAndReverbThroughCutsAndRest_CallNothingThatWaits) {
    if (test_support::IsSanitized) GTEST_SKIP() << "A sanitizer allocates and locks for itself.";
    if (!RealTimeWatch::CanWatch()) GTEST_SKIP() << "The system does not hand its calls to programs here.";
    stage::Synth synth(stage::FindDefaultSoundFont(), 48000, 16, stage::Synth::Mix::Groups);
    synth.SetFontsOfGroups({0, synth.AddSoundFont(stage::FindDefaultSoundFont())});
    stage::GroupPlan plan;
    plan.groups.resize(1);
    plan.groups[0].reverbDb = 0;
    stage::EngineSound sound(synth, 48000);
    sound.SetGroups(plan);
    std::vector<float> left(64);
    std::vector<float> right(64);
    const stage::StereoBuffer pair{left.data(), right.data()};
    const std::array<std::uint8_t, 2> inGroup{1, 1};
    const std::array<std::uint8_t, 2> inNone{0, 0};
    float loudest = 0;
    const auto play = [&] {
        for (int block = 0; block < 400; ++block) {
            if (block % 50 == 0) {
                synth.AssignChannels(block % 100 == 0 ? inGroup : inNone);
                synth.PlayMessage({0, 0xC0, static_cast<std::uint8_t>(block / 50), 0, 0});
                synth.PlayNote(0, static_cast<std::uint8_t>(60 + block / 50), 100, 0);
            }
            if (block % 120 == 119) sound.Do({.kind = stage::SoundOrder::Kind::Silence});
            sound.SetBuffers({&pair, 1});
            sound.Render(64);
            sound.Write();
            loudest = std::max(loudest, left[0]);
        }
    };
    // Lists grow to their lengths in the first round.
    play();
    RealTimeWatch::Reset();
    std::thread([&] {
        RealTimeWatch::PrepareThread();
        const RealTimeWatch::Scope watch;
        play();
    }).join();
    EXPECT_GT(loudest, 0.001F);
    EXPECT_EQ(0, RealTimeWatch::CountSystemCalls());
    EXPECT_EQ(0, RealTimeWatch::CountAllocations());
    EXPECT_EQ(0, RealTimeWatch::CountLocks());
}

// Each of the three counts would notice.
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
