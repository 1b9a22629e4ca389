#include <gtest/gtest.h>

#include <fmt/format.h>
#include <mutex>

#include "tavo_midi/midi_ports.h"
#include "tavo_midi/midi_time_code_controller.h"
#include "tests/support/temporary_directory.h"

namespace {

using namespace std::chrono_literals;

/// A host's own MIDI system with one destination, which writes down the orders it gets.
class OrderedPorts final : public tavo_midi::MidiPorts {
public:
    [[nodiscard]] std::string GetSystemName() const override { return "host"; }
    [[nodiscard]] bool GetIsAlive() const override { return true; }
    [[nodiscard]] std::vector<std::string> GetSourceNames() override { return {}; }
    [[nodiscard]] std::vector<std::string> GetDestinationNames() override { return {"desk"}; }
    [[nodiscard]] std::unique_ptr<tavo_midi::MidiInput> OpenInput(const std::string&,
                                                                  tavo_midi::MidiByteSink&) override {
        throw std::runtime_error("There is no source.");
    }
    [[nodiscard]] std::unique_ptr<tavo_midi::MidiOutput> OpenOutput(const std::string&) override {
        return std::make_unique<Output>(*this);
    }

    /// "1000 at 5 rolls": position and moment in milliseconds. Empties the list.
    std::vector<std::string> TakeOrders() {
        const std::lock_guard lock(mutex_);
        return std::exchange(orders_, {});
    }

    /// Those that had come when it was waited for them to leave.
    std::vector<std::string> TakeOrdersAtWait() {
        const std::lock_guard lock(mutex_);
        return std::exchange(ordersAtWait_, {});
    }

private:
    class Output final : public tavo_midi::MidiOutput {
    public:
        explicit Output(OrderedPorts& ports) : ports_(ports) {}
        bool Send(std::span<const unsigned char>) override { return false; }
        bool RunTimeCode(const tavo_midi::TimeCodeOrder& order) override {
            const std::lock_guard lock(ports_.mutex_);
            ports_.orders_.push_back(fmt::format("{} at {}{}", order.positionNs / 1000000, order.when.time / 1ms,
                                                 order.rolls ? " rolls" : ""));
            return true;
        }
        [[nodiscard]] bool IsSampleAccurate() const override { return true; }
        bool WaitUntilSent() override {
            const std::lock_guard lock(ports_.mutex_);
            ports_.ordersAtWait_ = ports_.orders_;
            return true;
        }

    private:
        OrderedPorts& ports_;
    };

    std::mutex mutex_;
    std::vector<std::string> orders_;
    std::vector<std::string> ordersAtWait_;
};

class TimeCodeOutput : public testing::Test {
protected:
    TimeCodeOutput() {
        tavo_midi::SetMidiPorts(ports_);
        controller_.SetFrameRate(FrameRate::Fps25);
    }
    ~TimeCodeOutput() override {
        controller_.Shutdown();
        tavo_midi::SetMidiPorts(nullptr);
    }
    void Activate() {
        controller_.SetOutputPortIndex(0);
        controller_.ActivateMidiTimeCode();
        ports_->TakeOrders();
    }
    static tavo_midi::TimeCodeMoment At(std::chrono::nanoseconds time) { return {time, {}}; }

