// MIDI time code of a performance tells what is heard: whoever follows it is not ahead by the device's latency.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <fstream>
#include <mutex>
#include <optional>
#include <stop_token>
#include <thread>
#include <vector>

#include "stage/live/live_renderer.h"
#include "tavo_midi/midi_ports.h"
#include "tests/player_core/support/test_interface.h"

namespace {

using namespace std::chrono_literals;
using std::chrono::nanoseconds;

/// A MIDI system with one output, "desk", which keeps the orders of time code.
class OrderDesk final : public tavo_midi::MidiPorts {
public:
    [[nodiscard]] std::string GetSystemName() const override { return "desk"; }
    [[nodiscard]] bool GetIsAlive() const override { return true; }
    [[nodiscard]] std::vector<std::string> GetSourceNames() override { return {}; }
    [[nodiscard]] std::vector<std::string> GetDestinationNames() override { return {"desk"}; }
    [[nodiscard]] std::unique_ptr<tavo_midi::MidiInput> OpenInput(const std::string&,
                                                                  tavo_midi::MidiByteSink&) override {
        throw std::runtime_error("there is no input");
    }
    [[nodiscard]] std::unique_ptr<tavo_midi::MidiOutput> OpenOutput(const std::string&) override {
        return std::make_unique<Output>(*this);
    }

    /// The next order that fits.
    template <class Fits>
    std::optional<tavo_midi::TimeCodeOrder> WaitFor(Fits fits) {
        std::unique_lock lock(mutex_);
        std::optional<tavo_midi::TimeCodeOrder> found;
        changed_.wait_for(lock, 10s, [&] {
            while (!orders_.empty() && !found) {
                if (fits(orders_.front())) found = orders_.front();
                orders_.erase(orders_.begin());
            }
            return found.has_value();
        });
        return found;
    }

private:
    struct Output final : tavo_midi::MidiOutput {
        explicit Output(OrderDesk& to) : desk(to) {}
        bool Send(std::span<const unsigned char>) override { return true; }
        bool RunTimeCode(const tavo_midi::TimeCodeOrder& order) override {
            const std::lock_guard lock(desk.mutex_);
            desk.orders_.push_back(order);
            desk.changed_.notify_all();
            return true;
        }
        [[nodiscard]] bool IsSampleAccurate() const override { return true; }
        OrderDesk& desk;
    };

    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<tavo_midi::TimeCodeOrder> orders_;
};

/// A device that begins its periods on an exact grid and is heard half a second later.
class LateDevice {
public:
    static constexpr std::uint32_t PeriodFrames = 2400;
    static constexpr std::uint32_t LatencyFrames = 24000;

