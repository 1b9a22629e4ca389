#include "tavo_midi/midi_commands.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <stdexcept>

#include "tavo_core/callback_dispatcher.h"
#include "tavo_midi/midi_time_code_controller.h"
#include "tests/support/exception_log.h"
#include "tests/support/smf_bytes.h"
#include "tests/support/temporary_directory.h"

namespace {

using namespace midi_commands;

/// Commands on a dispatcher without a port, and what they make the show do.
class Commands : public testing::Test {
protected:
    Commands() {
        using namespace notify::names;
        const std::map<std::string, std::string> words{{midiCommandPlay, "play"},
                                                       {midiCommandPause, "pause"},
                                                       {midiCommandStop, "stop"},
                                                       {midiCommandContinue, "continue"},
                                                       {midiCommandNextSong, "next"},
                                                       {midiCommandPreviousSong, "previous"},
                                                       {midiCommandNextMarker, "right"},
                                                       {midiCommandPreviousMarker, "left"},
                                                       {midi_commands::names::conductBeat, "beat"}};
        for (const auto& [name, word] : words)
            notify::callbackDispatcher.AddCallback(this, name, [this, word](void*) { Add(word); });
        notify::callbackDispatcher.AddCallback(this, midi_commands::names::loadSong, [this](void* number) {
            Add("song " + *static_cast<const std::string*>(number));
        });
        notify::callbackDispatcher.AddCallback(this, midi_commands::names::locate, [this](void* time) {
            Add("locate " + std::to_string(static_cast<const std::chrono::nanoseconds*>(time)->count()));
        });
    }
    ~Commands() override { notify::callbackDispatcher.RemoveCallbacksForTarget(this); }

    void Add(const std::string& word) { done_ += (done_.empty() ? "" : "; ") + word; }
    /// What the show does on these bytes.
    std::string Hear(const char* hex) {
        const std::string bytes = test_support::Hex(hex);
        done_.clear();
        dispatcher_.Deliver({reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size()});
        return done_;
    }
    [[nodiscard]] std::string Path() const { return directory_ / "midiCommandSettings"; }
    void Reopen() { commands_ = std::make_unique<MidiCommands>(dispatcher_, Path()); }
    std::string Refusal(unsigned char command, unsigned char status, unsigned char data1, unsigned char data2) {
        try {
            commands_->SetMidiCommand(command, status, data1, data2);
        } catch (const std::invalid_argument& problem) {
            return problem.what();
        }
        return {};
    }

