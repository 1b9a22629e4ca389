#include <gtest/gtest.h>

#include <fmt/format.h>

#include <atomic>
#include <future>
#include <stdexcept>
#include <thread>

#include "tavo_core/callback_dispatcher.h"
#include "tavo_midi/midi_commands.h"
#include "tests/support/exception_log.h"
#include "tests/support/smf_bytes.h"
#include "tests/support/temporary_directory.h"

namespace {

using namespace midi_commands;

const char* NameDoor(CommandDoor door) {
    switch (door) {
        case CommandDoor::LearnedMessage:
            return "learned";
        case CommandDoor::ShowControl:
            return "show control";
        case CommandDoor::MachineControl:
            break;
    }
    return "machine control";
}

/// "midiCommandPlay by show control", with what belongs to it.
std::string Describe(const DeliveredCommand& command) {
    std::string text = command.callbackName + " by " + NameDoor(command.door);
    if (command.command) text += fmt::format(" [{}]", commandNames.at(*command.command));
    if (command.songNumber) text += " song " + *command.songNumber;
    if (command.locate) text += fmt::format(" to {} ms", *command.locate / std::chrono::milliseconds(1));
    return text + (command.hasRelease ? " with release" : "");
}

/// Commands on a dispatcher without a port, who has a word in them, and what they make the show do.
class CommandFilterTest : public testing::Test {
protected:
    CommandFilterTest() {
        using namespace notify::names;
        for (const std::string& name :
             {midiCommandPlay, midiCommandStop, midiCommandContinue, midi_commands::names::conductBeat,
              midi_commands::names::loadSong, midi_commands::names::locate})
            notify::callbackDispatcher.AddCallback(this, name, [this, name](void*) { Add(name); });
        commands_.SetRemoteControl({true, true, 5});
    }
    ~CommandFilterTest() override { notify::callbackDispatcher.RemoveCallbacksForTarget(this); }

    void Add(const std::string& word) { done_ += (done_.empty() ? "" : "; ") + word; }
    /// What is asked and done on these bytes.
    std::string Hear(const char* hex) {
        const std::string bytes = test_support::Hex(hex);
        done_.clear();
        dispatcher_.Deliver({reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size()});
        return done_;
    }
    /// Writes down what is asked and released, and refuses commands whose callback's name is `refused`.
    void SetFilter(const std::string& refused) {
        commands_.SetCommandFilter(
            [this, refused](const DeliveredCommand& command) {
                Add("? " + Describe(command));
                return command.callbackName != refused;
            },
            [this](const ReleasedCommand& released) { Add("released " + commandNames.at(released.command)); });
    }

    test_support::TemporaryDirectory directory_;
    MidiMessageDispatcher dispatcher_;
    MidiCommands commands_{dispatcher_, directory_ / "midiCommandSettings"};
    std::string done_;
};

TEST_F(CommandFilterTest, CommandOfEachDoor_IsAskedForWithWhatBelongsToItAndThenDone) {
    commands_.SetMidiCommand(Play, 0x90, 60, 0);
    commands_.SetMidiCommand(Stop, 0xC0, 7, 0);
    commands_.SetMidiCommand(Continue, 0xFB, 0, 0);
    commands_.SetMidiCommand(ConductBeat, 0xB0, 64, AnyValue);
    SetFilter("");
    const struct {
        const char* bytes;
        const char* done;
    } rows[] = {
        {"90 3C 40", "? midiCommandPlay by learned [Play] with release; midiCommandPlay"},
        {"C0 07", "? midiCommandStop by learned [Stop]; midiCommandStop"},
        {"FB", "? midiCommandContinue by learned [Continue]; midiCommandContinue"},
        {"B0 40 7F", "? midiCommandConductBeat by learned [Conduct Beat] with release; midiCommandConductBeat"},
        {"F0 7F 05 02 10 01 37 F7",
         "? midiLoadSong by show control song 7; midiLoadSong; "
         "? midiCommandPlay by show control [Play]; midiCommandPlay"},
        {"F0 7F 05 02 10 08 F7", "? midiCommandStop by show control [Stop]; midiCommandStop"},
        {"F0 7F 05 06 01 F7", "? midiCommandStop by machine control [Stop]; midiCommandStop"},
        {"F0 7F 05 06 44 06 01 60 00 0A 00 00 F7", "? midiLocate by machine control to 10000 ms; midiLocate"},
        {"90 3D 40", ""},
    };
    for (const auto& row : rows)
        EXPECT_EQ(Hear(row.bytes), row.done) << row.bytes;
}

TEST_F(CommandFilterTest, CommandDelivered_ArrivalIsTheMessages) {
    commands_.SetMidiCommand(Play, 0x90, 60, 0);
    std::chrono::nanoseconds pressed{0};
    std::chrono::nanoseconds released{0};
    commands_.SetCommandFilter(
        [&](const DeliveredCommand& command) {
            pressed = command.arrival;
            return true;
        },
        [&](const ReleasedCommand& command) { released = command.arrival; });
    const auto now = [] { return std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()); };
    const auto before = now();
    Hear("90 3C 40");
    const auto between = now();
    Hear("80 3C 40");
    EXPECT_LE(before, pressed);
    EXPECT_LE(pressed, between);
    EXPECT_LE(between, released);
    EXPECT_LE(released, now());
}

