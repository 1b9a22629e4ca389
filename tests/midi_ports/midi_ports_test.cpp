#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>

#include "tavo_core/callback_dispatcher.h"
#include "tavo_midi/midi_commands.h"
#include "tavo_midi/midi_ports.h"
#include "tests/midi_ports/jack_server.h"
#include "tests/midi_ports/pedal.h"
#include "tests/support/temporary_directory.h"

namespace {

using namespace std::chrono_literals;
using tavo_midi::MidiSystemChoice;
using test_support::Child;
using test_support::LogOfLines;
using test_support::StartPeer;

/// A pit: a server, a foot pedal on it, and the commands of a show.
class MidiPorts : public testing::TestWithParam<test_support::PortCase> {
protected:
    void SetUp() override {
        const std::string obstacle = test_support::PrepareJackServer(server_, GetParam().periodFrames);
        if (!obstacle.empty()) GTEST_SKIP() << obstacle;
        pedal_ = StartPeer("pedal");
        ASSERT_NE(pedal_, nullptr);
        tavo_midi::SetMidiSystemChoice(GetParam().system);
        tavo_midi::SetMidiPortListener(
            [this](const tavo_midi::MidiPortReport& report) { ports_.Add(report.sentence); });
        for (const auto& [name, word] : CommandWords())
            notify::callbackDispatcher.AddCallback(this, name, [this, word](void*) { commands_.Add(word); });
    }
    void TearDown() override {
        tavo_midi::SetMidiPortListener({});
        notify::callbackDispatcher.RemoveCallbacksForTarget(this);
        tavo_midi::SetMidiSystemChoice(MidiSystemChoice::None);
    }

    static std::vector<std::pair<std::string, std::string>> CommandWords() {
        using namespace notify::names;
        return {{midiCommandPlay, "Play"},
                {midiCommandPause, "Pause"},
                {midiCommandStop, "Stop"},
                {midiCommandContinue, "Continue"},
                {midiCommandNextSong, "Next Song"},
                {midiCommandPreviousSong, "Previous Song"},
                {midiCommandNextMarker, "Next Marker"},
                {midiCommandPreviousMarker, "Previous Marker"},
                {midi_commands::names::conductBeat, "Conduct Beat"}};
    }
    [[nodiscard]] std::string SettingsPath() const { return directory_ / "midiCommandSettings"; }
    void ConnectToPedal(midi_commands::MidiCommands& commands) {
        // A busy system may not answer in time when it is asked what it has.
        const auto end = std::chrono::steady_clock::now() + test_support::Patience;
        for (bool isListed = false; !isListed && std::chrono::steady_clock::now() < end;) {
            for (const MidiEndPoint& source : GetNonTavoMidiSources()) {
                if (source.name != "pedal:out") continue;
                commands.ConnectSourceByIndex(source.index);
                isListed = true;
            }
        }
        ASSERT_TRUE(ports_.WaitFor("The MIDI input \"pedal:out\" is connected."));
    }