    test_support::TemporaryDirectory directory_;
    MidiMessageDispatcher dispatcher_;
    std::unique_ptr<MidiCommands> commands_ = std::make_unique<MidiCommands>(dispatcher_, Path());
    std::string done_;
};

TEST_F(Commands, EachCommand_DoesWhatItsNameSays) {
    const char* const words[] = {"play", "pause", "stop", "continue", "next", "previous", "right", "left", "beat"};
    for (const auto& [command, name] : commandNames)
        commands_->SetMidiCommand(command, 0xC0, command, 0);
    for (const auto& [command, name] : commandNames) {
        const unsigned char program[] = {0xC0, command};
        done_.clear();
        dispatcher_.Deliver(program);
        EXPECT_EQ(done_, words[command]) << name;
    }
    EXPECT_TRUE(commands_->GetHasConductBeat());
    EXPECT_EQ(commandNames.size(), 9U);
}

TEST(CommandNames, LeadToTheirCommands_OthersToNone) {
    for (const auto& [command, name] : commandNames)
        EXPECT_EQ(FindCommand(name), command);
    EXPECT_EQ(FindCommand("play"), std::nullopt);
    EXPECT_EQ(FindCommand(""), std::nullopt);
}

TEST_F(Commands, ValuesCountOnlyWhereTheMessageHasOne) {
    commands_->SetMidiCommand(Play, 0x90, 60, AnyValue);
    commands_->SetMidiCommand(Pause, 0xB0, 64, 127);
    commands_->SetMidiCommand(Stop, 0xB0, 65, AnyValue);
    commands_->SetMidiCommand(Continue, 0xC3, 7, 99);
    commands_->SetMidiCommand(NextSong, 0xFA, 0, 0);
    commands_->SetMidiCommand(PreviousSong, 0x91, 60, 100);
    const struct {
        const char* bytes;
        const char* done;
    } rows[] = {
        {"90 3C 01", "play"},     {"90 3C 7F", "play"}, {"90 3C 00", ""}, {"80 3C 40", ""},     {"90 3D 40", ""},
        {"B0 40 7F", "pause"},    {"B0 40 7E", ""},     {"B0 40 00", ""}, {"B0 41 40", "stop"}, {"B0 41 3F", ""},
        {"C3 07", "continue"},    {"C3 08", ""},        {"C2 07", ""},    {"FA", "next"},       {"FB", ""},
        {"91 3C 64", "previous"}, {"91 3C 65", ""},
    };
    for (const auto& row : rows)
        EXPECT_EQ(Hear(row.bytes), row.done) << row.bytes;
}

TEST_F(Commands, Learning_TakesTheNextPressAndDoesNotCarryItOut) {
    commands_->LearnMidiCommand(Play);
    EXPECT_TRUE(commands_->IsMidiCommandLearning(Play));
    EXPECT_FALSE(commands_->IsMidiCommandLearning(Stop));
    EXPECT_EQ(Hear("E0 00 40 90 3C 00 FE"), "");
    EXPECT_TRUE(commands_->IsMidiCommandLearning(Play));
    EXPECT_EQ(Hear("90 3C 40"), "");
    EXPECT_FALSE(commands_->IsMidiCommandLearning(Play));
    EXPECT_EQ(commands_->GetLearnedCommands(), (std::map<unsigned char, LearnedCommand>{{Play, {0x90, 60, AnyValue}}}));
    EXPECT_EQ(Hear("90 3C 20"), "play");
    Reopen();
    EXPECT_EQ(Hear("90 3C 20"), "play");
}

TEST_F(Commands, LearningWithoutAssigning_ShowsTheMessageAndGivesNothingUntilItIsSet) {
    commands_->LearnMidiCommandNoAssign(Stop);
    EXPECT_EQ(Hear("B0 40 7F"), "");
    EXPECT_FALSE(commands_->IsMidiCommandLearning(Stop));
    const LearnedCommand learned = commands_->GetLearnedCommands().at(Stop);
    EXPECT_EQ(learned, (LearnedCommand{0xB0, 64, 127, false}));
    EXPECT_EQ(Hear("B0 40 7F"), "");
    commands_->SetMidiCommand(Stop, learned.status, learned.data1, learned.data2);
    EXPECT_EQ(commands_->GetLearnedCommands().at(Stop), (LearnedCommand{0xB0, 64, 127, true}));
    EXPECT_EQ(Hear("B0 40 7F"), "stop");
}

TEST_F(Commands, CancelledLearning_LeavesEverythingAsItWas) {
    commands_->SetMidiCommand(Play, 0x90, 60, 0);
    commands_->LearnMidiCommandNoAssign(Play);
    EXPECT_EQ(Hear("90 40 40"), "");
    commands_->LearnMidiCommand(Stop);
    commands_->CancelLearning();
    EXPECT_FALSE(commands_->IsMidiCommandLearning(Stop));
    EXPECT_EQ(commands_->GetLearnedCommands().at(Play), (LearnedCommand{0x90, 60, 0}));
    EXPECT_EQ(Hear("90 3C 40"), "play");
}

TEST_F(Commands, TwoCommandsOnOneMessage_AreRefusedInOneSentence) {
    commands_->SetMidiCommand(Play, 0x90, 60, AnyValue);
    EXPECT_EQ(Refusal(Stop, 0x90, 60, 100),
              "Stop cannot be given by note 60 at 100 on channel 1, which gives Play already");
    commands_->LearnMidiCommand(NextMarker);
    EXPECT_EQ(Hear("90 3C 40"), "");
    EXPECT_TRUE(commands_->IsMidiCommandLearning(NextMarker));
    EXPECT_EQ(commands_->GetLearnProblem(),
              "Next Marker cannot be given by note 60 on channel 1, which gives Play already");
    EXPECT_EQ(Hear("90 3E 40"), "");
    EXPECT_EQ(commands_->GetLearnProblem(), "");
    EXPECT_EQ(Hear("90 3E 40"), "right");
    EXPECT_EQ(Refusal(Play, 0x90, 60, 100), "");
    EXPECT_EQ(Refusal(Stop, 0x90, 60, 99), "");
}

TEST_F(Commands, BytesOutOfRange_AreRefused) {
    EXPECT_EQ(Refusal(Play, 0x80, 60, 0), "a message with status 128 cannot give a command");
    EXPECT_EQ(Refusal(Play, 0x90, 128, 0), "128 is not a data byte of MIDI: it is above 127");
    EXPECT_EQ(Refusal(Play, 0x90, 60, 128), "128 is not a value of MIDI: it is above 127");
    EXPECT_THROW(commands_->SetMidiCommand(9, 0x90, 60, 0), std::out_of_range);
    EXPECT_THROW(commands_->LearnMidiCommand(200), std::out_of_range);
    EXPECT_TRUE(commands_->GetLearnedCommands().empty());
}

TEST_F(Commands, UnsetCommand_GivesNothingAnyMore) {
    commands_->SetMidiCommand(ConductBeat, 0x99, 36, 0);
    EXPECT_TRUE(commands_->GetHasConductBeat());
    commands_->UnsetMidiCommand(ConductBeat);
    EXPECT_FALSE(commands_->GetHasConductBeat());
    EXPECT_EQ(Hear("99 24 40"), "");
    Reopen();
    EXPECT_TRUE(commands_->GetLearnedCommands().empty());
}

TEST_F(Commands, ShowControlAndMachineControl_AreOffUntilEnabled) {
    EXPECT_EQ(Hear("F0 7F 05 02 10 01 31 F7"), "");
    EXPECT_EQ(Hear("F0 7F 05 06 02 F7"), "");
    EXPECT_THROW(commands_->SetRemoteControl({true, true, 127}), std::invalid_argument);
    commands_->SetRemoteControl({true, true, 5});
    Reopen();
    const struct {
        const char* what;
        const char* bytes;
        const char* done;
    } rows[] = {
        {"GO", "F0 7F 05 02 10 01 F7", "play"},
        {"GO to all devices and all types", "F0 7F 7F 02 7F 01 F7", "play"},
        {"GO cue 12.5", "F0 7F 05 02 10 01 31 32 2E 35 F7", "song 12.5; play"},
        {"GO cue 7 of list 1", "F0 7F 05 02 1F 01 37 00 31 F7", "song 7; play"},
        {"GO for another device", "F0 7F 06 02 01 01 F7", ""},
        {"GO for the moving lights", "F0 7F 05 02 02 01 F7", ""},
        {"GO with a damaged cue", "F0 7F 05 02 10 01 41 F7", ""},
        {"STOP", "F0 7F 05 02 10 02 F7", "pause"},
        {"RESUME", "F0 7F 05 02 10 03 F7", "play"},
        {"TIMED_GO cue 3", "F0 7F 05 02 10 04 00 00 02 00 00 33 F7", "song 3; play"},
        {"TIMED_GO cut off", "F0 7F 05 02 10 04 00 00 F7", ""},
        {"LOAD cue 3", "F0 7F 05 02 10 05 33 F7", "song 3"},
        {"LOAD of nothing", "F0 7F 05 02 10 05 F7", ""},
        {"ALL_OFF", "F0 7F 05 02 10 08 F7", "stop"},
        {"RESET", "F0 7F 05 02 10 0A F7", "stop"},
        {"FIRE", "F0 7F 05 02 10 07 01 F7", ""},
        {"machine play", "F0 7F 05 06 02 F7", "play"},
        {"machine stop", "F0 7F 7F 06 01 F7", "stop"},
        {"machine pause", "F0 7F 05 06 09 F7", "pause"},
        {"machine locate to 10 s", "F0 7F 05 06 44 06 01 60 00 0A 00 00 F7", "locate 10000000000"},
        {"machine locate, cut off", "F0 7F 05 06 44 06 01 60 F7", ""},
        {"machine locate to no address", "F0 7F 05 06 44 06 01 60 00 3C 00 00 F7", ""},
        {"machine locate, then deferred play", "F0 7F 05 06 44 06 01 60 00 0A 00 00 03 F7", "locate 10000000000; play"},
        {"machine stop, locate, play, pause", "F0 7F 05 06 01 44 06 01 60 00 0A 00 00 02 09 F7",
         "stop; locate 10000000000; play; pause"},
        {"machine fast forward, a masked write, play", "F0 7F 05 06 04 41 03 4F 01 01 02 F7", "play"},
        {"machine play of a further set, then stop", "F0 7F 05 06 00 02 01 F7", "stop"},
        {"machine write of a further set, then stop", "F0 7F 05 06 00 41 02 01 02 01 F7", "stop"},
        {"machine locate to no address, then play", "F0 7F 05 06 44 06 01 60 00 3C 00 00 02 F7", "play"},
        {"machine play, then a locate that is cut off", "F0 7F 05 06 02 44 06 01 60 F7", "play"},
        {"machine play, then a write without its count", "F0 7F 05 06 02 41 F7", "play"},
        {"machine play, then the beginning of a further set", "F0 7F 05 06 02 00 F7", "play"},
        {"no command of machine control", "F0 7F 05 06 F7", ""},
    };
    for (const auto& row : rows)
        EXPECT_EQ(Hear(row.bytes), row.done) << row.what;
}

TEST_F(Commands, MachineControlThatIsNotKnown_IsALineOfTheLog) {
    commands_->SetRemoteControl({true, true, 5});
    const test_support::ExceptionLog log;
    EXPECT_EQ("play", Hear("F0 7F 05 06 04 41 03 4F 01 01 44 06 01 60 00 3C 00 00 02 F7"));
    const std::string lines = log.Read();
    EXPECT_THAT(lines, testing::HasSubstr("the machine control command 04 is not known and is ignored"));
    EXPECT_THAT(lines, testing::HasSubstr("the machine control command 41 03 4F 01 01 is not known and is ignored"));
    EXPECT_THAT(lines, testing::HasSubstr("a locate of machine control names no time and is ignored"));
}

TEST_F(Commands, BadSettings_AreOneSentence) {
    const struct {
        const char* text;
        const char* sentence;
    } rows[] = {
        {"[]", "midiCommandSettings: the outermost value must be an object, not a list"},
        {"{", "midiCommandSettings, line 1: the text is not JSON"},
        {R"({"commands": [{"command": "Dance", "status": 144}]})",
         "midiCommandSettings: commands[0].command must be the name of a command, not \"Dance\""},
        {R"({"commands": [{"command": "Play", "status": 128}]})",
         "midiCommandSettings: commands[0] cannot be used: a message with status 128 cannot give a command"},
        {R"({"deviceNumber": 127})", "midiCommandSettings: deviceNumber must be a whole number from 0 to 126, not 127"},
        {R"({"source": "a", "source": "b"})", "midiCommandSettings: source is there twice"},
        {R"({"commands": [{"command": "Play", "status": 144, "data1": 1},
                          {"command": "Play", "status": 144, "data1": 2}]})",
         "midiCommandSettings: commands[1] is a second message for Play"},
    };
    for (const auto& row : rows) {
        std::ofstream(Path()) << row.text;
        try {
            Reopen();
            ADD_FAILURE() << row.text;
        } catch (const std::runtime_error& problem) {
            EXPECT_STREQ(problem.what(), row.sentence);
        }
    }
}