    explicit LateDevice(stage::OutputFeed& feed) : feed_(feed) {
        feed_.NoteFormat({48000, PeriodFrames, LatencyFrames});
        thread_ = std::jthread([this](const std::stop_token& stop) { Run_(stop); });
    }
    /// When the ring's frame is heard. Once the first is taken: until then the device gets silence.
    [[nodiscard]] nanoseconds MomentOf(std::int64_t frame) const {
        return start_ + silentPeriods_.load() * 50ms + nanoseconds((frame + LatencyFrames) * 1'000'000'000 / 48000);
    }

private:
    void Run_(const std::stop_token& stop) {
        std::vector<float> left(PeriodFrames);
        std::vector<float> right(PeriodFrames);
        for (std::int64_t period = 0; !stop.stop_requested(); ++period) {
            const nanoseconds moment = start_ + period * 50ms;
            std::this_thread::sleep_until(std::chrono::steady_clock::time_point(moment));
            // A machine that is too busy for the rendering shifts what is heard when.
            while (feed_.GetRing().CountWaiting() < PeriodFrames && !stop.stop_requested())
                std::this_thread::yield();
            feed_.TakeFrames(left.data(), right.data(), PeriodFrames, moment);
            if (feed_.GetRing().CountTaken() == 0) ++silentPeriods_;
        }
    }

    stage::OutputFeed& feed_;
    std::atomic<int> silentPeriods_{0};
    const nanoseconds start_ = std::chrono::steady_clock::now().time_since_epoch();
    std::jthread thread_;
};

class TimeCodeHeard : public testing::Test {
protected:
    void SetUp() override {
        tavo_midi::SetMidiPorts(desk_);
        files_.WriteMusic("evening.showdata", {test_support::MakeShowSong("1", 16)});
        files_.WriteLog("evening-1.0.logdata", {1, 0}, [](CL::ChangeLog&) {});
        std::ofstream(files_.Settings() + "/midiTimeCodeSettings") << R"({"active": true, "output": "desk"})";
        session_ = std::make_unique<stage::ShowSession>(files_.Show(), files_.Settings());
        session_->LoadSong("1");
        device_ = std::make_unique<LateDevice>(feed_);
        renderer_ = std::make_unique<stage::LiveRenderer>(*session_, feed_, stage::LiveRenderer::Options());
        // From then on the device's clock tells, and what is heard when stays as it is.
        while (feed_.GetRing().CountTaken() == 0)
            std::this_thread::yield();
    }
    void TearDown() override {
        device_.reset();
        renderer_.reset();
        session_.reset();
        tavo_midi::SetMidiPorts(nullptr);
    }
    void Press(stage::Verb verb, std::vector<stage::CommandArgument> arguments = {}) {
        stage::Command command;
        command.verb = verb;
        command.arguments = std::move(arguments);
        command.moment = std::chrono::steady_clock::now().time_since_epoch();
        session_->GetDesk().Post(std::move(command));
    }
    std::optional<stage::LiveEvent> NextEvent(stage::LiveEvent::Kind kind) {
        const auto end = std::chrono::steady_clock::now() + 10s;
        for (stage::LiveEvent event; std::chrono::steady_clock::now() < end;) {
            if (!renderer_->TakeEvent(event)) {
                std::this_thread::yield();
                continue;
            }
            if (event.kind == kind) return event;
        }
        return std::nullopt;
    }

    test_support::ShowFiles files_;
    std::shared_ptr<OrderDesk> desk_ = std::make_shared<OrderDesk>();
    stage::OutputFeed feed_;
    std::unique_ptr<stage::ShowSession> session_;
    std::unique_ptr<LateDevice> device_;
    std::unique_ptr<stage::LiveRenderer> renderer_;
};

TEST_F(TimeCodeHeard, Played_RollsFromTheMomentAtWhichTheFirstFrameIsHeard) {
    Press(stage::Verb::Play);
    const auto started = NextEvent(stage::LiveEvent::Kind::Started);
    ASSERT_TRUE(started);
    const auto order = desk_->WaitFor([](const tavo_midi::TimeCodeOrder& each) { return each.rolls; });
    ASSERT_TRUE(order);
    EXPECT_EQ(order->positionNs, 0);
    EXPECT_LT(std::chrono::abs(order->when.time - device_->MomentOf(started->frame)), 1ms);
}

TEST_F(TimeCodeHeard, TempoScaledWhileItPlays_RollsOnFromWhereTheMusicThenIs) {
    Press(stage::Verb::Play);
    const auto start = desk_->WaitFor([](const tavo_midi::TimeCodeOrder& each) { return each.rolls; });
    ASSERT_TRUE(start);
    // A second of music later.
    while (session_->GetStagePlayer().GetEngine().GetPlayedFrames() < 48000)
        std::this_thread::yield();
    Press(stage::Verb::Tempo, {0.5});
    const auto order = desk_->WaitFor([](const tavo_midi::TimeCodeOrder& each) { return each.rolls; });
    ASSERT_TRUE(order);
    const nanoseconds played = order->when.time - start->when.time;
    EXPECT_GE(played, 1s - 2ms);
    // What was played takes twice the time at half the tempo; the place is known to a tick.
    EXPECT_NEAR(static_cast<double>(order->positionNs), 2.0 * static_cast<double>(played.count()), 6e6);
}

}  // namespace