    test_support::TemporaryDirectory directory_;
    std::unique_ptr<Child> server_;
    std::unique_ptr<Child> pedal_;
    LogOfLines ports_;
    LogOfLines commands_;
};

TEST_P(MidiPorts, EveryCommandOfThePedal_ReachesThePlayer) {
    MidiMessageDispatcher dispatcher;
    midi_commands::MidiCommands commands(dispatcher, SettingsPath());
    ConnectToPedal(commands);
    EXPECT_TRUE(dispatcher.GetIsConnected());
    EXPECT_EQ(GetNonTavoMidiSources().at(dispatcher.GetPortIndex()).name, "pedal:out");
    for (const auto& [command, name] : midi_commands::commandNames)
        commands.SetMidiCommand(command, 0x90, static_cast<unsigned char>(60 + command), 0);
    for (const auto& [command, name] : midi_commands::commandNames) {
        char line[32];
        std::snprintf(line, sizeof line, "send 90 %02X 40", 60 + command);
        pedal_->Write(line);
        EXPECT_TRUE(commands_.WaitFor(name)) << name;
    }
    EXPECT_TRUE(commands_.GetLines().empty());
}

TEST_P(MidiPorts, LearnedFromThePedal_GivesTheCommandAndNotWhileLearning) {
    MidiMessageDispatcher dispatcher;
    midi_commands::MidiCommands commands(dispatcher, SettingsPath());
    ConnectToPedal(commands);
    commands.LearnMidiCommand(midi_commands::Continue);
    pedal_->Write("send B0 40 7F");
    while (commands.IsMidiCommandLearning(midi_commands::Continue))
        std::this_thread::sleep_for(1ms);
    EXPECT_TRUE(commands_.GetLines().empty());
    EXPECT_EQ(commands.GetLearnedCommands().at(midi_commands::Continue),
              (midi_commands::LearnedCommand{0xB0, 0x40, 0x7F}));
    pedal_->Write("send B0 40 00");
    pedal_->Write("send B0 40 7F");
    EXPECT_TRUE(commands_.WaitFor("Continue"));
    EXPECT_TRUE(commands_.GetLines().empty());
}

TEST_P(MidiPorts, PedalUnpluggedAndPluggedIn_IsFoundAgainAndReported) {
    MidiMessageDispatcher dispatcher;
    midi_commands::MidiCommands commands(dispatcher, SettingsPath());
    commands.SetMidiCommand(midi_commands::Play, 0xC0, 5, 0);
    ConnectToPedal(commands);
    pedal_.reset();
    EXPECT_TRUE(ports_.WaitFor("The MIDI input \"pedal:out\" was lost; it will reconnect when it returns."));
    EXPECT_FALSE(dispatcher.GetIsConnected());
    pedal_ = StartPeer("pedal");
    EXPECT_TRUE(ports_.WaitFor("The MIDI input \"pedal:out\" is back."));
    EXPECT_TRUE(dispatcher.GetIsConnected());
    pedal_->Write("send C0 05");
    EXPECT_TRUE(commands_.WaitFor("Play"));
}

TEST_P(MidiPorts, PressedAsSoonAsTheInputIsReported_IsHeard) {
    MidiMessageDispatcher dispatcher;
    midi_commands::MidiCommands commands(dispatcher, SettingsPath());
    commands.SetMidiCommand(midi_commands::Stop, 0x90, 60, 0);
    for (int round = 0; round < GetParam().GetRounds(40); ++round) {
        ConnectToPedal(commands);
        pedal_->Write("send 90 3C 40");
        ASSERT_TRUE(commands_.WaitFor("Stop")) << round;
        commands.ForgetSource();
    }
}

TEST_P(MidiPorts, PressedAtAnyPlaceOfAPeriod_ItsArrivalIsNotInTheFuture) {
    MidiMessageDispatcher dispatcher;
    midi_commands::MidiCommands commands(dispatcher, SettingsPath());
    ConnectToPedal(commands);
    std::atomic<std::int64_t> lead{0};
    dispatcher.AddListener(&lead, [&](std::span<const unsigned char>, std::chrono::nanoseconds arrival) {
        lead = (arrival - std::chrono::steady_clock::now().time_since_epoch()).count();
        commands_.Add("arrived");
    });
    for (int press = 0; press < 5; ++press) {
        pedal_->Write("send 90 3C 40");
        ASSERT_TRUE(commands_.WaitFor("arrived"));
        EXPECT_LE(lead, 0) << "ns";
    }
    dispatcher.RemoveListener(&lead);
}

TEST_P(MidiPorts, ServerKilledAndStartedAgain_ThreeTimes_ThePedalWorks) {
    MidiMessageDispatcher dispatcher;
    midi_commands::MidiCommands commands(dispatcher, SettingsPath());
    commands.SetMidiCommand(midi_commands::Continue, 0x90, 60, 0);
    ConnectToPedal(commands);
    for (int round = 0; round < 3; ++round) {
        server_->End(SIGKILL);
        EXPECT_TRUE(ports_.WaitFor("The MIDI input \"pedal:out\" was lost; it will reconnect when it returns."));
        pedal_.reset();
        server_ = test_support::StartJackServer("-S", 48000, GetParam().periodFrames);
        ASSERT_NE(server_, nullptr);
        pedal_ = StartPeer("pedal");
        ASSERT_NE(pedal_, nullptr);
        EXPECT_TRUE(ports_.WaitFor("The MIDI input \"pedal:out\" is back."));
        pedal_->Write("send 90 3C 40");
        EXPECT_TRUE(commands_.WaitFor("Continue"));
    }
}

TEST_P(MidiPorts, ServerStandsStill_IsReportedAndNothingHangs_AndThePedalWorksWhenItGoesOn) {
    MidiMessageDispatcher dispatcher;
    midi_commands::MidiCommands commands(dispatcher, SettingsPath());
    commands.SetMidiCommand(midi_commands::Continue, 0x90, 60, 0);
    ConnectToPedal(commands);
    server_->Signal(SIGSTOP);
    EXPECT_TRUE(ports_.WaitFor("The MIDI input \"pedal:out\" was lost; it will reconnect when it returns."));
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(dispatcher.GetIsConnected());
    EXPECT_TRUE(GetNonTavoMidiSources().empty());
    commands.ForgetSource();
    dispatcher.ConnectSourceByName("pedal:out");
    // As long as a server that has not answered yet is waited for, at most.
    EXPECT_LT(std::chrono::steady_clock::now() - start, 5s);
    server_->Signal(SIGCONT);
    EXPECT_TRUE(ports_.WaitFor("The MIDI input \"pedal:out\" is connected."));
    pedal_->Write("send 90 3C 40");
    EXPECT_TRUE(commands_.WaitFor("Continue"));
}

TEST_P(MidiPorts, NextStart_TheRememberedPedalIsConnectedWhenItComes) {
    {
        MidiMessageDispatcher dispatcher;
        midi_commands::MidiCommands commands(dispatcher, SettingsPath());
        commands.SetMidiCommand(midi_commands::Stop, 0x90, 60, 0);
        ConnectToPedal(commands);
    }
    pedal_.reset();
    MidiMessageDispatcher dispatcher;
    const midi_commands::MidiCommands commands(dispatcher, SettingsPath());
    EXPECT_FALSE(dispatcher.GetIsConnected());
    EXPECT_EQ(dispatcher.GetPortName(), "pedal:out");
    pedal_ = StartPeer("pedal");
    EXPECT_TRUE(ports_.WaitFor("The MIDI input \"pedal:out\" is connected."));
    pedal_->Write("send 90 3C 40");
    EXPECT_TRUE(commands_.WaitFor("Stop"));
}

TEST_P(MidiPorts, FloodOfTenThousandASecond_TheNextCommandIsNotHeldUp) {
    if (test_support::IsSanitized) GTEST_SKIP() << "How soon a command comes is measured without a sanitizer.";
    MidiMessageDispatcher dispatcher;
    midi_commands::MidiCommands commands(dispatcher, SettingsPath());
    commands.SetMidiCommand(midi_commands::Play, 0x90, 60, 0);
    ConnectToPedal(commands);
    std::atomic<int> count{0};
    std::mutex delaysMutex;
    std::vector<std::chrono::nanoseconds> delays;
    dispatcher.AddListener(&count, [&](std::span<const unsigned char> message, std::chrono::nanoseconds arrival) {
        const auto delay = std::chrono::steady_clock::now().time_since_epoch() - arrival;
        const std::lock_guard lock(delaysMutex);
        if (message[0] == 0x90) delays.push_back(delay);
        ++count;
    });
    // Two seconds of it, or one where the period is long.
    const int messages = GetParam().periodFrames == 128 ? 20000 : 10000;
    pedal_->Write("flood " + std::to_string(messages) + " 10000");
    for (int press = 0; press < 20; ++press) {
        pedal_->Write("send 90 3C 40");
        EXPECT_TRUE(commands_.WaitFor("Play"));
    }
    const auto end = std::chrono::steady_clock::now() + test_support::Patience;
    while (count < messages + 20 && std::chrono::steady_clock::now() < end)
        std::this_thread::sleep_for(5ms);
    EXPECT_EQ(count, messages + 20);
    EXPECT_EQ(dispatcher.GetDroppedCount(), 0U);
    dispatcher.RemoveListener(&count);
    // The median: a busy machine lets any thread wait for longer now and then.
    ASSERT_EQ(delays.size(), 20U);
    std::sort(delays.begin(), delays.end());
    EXPECT_LT(delays[10], 10ms);
    std::printf("longest delay of 20 presses: %d us\n", static_cast<int>(delays.back() / 1us));
}

INSTANTIATE_TEST_SUITE_P(Systems, MidiPorts, testing::ValuesIn(test_support::PortCases), test_support::NamePortCase);

}  // namespace