TEST_F(Commands, UnknownKeysInSettings_AreWarnedOfAndIgnored) {
    std::ofstream(Path())
        << R"({"commands": [{"command": "Play", "status": 144, "data1": 1, "note": "go"}], "Source": ""})";
    Reopen();
    EXPECT_EQ(commands_->GetSettingsWarnings(),
              (std::vector<std::string>{"midiCommandSettings: commands[0].note is not a known key and is ignored",
                                        "midiCommandSettings: Source is not a known key and is ignored"}));
    EXPECT_EQ(Hear("90 01 40"), "play");
}

TEST(WithoutAMidiSystem, AShowOpensAndNothingIsListed) {
    tavo_midi::SetMidiSystemChoice(tavo_midi::MidiSystemChoice::None);
    const test_support::TemporaryDirectory directory;
    MidiMessageDispatcher dispatcher;
    MidiCommands commands(dispatcher, directory / "midiCommandSettings");
    EXPECT_TRUE(GetNonTavoMidiSources().empty());
    EXPECT_TRUE(GetNonTavoMidiDestinations().empty());
    EXPECT_FALSE(dispatcher.GetIsConnected());
    EXPECT_EQ(dispatcher.GetPortIndex(), 0);
    EXPECT_THROW(commands.ConnectSourceByIndex(0), std::out_of_range);
    dispatcher.ConnectSourceByName("pedal:out");
    EXPECT_FALSE(dispatcher.GetIsConnected());
    dispatcher.Disconnect();
}

