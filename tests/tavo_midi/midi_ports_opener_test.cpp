#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <vector>

#include "tavo_midi/midi_commands.h"
#include "tavo_midi/midi_ports.h"
#include "tavo_midi/midi_time_code_controller.h"
#include "tests/support/fake_midi_ports.h"
#include "tests/support/log_of_lines.h"
#include "tests/support/temporary_directory.h"

namespace {

using tavo_midi::MidiSystemChoice;
using test_support::FakeMidiPorts;

/// Opens a system that the test has put there, whatever is chosen.
class FakeOpener final : public tavo_midi::MidiPortsOpener {
public:
    [[nodiscard]] std::shared_ptr<tavo_midi::MidiPorts> Open(MidiSystemChoice choice, std::function<void()>) override {
        const std::lock_guard lock(mutex_);
        choice_ = choice;
        return ports_;
    }
    [[nodiscard]] bool HasBetterThan(const tavo_midi::MidiPorts& inUse) override {
        const std::lock_guard lock(mutex_);
        return ports_ && ports_.get() != &inUse;
    }

    void Put(std::shared_ptr<FakeMidiPorts> ports) {
        const std::lock_guard lock(mutex_);
        ports_ = std::move(ports);
    }
    [[nodiscard]] MidiSystemChoice GetChoice() const {
        const std::lock_guard lock(mutex_);
        return choice_;
    }

private:
    mutable std::mutex mutex_;
    std::shared_ptr<FakeMidiPorts> ports_;
    MidiSystemChoice choice_ = MidiSystemChoice::None;
};

class PortsOpener : public testing::Test {
protected:
    PortsOpener() {
        tavo_midi::SetMidiSystemChoice(MidiSystemChoice::Auto);
        tavo_midi::SetMidiPortListener([this](const tavo_midi::MidiPortReport& report) { log_.Add(report.sentence); });
    }
    ~PortsOpener() override {
        tavo_midi::SetMidiPortListener({});
        tavo_midi::SetMidiPortsOpener(nullptr);
        tavo_midi::SetMidiSystemChoice(MidiSystemChoice::None);
    }

    test_support::LogOfLines log_;
    std::shared_ptr<FakeOpener> opener_ = std::make_shared<FakeOpener>();
};

TEST_F(PortsOpener, NoneInstalled_NothingIsListedAndAllElseWorks) {
    const test_support::TemporaryDirectory directory;
    MidiMessageDispatcher dispatcher;
    midi_commands::MidiCommands commands(dispatcher, directory / "midiCommandSettings");
    MidiTimeCodeController timeCode(directory / "midiTimeCodeSettings");
    for (const auto choice : {MidiSystemChoice::Auto, MidiSystemChoice::Jack, MidiSystemChoice::RtMidi}) {
        tavo_midi::SetMidiSystemChoice(choice);
        EXPECT_TRUE(GetNonTavoMidiSources().empty());
        EXPECT_TRUE(GetNonTavoMidiDestinations().empty());
        EXPECT_EQ(tavo_midi::GetMidiSystemName(), "");
        dispatcher.ConnectSourceByName("pedal");
        EXPECT_FALSE(dispatcher.GetIsConnected());
    }
    timeCode.SetOutputPortName("desk");
    timeCode.ActivateMidiTimeCode();
    timeCode.Start(std::chrono::seconds(1));
    EXPECT_FALSE(timeCode.GetHasOutputPortIndex());
    EXPECT_THROW(tavo_midi::SendMidiMessage("desk", std::vector<unsigned char>{0xFA}), std::runtime_error);
    commands.SetMidiCommand(midi_commands::Play, 0xC0, 5, 0);
    EXPECT_EQ(commands.GetLearnedCommands().size(), 1U);
}

TEST_F(PortsOpener, InstalledWhileAPortIsWaitedFor_ThePortIsConnectedAndTakenAwayAgain) {
    MidiMessageDispatcher dispatcher;
    dispatcher.ConnectSourceByName("pedal");
    opener_->Put(std::make_shared<FakeMidiPorts>());
    tavo_midi::SetMidiPortsOpener(opener_);
    EXPECT_TRUE(dispatcher.GetIsConnected());
    EXPECT_TRUE(log_.WaitFor("The MIDI input \"pedal\" is connected."));
    tavo_midi::SetMidiPortsOpener(nullptr);
    EXPECT_FALSE(dispatcher.GetIsConnected());
    EXPECT_TRUE(GetNonTavoMidiSources().empty());
}

TEST_F(PortsOpener, EachChoiceButNone_IsHandedOn) {
    opener_->Put(std::make_shared<FakeMidiPorts>());
    tavo_midi::SetMidiPortsOpener(opener_);
    for (const auto choice : {MidiSystemChoice::Jack, MidiSystemChoice::RtMidi, MidiSystemChoice::Auto}) {
        tavo_midi::SetMidiSystemChoice(choice);
        EXPECT_EQ(GetNonTavoMidiSources().size(), 1U);
        EXPECT_EQ(opener_->GetChoice(), choice);
    }
    tavo_midi::SetMidiSystemChoice(MidiSystemChoice::None);
    EXPECT_TRUE(GetNonTavoMidiSources().empty());
    EXPECT_EQ(opener_->GetChoice(), MidiSystemChoice::Auto);
}

TEST_F(PortsOpener, BetterSystemComesUp_TakesOverOnlyFromOneThatServesNothing) {
    opener_->Put(std::make_shared<FakeMidiPorts>("plain"));
    tavo_midi::SetMidiPortsOpener(opener_);
    MidiMessageDispatcher dispatcher;
    dispatcher.ConnectSourceByName("pedal");
    EXPECT_EQ(tavo_midi::GetMidiSystemName(), "plain");
    opener_->Put(std::make_shared<FakeMidiPorts>("better"));
    // It serves the pedal: another wish, which has the ports looked at, changes nothing.
    MidiMessageDispatcher another;
    another.ConnectSourceByName("drum");
    EXPECT_EQ(tavo_midi::GetMidiSystemName(), "plain");
    dispatcher.Disconnect();
    another.ConnectSourceByName("pedal");
    EXPECT_EQ(tavo_midi::GetMidiSystemName(), "better");
    EXPECT_TRUE(another.GetIsConnected());
}

TEST_F(PortsOpener, PluggedInLater_IsConnected) {
    const auto ports = std::make_shared<FakeMidiPorts>();
    ports->isPlugged = false;
    opener_->Put(ports);
    tavo_midi::SetMidiPortsOpener(opener_);
    MidiMessageDispatcher dispatcher;
    dispatcher.ConnectSourceByName("pedal");
    EXPECT_FALSE(dispatcher.GetIsConnected());
    ports->isPlugged = true;
    EXPECT_TRUE(log_.WaitFor("The MIDI input \"pedal\" is connected."));
    EXPECT_TRUE(dispatcher.GetIsConnected());
}

}  // namespace