TEST_F(CommandFilterTest, RefusedCommand_IsNotDoneAndTheOthersAre) {
    commands_.SetMidiCommand(Play, 0x90, 60, 0);
    commands_.SetMidiCommand(Stop, 0x90, 61, 0);
    SetFilter("midiCommandPlay");
    EXPECT_EQ(Hear("90 3C 40"), "? midiCommandPlay by learned [Play] with release");
    EXPECT_EQ(Hear("F0 7F 05 06 02 F7"), "? midiCommandPlay by machine control [Play]");
    EXPECT_EQ(Hear("90 3D 40"), "? midiCommandStop by learned [Stop] with release; midiCommandStop");
}

TEST_F(CommandFilterTest, RefusedSong_TakesTheRestOfItsMessageAlong) {
    SetFilter("midiLoadSong");
    EXPECT_EQ(Hear("F0 7F 05 02 10 01 37 F7"), "? midiLoadSong by show control song 7");
    SetFilter("midiCommandPlay");
    EXPECT_EQ(Hear("F0 7F 05 02 10 01 37 F7"),
              "? midiLoadSong by show control song 7; midiLoadSong; ? midiCommandPlay by show control [Play]");
    SetFilter("midiLocate");
    EXPECT_EQ(Hear("F0 7F 05 06 44 06 01 60 00 0A 00 00 F7"), "? midiLocate by machine control to 10000 ms");
}

TEST_F(CommandFilterTest, KeyOrPedalLetGo_IsToldForItsCommand) {
    commands_.SetMidiCommand(Play, 0x92, 60, 0);
    commands_.SetMidiCommand(Pause, 0x90, 60, 100);
    commands_.SetMidiCommand(Stop, 0xB0, 64, AnyValue);
    commands_.SetMidiCommand(Continue, 0xB0, 65, 127);
    commands_.SetMidiCommand(NextSong, 0xB0, 66, 0);
    commands_.SetMidiCommand(PreviousSong, 0xC0, 60, 0);
    SetFilter("");
    const struct {
        const char* what;
        const char* bytes;
        const char* done;
    } rows[] = {
        {"note-off", "82 3C 40", "released Play"},
        {"note-on with velocity 0", "92 3C 00", "released Play"},
        {"note-off of another key", "82 3D 40", ""},
        {"note-off on another channel", "81 3C 40", ""},
        {"note-off of a note with a velocity", "80 3C 00", "released Pause"},
        {"note-on with another velocity", "90 3C 63", ""},
        {"controller below 64", "B0 40 3F", "released Stop"},
        {"controller with a value, below 64", "B0 41 00", "released Continue"},
        {"controller with a value, another one above", "B0 41 7E", ""},
        {"controller on another channel", "B1 40 00", ""},
        {"pedal that rests high", "B0 42 7F", "released Next Song"},
        {"pedal that rests high, half-way", "B0 42 20", ""},
        {"program", "C0 3B", ""},
    };
    for (const auto& row : rows)
        EXPECT_EQ(Hear(row.bytes), row.done) << row.what;
}

TEST_F(CommandFilterTest, OneMessageReleasesOneCommandAndGivesAnother_TheReleaseComesFirst) {
    commands_.SetMidiCommand(Continue, 0xB0, 64, 127);
    commands_.SetMidiCommand(Stop, 0xB0, 64, 0);
    SetFilter("");
    EXPECT_EQ(Hear("B0 40 7F"),
              "released Stop; ? midiCommandContinue by learned [Continue] with release; midiCommandContinue");
    EXPECT_EQ(Hear("B0 40 00"), "released Continue; ? midiCommandStop by learned [Stop] with release; midiCommandStop");
}