    using Orders = std::vector<std::string>;
    std::shared_ptr<OrderedPorts> ports_ = std::make_shared<OrderedPorts>();
    test_support::TemporaryDirectory directory_;
    MidiTimeCodeController controller_{directory_ / "midiTimeCodeSettings"};
};

TEST_F(TimeCodeOutput, NothingIsSentUntilItIsActiveNorAfterItIsCancelled) {
    controller_.SetOutputPortIndex(0);
    EXPECT_TRUE(controller_.GetHasOutputPortIndex());
    controller_.Start(1s, At(5ms));
    EXPECT_EQ(ports_->TakeOrders(), Orders{});
    controller_.ActivateMidiTimeCode();
    EXPECT_EQ(ports_->TakeOrders(), (Orders{"1000 at 5 rolls"}));
    controller_.Stop(2s, At(6ms));
    ports_->TakeOrders();
    controller_.CancelMidiTimeCode();
    controller_.Start(2s, At(7ms));
    EXPECT_EQ(ports_->TakeOrders(), Orders{});
}

TEST_F(TimeCodeOutput, CancelledWhileRolling_StopsWhereItIsAndRollsOnWhenItIsActiveAgain) {
    Activate();
    const auto start = std::chrono::steady_clock::now().time_since_epoch();
    controller_.Start(4s, At(start - 2s));
    ports_->TakeOrders();
    controller_.CancelMidiTimeCode();
    const auto elapsed = std::chrono::steady_clock::now().time_since_epoch() - start;
    const Orders last = ports_->TakeOrders();
    ASSERT_EQ(last.size(), 1U);
    EXPECT_EQ(last[0].find("rolls"), std::string::npos) << last[0];
    const auto position = std::chrono::milliseconds(std::stoll(last[0]));
    EXPECT_GE(position, 6s);
    EXPECT_LE(position, 6s + elapsed);
    controller_.ActivateMidiTimeCode();
    EXPECT_EQ(ports_->TakeOrders(), (Orders{fmt::format("4000 at {} rolls", (start - 2s) / 1ms)}));
}

TEST_F(TimeCodeOutput, CancelledBeforeTheMomentItStartsAt_StopsWhereItWouldHaveStarted) {
    Activate();
    controller_.Start(4s, At(std::chrono::steady_clock::now().time_since_epoch() + 1h));
    ports_->TakeOrders();
    controller_.CancelMidiTimeCode();
    const Orders last = ports_->TakeOrders();
    ASSERT_EQ(last.size(), 1U);
    EXPECT_TRUE(last[0].starts_with("4000 at ") && last[0].find("rolls") == std::string::npos) << last[0];
}

TEST_F(TimeCodeOutput, ClosedWhileRolling_WaitsUntilTheStopHasLeft) {
    Activate();
    controller_.Start(4s);
    ports_->TakeOrders();
    controller_.CancelMidiTimeCode();
    EXPECT_EQ(ports_->TakeOrdersAtWait().size(), 1U);
}

TEST_F(TimeCodeOutput, StartLocateJumpAndStop_AreOrderedForTheirMoments) {
    Activate();
    controller_.Locate(4s, At(1ms));
    controller_.Start(4s, At(2ms));
    controller_.Jump(6s, 4s, At(2002ms));
    controller_.Locate(20s, At(3000ms));
    controller_.Stop(21s, At(4000ms));
    EXPECT_EQ(ports_->TakeOrders(),
              (Orders{"4000 at 1", "4000 at 2 rolls", "4000 at 2002 rolls", "20000 at 3000 rolls", "21000 at 4000"}));
}

TEST_F(TimeCodeOutput, RunOn_JumpOrdersNothingAndTheStopIsWhereTimeCodeIs) {
    Activate();
    controller_.SetJumpRule(MidiTimeCodeController::JumpRule::RunOn);
    controller_.Start(4s, At(0ms));
    controller_.Jump(6s, 4s, At(2000ms));
    controller_.Stop(5s, At(3000ms));
    EXPECT_EQ(ports_->TakeOrders(), (Orders{"4000 at 0 rolls", "7000 at 3000"}));
    controller_.Locate(5s, At(3500ms));
    EXPECT_EQ(ports_->TakeOrders(), (Orders{"5000 at 3500"}));
}

TEST_F(TimeCodeOutput, SongOffsetAndHour_AreAdded) {
    Activate();
    controller_.SetSongOffset("7b", tavo_midi::TimeCode{0, 0, 10, 5});
    controller_.SetSong("7b");
    ports_->TakeOrders();
    controller_.Locate(1s, At(0ms));
    EXPECT_EQ(ports_->TakeOrders(), (Orders{"11200 at 0"}));
    controller_.SetHoursAreSongNumbers(true);
    EXPECT_EQ(ports_->TakeOrders(), (Orders{"25211200 at 0"}));
    controller_.SetSong("25");
    controller_.Locate(0s, At(1ms));
    EXPECT_EQ(ports_->TakeOrders(), (Orders{"3600000 at 1"}));
}

TEST_F(TimeCodeOutput, PrepareForExitWhileRolling_StopsAndSendsNothingMore) {
    Activate();
    controller_.Start(4s);
    ports_->TakeOrders();
    controller_.PrepareForExit();
    const Orders last = ports_->TakeOrders();
    ASSERT_EQ(last.size(), 1U);
    EXPECT_EQ(last[0].find("rolls"), std::string::npos);
    controller_.Start(5s);
    EXPECT_EQ(ports_->TakeOrders(), Orders{});
    EXPECT_TRUE(controller_.GetIsActive());
}

}  // namespace
