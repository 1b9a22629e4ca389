// A machine that cannot keep up with the music.

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <thread>

#include "stage/live/live_renderer.h"
#include "tests/player_core/support/test_interface.h"

namespace {

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
    EXPECT_EQ(std::future_status::ready, ended.wait_for(std::chrono::seconds(20)));
    device.Rest();
    ended.wait();
    session.GetStagePlayer().GetEngine().Unsubscribe(device);
}

}  // namespace