TEST(TimeCodeSettings, ThatAreBad_AreRefusedInOneSentence) {
    tavo_midi::SetMidiSystemChoice(tavo_midi::MidiSystemChoice::None);
    const test_support::TemporaryDirectory directory;
    const std::string path = directory / "midiTimeCodeSettings";
    const struct {
        const char* text;
        const char* sentence;
    } rows[] = {
        {"{\n\"active\" true}", "midiTimeCodeSettings, line 2: the text is not JSON"},
        {R"({"active": 1})", "midiTimeCodeSettings: active must be true or false, not 1"},
        {R"({"frameRate": "23"})",
         "midiTimeCodeSettings: frameRate must be one of \"24\", \"25\", \"29.97 drop\", \"30\", not \"23\""},
        {R"({"onJump": "stop"})", "midiTimeCodeSettings: onJump must be one of \"locate\", \"runOn\", not \"stop\""},
        {R"({"frameRate": "25", "songOffsets": [{"song": "3", "offset": "00:00:00:25"}]})",
         "midiTimeCodeSettings: songOffsets[0].offset must be a time code of 25 frames a second such as 01:00:00:00, "
         "not \"00:00:00:25\""},
    };
    for (const auto& row : rows) {
        std::ofstream(path) << row.text;
        try {
            const MidiTimeCodeController controller(path);
            ADD_FAILURE() << row.text;
        } catch (const std::runtime_error& problem) {
            EXPECT_STREQ(problem.what(), row.sentence);
        }
    }
}

