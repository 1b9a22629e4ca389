// When rendering and the device meet: on a machine that cannot keep up with the music, and at any moment.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <random>
#include <thread>

#include "stage/live/live_renderer.h"
#include "tests/player_core/support/test_interface.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

/// Takes all that is ready as soon as the next block begins: the lead is never reached.
class HastyDevice final : public stage::EngineSubscriber {
public:
    explicit HastyDevice(stage::OutputFeed& feed) : feed_(feed) {}
    void OnEngineEvent(const stage::EngineEvent& event) override {
        if (event.kind != stage::EngineEvent::Kind::BlockBegins || isResting_) return;
        std::array<std::array<float, 256>, 2> samples{};
        const std::array<stage::StereoBuffer, 1> pair{{{samples[0].data(), samples[1].data()}}};
        while (feed_.GetRing().Take(pair, 256) > 0) {
        }
        ++blocks_;
    }
    void Rest() { isResting_ = true; }
    void WaitForBlocks(int count) const {
        while (blocks_ < count)
            std::this_thread::yield();
    }

private:
    stage::OutputFeed& feed_;
    std::atomic<int> blocks_{0};
    std::atomic<bool> isResting_{false};
};

TEST(Overload, MachineNeverKeepsUp_ThePerformanceIsEndedAllTheSame) {
    test_support::ShowFiles files;
    files.WriteMusic("evening.showdata", {test_support::MakeShowSong("1", 16)});
    files.WriteLog("evening-1.0.logdata", {1, 0}, [](CL::ChangeLog&) {});
    stage::ShowSession session(files.Show(), files.Settings());
    session.LoadSong("1");
    stage::OutputFeed feed;
    HastyDevice device(feed);
    session.GetStagePlayer().GetEngine().Subscribe(device);
    stage::LiveRenderer::Options options;
    options.leadFrames = 4096;
    auto renderer = std::make_unique<stage::LiveRenderer>(session, feed, options);
    device.WaitForBlocks(100);
    const auto ended = std::async(std::launch::async, [&renderer] { renderer.reset(); });
    EXPECT_EQ(std::future_status::ready, ended.wait_for(20s));
    device.Rest();
    ended.wait();
    session.GetStagePlayer().GetEngine().Unsubscribe(device);
}

/// A device that takes a block when it is told to, whatever it says its periods to be.
class HandDevice {
public:
    static constexpr std::uint32_t BlockFrames = 64;

    HandDevice(stage::OutputFeed& feed, std::uint32_t periodFrames)
        : feed_(feed), period_(std::chrono::nanoseconds(1s) * periodFrames / 48000) {
        feed_.NoteFormat({48000, periodFrames, periodFrames, 1});
        // It settles where the second period does not come before its time.
        Take(1s);
        Take();
    }
    /// How long one takes.
    [[nodiscard]] std::chrono::nanoseconds GetPeriod() const { return period_; }
    /// As one that began so long ago.
    void Take(std::chrono::nanoseconds ago = {}) {
        std::array<std::array<float, BlockFrames>, 2> samples{};
        feed_.TakeFrames(samples[0].data(), samples[1].data(), BlockFrames, Now_() - ago);
    }
    /// Until everything that may be ready is; how long that took.
    std::chrono::nanoseconds WaitUntilFull(std::uint32_t lead) const {
        const auto begin = Now_();
        while (feed_.GetRing().CountWaiting() < lead)
            std::this_thread::yield();
        return Now_() - begin;
    }

private:
    static std::chrono::nanoseconds Now_() { return Clock::now().time_since_epoch(); }

    stage::OutputFeed& feed_;
    std::chrono::nanoseconds period_;
};

/// A device and what renders for it.
class Meeting : public testing::Test {
protected:
    Meeting() {
        files_.WriteMusic("evening.showdata", {test_support::MakeShowSong("1", 16)});
        files_.WriteLog("evening-1.0.logdata", {1, 0}, [](CL::ChangeLog&) {});
        session_ = std::make_unique<stage::ShowSession>(files_.Show(), files_.Settings());
    }
    void Begin(std::uint32_t periodFrames) {
        device_ = std::make_unique<HandDevice>(feed_, periodFrames);
        renderer_ = std::make_unique<stage::LiveRenderer>(
            *session_, feed_, stage::LiveRenderer::Options{.blockFrames = HandDevice::BlockFrames});
        WaitUntilFull();
        ASSERT_TRUE(feed_.HasSettled());
    }
    /// Until all that should be ready is; how long that took.
    std::chrono::nanoseconds WaitUntilFull() { return device_->WaitUntilFull(renderer_->GetLeadFrames()); }

    test_support::ShowFiles files_;
    std::unique_ptr<stage::ShowSession> session_;
    stage::OutputFeed feed_;
    std::unique_ptr<HandDevice> device_;
    std::unique_ptr<stage::LiveRenderer> renderer_;
};

TEST_F(Meeting, DeviceTakesWhileTheRingIsLookedAt_WhatIsMissingIsRenderedAtOnce) {
    Begin(48000);
    std::minstd_rand random(7);
    int missed = 0;
    for (int i = 0; i < 2000; ++i) {
        // The next period is due. The thread is kept looking at the ring, and the device comes at some moment of its
        // last look.
        device_->Take(device_->GetPeriod());
        for (const auto end = Clock::now() + 100us; Clock::now() < end;)
            renderer_->WakeUp();
        for (const auto end = Clock::now() + random() % 2000 * 1ns; Clock::now() < end;) {
        }
        device_->Take();
        // A machine may stand still for a while now and then.
        if (WaitUntilFull() > device_->GetPeriod() * 3 / 4) ++missed;
        if (missed == 3) break;
    }
    EXPECT_LT(missed, 3);
}

TEST_F(Meeting, DeviceBeginsAfterALongRest_WhatItTookIsRenderedBeforeItsNextPeriod) {
    Begin(64);
    std::chrono::nanoseconds shortest = 1h;
    for (int i = 0; i < 20; ++i) {
        // Eight periods after this one the device passes for one that does not play, and is looked at seldom.
        device_->Take();
        WaitUntilFull();
        std::this_thread::sleep_for(9 * device_->GetPeriod());
        device_->Take();
        shortest = std::min(shortest, WaitUntilFull());
    }
    EXPECT_LT(shortest, device_->GetPeriod());
}

}  // namespace