TEST_F(CommandFilterTest, MessageIsLearned_NobodyIsAsked) {
    SetFilter("");
    commands_.LearnMidiCommand(Play);
    EXPECT_EQ(Hear("90 3C 40"), "");
    EXPECT_EQ(Hear("80 3C 40"), "released Play");
    commands_.LearnMidiCommandNoAssign(Stop);
    EXPECT_EQ(Hear("90 3D 40 80 3D 40"), "");
}

TEST_F(CommandFilterTest, FilterTakenAway_EverythingPasses) {
    commands_.SetMidiCommand(Play, 0x90, 60, 0);
    SetFilter("midiCommandPlay");
    commands_.SetCommandFilter({});
    EXPECT_EQ(Hear("90 3C 40"), "midiCommandPlay");
    EXPECT_EQ(Hear("80 3C 40"), "");
}

TEST_F(CommandFilterTest, OnlyReleasesAreHeard_EverythingPasses) {
    commands_.SetMidiCommand(Play, 0x90, 60, 0);
    commands_.SetCommandFilter({}, [this](const ReleasedCommand&) { Add("released"); });
    EXPECT_EQ(Hear("90 3C 40 80 3C 40"), "midiCommandPlay; released");
}

TEST_F(CommandFilterTest, FilterUsesTheCommandsOnAnotherThread_NothingHangs) {
    commands_.SetMidiCommand(Play, 0x90, 60, 0);
    std::size_t learned = 0;
    commands_.SetCommandFilter([&](const DeliveredCommand&) {
        learned = std::async(std::launch::async, [&] {
                      commands_.SetMidiCommand(Stop, 0x90, 61, 0);
                      return commands_.GetLearnedCommands().size();
                  }).get();
        return true;
    });
    EXPECT_EQ(Hear("90 3C 40"), "midiCommandPlay");
    EXPECT_EQ(learned, 2U);
}

TEST_F(CommandFilterTest, FilterReplacesItselfFromInside_TheNextCommandAsksTheNewOne) {
    commands_.SetMidiCommand(Play, 0x90, 60, 0);
    commands_.SetCommandFilter([this](const DeliveredCommand&) {
        SetFilter("midiCommandPlay");
        return true;
    });
    EXPECT_EQ(Hear("90 3C 40"), "midiCommandPlay");
    EXPECT_EQ(Hear("90 3C 40"), "? midiCommandPlay by learned [Play] with release");
}

TEST_F(CommandFilterTest, FilterThrows_IsLoggedAndTheCommandIsNotDoneAndTheNextOneIs) {
    const test_support::ExceptionLog log;
    commands_.SetMidiCommand(Play, 0x90, 60, 0);
    int calls = 0;
    commands_.SetCommandFilter([&](const DeliveredCommand&) {
        if (calls++ == 0) throw std::runtime_error("The desk is on fire.");
        return true;
    });
    EXPECT_EQ(Hear("90 3C 40"), "");
    EXPECT_NE(log.Read().find("The desk is on fire."), std::string::npos) << log.Read();
    EXPECT_EQ(Hear("90 3C 40"), "midiCommandPlay");
}

TEST_F(CommandFilterTest, ReleaseListenerThrows_IsLoggedAndTheSameMessageGivesItsCommand) {
    const test_support::ExceptionLog log;
    commands_.SetMidiCommand(Continue, 0xB0, 64, 127);
    commands_.SetMidiCommand(Stop, 0xB0, 64, 0);
    commands_.SetCommandFilter({}, [](const ReleasedCommand&) { throw 7; });
    EXPECT_EQ(Hear("B0 40 00"), "midiCommandStop");
    EXPECT_NE(log.Read().find("Unknown exception."), std::string::npos) << log.Read();
}

TEST_F(CommandFilterTest, TakenAwayWhileItRunsOnAnotherThread_WaitsForItsEnd) {
    commands_.SetMidiCommand(Play, 0x90, 60, 0);
    for (int round = 0; round < 50; ++round) {
        std::promise<void> entered;
        std::atomic<bool> mayEnd{false};
        std::atomic<bool> hasEnded{false};
        commands_.SetCommandFilter([&](const DeliveredCommand&) {
            entered.set_value();
            while (!mayEnd)
                std::this_thread::yield();
            hasEnded = true;
            return true;
        });
        std::thread delivery([&] { Hear("90 3C 40"); });
        entered.get_future().wait();
        std::thread host([&] {
            mayEnd = true;
            commands_.SetCommandFilter({});
            EXPECT_TRUE(hasEnded);
        });
        host.join();
        delivery.join();
    }
}

}  // namespace