TEST(TimeCodeSettings, WithAnUnknownKey_AreReadWithAWarning) {
    tavo_midi::SetMidiSystemChoice(tavo_midi::MidiSystemChoice::None);
    const test_support::TemporaryDirectory directory;
    const std::string path = directory / "midiTimeCodeSettings";
    std::ofstream(path) << R"({"framerate": "25", "onJump": "runOn"})";
    const MidiTimeCodeController controller(path);
    EXPECT_EQ(controller.GetSettingsWarnings(),
              std::vector<std::string>{"midiTimeCodeSettings: framerate is not a known key and is ignored"});
    EXPECT_EQ(controller.GetJumpRule(), MidiTimeCodeController::JumpRule::RunOn);
}

TEST(TimeCodeSettings, AreKeptFromRunToRun) {
    tavo_midi::SetMidiSystemChoice(tavo_midi::MidiSystemChoice::None);
    const test_support::TemporaryDirectory directory;
    const std::string path = directory / "midiTimeCodeSettings";
    {
        MidiTimeCodeController controller(path);
        EXPECT_FALSE(controller.GetIsActive());
        EXPECT_EQ(controller.GetFrameRate(), FrameRate::Fps30);
        EXPECT_FALSE(controller.GetHasOutputPortIndex());
        EXPECT_EQ(controller.GetOutputPortIndex(), 0U);
        EXPECT_THROW(controller.SetOutputPortIndex(0), std::out_of_range);
        EXPECT_THROW(controller.SetFrameRate(static_cast<FrameRate>(4)), std::out_of_range);
        controller.SetSongOffset("3", tavo_midi::TimeCode{0, 1, 0, 0});
        controller.SetFrameRate(FrameRate::Fps2997Drop);
        EXPECT_THROW(controller.SetSongOffset("4", tavo_midi::TimeCode{0, 1, 0, 0}), std::out_of_range);
        controller.SetJumpRule(MidiTimeCodeController::JumpRule::RunOn);
        controller.SetHoursAreSongNumbers(true);
        controller.SetOutputPortName("desk:in");
        controller.ActivateMidiTimeCode();
        controller.Start(std::chrono::seconds(1));
        controller.Shutdown();
    }
    const MidiTimeCodeController controller(path);
    EXPECT_TRUE(controller.GetIsActive());
    EXPECT_EQ(controller.GetFrameRate(), FrameRate::Fps2997Drop);
    // The address is left out at this rate.
    EXPECT_EQ(controller.GetSongOffset("3"), (tavo_midi::TimeCode{0, 1, 0, 2}));
    EXPECT_EQ(controller.GetSongOffset("4"), std::nullopt);
    EXPECT_EQ(controller.GetJumpRule(), MidiTimeCodeController::JumpRule::RunOn);
    EXPECT_TRUE(controller.GetHoursAreSongNumbers());
    EXPECT_EQ(controller.GetOutputPortName(), "desk:in");
}

}  // namespace
