// One body, many doors: an evening is the same by whatever way its presses come.

#include <gtest/gtest.h>

#include <map>
#include <thread>

#include "tests/support/show_builder.h"

namespace {

using stage::Command;
using stage::CommandRecord;
using stage::Door;
using stage::ShowSession;
using stage::Verb;
using test_support::Performance;
using test_support::TestShow;
using Bytes = std::vector<unsigned char>;

/// Stands for the device id, all devices, that MSC and MMC messages are sent to.
constexpr unsigned char AllDevices = 0x7F;

Bytes ShowControl(unsigned char command) {
    return {0xF0, 0x7F, AllDevices, 0x02, 0x10, command, 0xF7};
}
Bytes MachineControl(unsigned char command) {
    return {0xF0, 0x7F, AllDevices, 0x06, command, 0xF7};
}

const std::map<Verb, Bytes> ShowControlMessages{
    {Verb::Play, ShowControl(0x01)}, {Verb::Pause, ShowControl(0x02)}, {Verb::Stop, ShowControl(0x08)}};
const std::map<Verb, Bytes> MachineControlMessages{
    {Verb::Play, MachineControl(0x02)}, {Verb::Pause, MachineControl(0x09)}, {Verb::Stop, MachineControl(0x01)}};

/// A pedal board: a note for each command.
const std::map<Verb, unsigned char> PedalCommands{
    {Verb::Play, midi_commands::Play},
    {Verb::Pause, midi_commands::Pause},
    {Verb::Stop, midi_commands::Stop},
    {Verb::Continue, midi_commands::Continue},
    {Verb::Next, midi_commands::NextSong},
    {Verb::Previous, midi_commands::PreviousSong},
    {Verb::NextMarker, midi_commands::NextMarker},
    {Verb::PreviousMarker, midi_commands::PreviousMarker},
};
constexpr unsigned char FirstPedalNote = 60;

Bytes PressPedal(Verb verb) {
    const auto note = static_cast<unsigned char>(FirstPedalNote + PedalCommands.at(verb));
    return {0x90, note, 100, 0x80, note, 0};
}

void PrepareMidi(ShowSession& session) {
    session.GetMidiCommands().SetRemoteControl({true, true, 0});
    for (const auto& [verb, command] : PedalCommands)
        session.SetMidiCommand(command, 0x90, static_cast<unsigned char>(FirstPedalNote + command),
                               midi_commands::AnyValue);
}

/// Gives the operator's commands to the session by the door; what the door does not know, the script does.
void Press(ShowSession& session, Door door, Command command) {
    const auto deliver = [&](const Bytes& bytes) { session.GetMidiMessageDispatcher().Deliver(bytes); };
    if (command.verb == Verb::Quit) door = Door::Script;
    command.source.door = door;
    switch (door) {
        case Door::MidiPort:
            return deliver(PressPedal(command.verb));
        case Door::ShowControl:
            return deliver(ShowControlMessages.at(command.verb));
        case Door::MachineControl:
            return deliver(MachineControlMessages.at(command.verb));
        case Door::Osc:
        case Door::Page: {
            // Their messages come on threads of their own.
            std::thread([&] { session.GetDesk().Post(command); }).join();
            session.GetDesk().RunPosted();
            return;
        }
        default:
            EXPECT_TRUE(session.GetDesk().Execute(command).IsTaken()) << stage::AsText(command);
    }
}

struct Heard {
    Performance performance;
    std::vector<CommandRecord> log;
};

/// The evening with its presses by one door. In a render they follow each other faster than hands could press.
Heard PlayEvening(Door door, const char* script) {
    TestShow show;
    show.settings = R"({"pressGuardMs": 0})";
    show.Song("1", 9).Edits("vamp 2 3\ncaesura 6\nmarker 4 Verse\nmarker 8 Chorus").Song("2", 3);
    Heard heard;
    ShowSession* playing = nullptr;
    heard.performance = show.Perform([&](ShowSession& session) {
        playing = &session;
        PrepareMidi(session);
        session.GetDesk().SetRecordListener([&](const CommandRecord& record) { heard.log.push_back(record); });
        stage::OfflineOptions options = show.MakeOptions(script);
        options.press = [&](const Command& command) { Press(*playing, door, command); };
        return options;
    });
    return heard;
}

class DoorTest : public testing::TestWithParam<Door> {};

void ExpectTheScriptsEvening(Door door, const char* script) {
    const Heard byScript = PlayEvening(Door::Script, script);
    const Heard byDoor = PlayEvening(door, script);
    EXPECT_EQ(byScript.performance.trace, byDoor.performance.trace);
    EXPECT_EQ(byScript.performance.messages, byDoor.performance.messages);
    EXPECT_EQ(byScript.performance.left, byDoor.performance.left);
    ASSERT_EQ(byScript.log.size(), byDoor.log.size());
    for (std::size_t i = 0; i < byDoor.log.size(); ++i) {
        const CommandRecord& scripted = byScript.log[i];
        const CommandRecord& pressed = byDoor.log[i];
        EXPECT_EQ(scripted.command.verb, pressed.command.verb) << i;
        EXPECT_TRUE(pressed.IsTaken()) << pressed.sentence;
        EXPECT_EQ(scripted.place, pressed.place) << i;
        const bool isPressed = scripted.command.source.door == Door::Script && pressed.command.verb != Verb::Quit;
        EXPECT_EQ(isPressed ? door : scripted.command.source.door, pressed.command.source.door) << i;
    }
}

TEST_P(DoorTest, StartsPausesAndStops_AreTheScriptsToTheSample) {
    ExpectTheScriptsEvening(GetParam(),
                            "at 2 pause\n+1s play\nat 2:3 stop\n+0.5s play\nat 3@2 pause\n+0.25s play\n+3s quit\n");
}

INSTANTIATE_TEST_SUITE_P(All, DoorTest,
                         testing::Values(Door::Terminal, Door::MidiPort, Door::ShowControl, Door::MachineControl,
                                         Door::Osc, Door::Page, Door::Replay),
                         [](const auto& door) {
                             std::string name;
                             for (const char c : stage::GetDoorName(door.param))
                                 if (c != ' ') name += c;
                             return name;
                         });

class FlowDoorTest : public testing::TestWithParam<Door> {};

TEST_P(FlowDoorTest, ExitsCaesurasMarkersAndSongs_AreTheScriptsToTheSample) {
    ExpectTheScriptsEvening(GetParam(),
                            "at 3@2 continue\nat 6 pause\n+0.5s continue\nat 7 previous-marker\nat 5 next-marker\n"
                            "at 9 next\n+1s play\n+2s previous\n+0.5s next\n+0s play\n+1.5s quit\n");
}

INSTANTIATE_TEST_SUITE_P(All, FlowDoorTest,
                         testing::Values(Door::Terminal, Door::MidiPort, Door::Osc, Door::Page, Door::Replay),
                         [](const auto& door) {
                             std::string name;
                             for (const char c : stage::GetDoorName(door.param))
                                 if (c != ' ') name += c;
                             return name;
                         });

TEST(Doors, PedalIsGuardedAndItsRefusalIsInTheLog) {
    TestShow show;
    show.Song("1", 4).Edits("vamp 1 2");
    Heard heard;
    show.Perform([&](ShowSession& session) {
        PrepareMidi(session);
        session.GetDesk().SetRecordListener([&](const CommandRecord& record) { heard.log.push_back(record); });
        stage::OfflineOptions options = show.MakeOptions("at 2 continue\n+0s continue\n+0s quit\n");
        options.press = [&](const Command& command) { Press(session, Door::MidiPort, command); };
        return options;
    });
    ASSERT_EQ(5U, heard.log.size());  // load, play, twice continue, quit
    EXPECT_TRUE(heard.log[2].IsTaken());
    EXPECT_EQ(CommandRecord::Outcome::Refused, heard.log[3].outcome);
    EXPECT_NE(std::string::npos, heard.log[3].sentence.find("presses within 250 ms are one press"));
}

TEST(Doors, SongThatTheShowDoesNotHave_IsRefusedAndNothingStarts) {
    TestShow show;
    show.Song("1", 4);
    Heard heard;
    show.Perform([&](ShowSession& session) {
        PrepareMidi(session);
        session.GetDesk().SetRecordListener([&](const CommandRecord& record) { heard.log.push_back(record); });
        stage::OfflineOptions options = show.MakeOptions("at 2 pause\n+0s play\n+0s quit\n");
        options.press = [&](const Command& command) {
            if (command.verb != Verb::Play) return Press(session, Door::Script, command);
            // GO of cue 9: song 9, and play.
            session.GetMidiMessageDispatcher().Deliver(Bytes{0xF0, 0x7F, AllDevices, 0x02, 0x10, 0x01, '9', 0xF7});
            EXPECT_TRUE(session.GetIsPaused());
        };
        return options;
    });
    ASSERT_EQ(5U, heard.log.size());  // load, play, pause, load 9, quit
    EXPECT_EQ(Verb::Load, heard.log[3].command.verb);
    EXPECT_EQ(CommandRecord::Outcome::Refused, heard.log[3].outcome);
    EXPECT_NE(std::string::npos, heard.log[3].sentence.find('9'));
}

}  // namespace
