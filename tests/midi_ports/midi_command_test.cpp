// The operator's desk: `stage midi` as a process beside a real server.

#include <gtest/gtest.h>

#include "tests/midi_ports/pedal.h"
#include "tests/support/run_program.h"

namespace {

using tavo_midi::MidiSystemChoice;
using test_support::Child;
using test_support::PortCase;
using test_support::ProgramResult;
using test_support::RunStage;

class MidiCommand : public testing::TestWithParam<test_support::PortCase> {
protected:
    void SetUp() override {
        const std::string obstacle = test_support::PrepareJackServer(server_, GetParam().periodFrames);
        if (!obstacle.empty()) GTEST_SKIP() << obstacle;
        pedal_ = test_support::StartPeer("pedal");
        ASSERT_NE(pedal_, nullptr);
    }

    /// `stage midi` and the words, beside the test; its lines are those of both outputs.
    static std::unique_ptr<Child> StartStage(std::vector<std::string> words) {
        words.insert(words.begin(), {"/bin/sh", "-c", R"(exec "$0" "$@" 2>&1)", STAGE_BINARY, "midi"});
        auto program = std::make_unique<Child>(words);
        program->CollectLines();
        return program;
    }

    test_support::TemporaryDirectory directory_;
    std::unique_ptr<Child> server_;
    std::unique_ptr<Child> pedal_;
};

TEST_P(MidiCommand, List_ShowsThePortsOfOthers) {
    const ProgramResult result = RunStage({"midi", "list"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_NE(result.out.find("JACK"), std::string::npos) << result.out;
    EXPECT_NE(result.out.find("pedal:out"), std::string::npos) << result.out;
    EXPECT_NE(result.out.find("pedal:in"), std::string::npos) << result.out;
    EXPECT_EQ(result.out.find("tavo"), std::string::npos) << result.out;
}

TEST_P(MidiCommand, Monitor_PrintsWhatIsPressed) {
    const auto monitor = StartStage({"monitor", "pedal:out", "--seconds", "20"});
    EXPECT_EQ(monitor->NextLine(), "The MIDI input \"pedal:out\" is connected.");
    pedal_->Write("send 90 3C 40");
    const auto line = monitor->NextLine();
    ASSERT_TRUE(line);
    EXPECT_TRUE(line->ends_with("  90 3C 40")) << *line;
    pedal_->Write("send F0 7F 7F 06 02 F7");
    const auto play = monitor->NextLine();
    ASSERT_TRUE(play);
    EXPECT_TRUE(play->ends_with("  F0 7F 7F 06 02 F7  machine control to all devices: play")) << *play;
}

TEST_P(MidiCommand, Learn_KeepsWhatIsPressed) {
    const auto learn = StartStage({"learn", "Next Song", "pedal:out", "--settings", directory_.Path()});
    EXPECT_EQ(learn->NextLine(), "Press what is to give Next Song.");
    // The port may not be connected yet: press until it was heard.
    std::optional<std::string> line;
    for (int press = 0; press < 100 && !line; ++press) {
        pedal_->Write("send 90 3C 40");
        line = learn->NextLine(std::chrono::milliseconds(100));
    }
    EXPECT_EQ(line, "Next Song is given by note 60 on channel 1.");
    EXPECT_NE(test_support::ReadAll(directory_ / "midiCommandSettings").find("Next Song"), std::string::npos);
}

TEST_P(MidiCommand, LearnOfAPedalThatIsTaken_SaysSoAtOnceAndHearsTheNext) {
    const std::string folder = directory_ / "made/for/it";
    const auto learn = [&](const char* command, std::initializer_list<std::string> presses) {
        const auto program = StartStage({"learn", command, "pedal:out", "--settings", folder});
        std::vector<std::string> lines{program->NextLine().value_or("")};
        for (const std::string& press : presses) {
            std::optional<std::string> line;
            for (int tries = 0; tries < 100 && !line; ++tries) {
                pedal_->Write("send " + press);
                line = program->NextLine(std::chrono::milliseconds(100));
            }
            lines.push_back(line.value_or(""));
        }
        return lines;
    };
    learn("Next Song", {"90 3C 40"});
    EXPECT_EQ((std::vector<std::string>{
                  "Press what is to give Continue.",
                  "stage: Continue cannot be given by note 60 on channel 1, which gives Next Song already",
                  "Continue is given by note 61 on channel 1."}),
              learn("Continue", {"90 3C 40", "90 3D 40"}));
}

TEST_P(MidiCommand, Send_ReachesTheReceiverEveryTime) {
    const std::string system = GetParam().IsJack() ? "jack" : "rtmidi";
    const int rounds = GetParam().periodFrames == 4096 ? 1 : 3;
    for (int round = 0; round < rounds; ++round) {
        const ProgramResult result = RunStage({"midi", "send", "--system", system, "pedal:in", "B0", "07", "64"});
        EXPECT_EQ(result.exitCode, 0) << result.err;
        const auto line = pedal_->NextLine();
        ASSERT_TRUE(line) << "round " << round;
        EXPECT_TRUE(line->ends_with(" B0 07 64")) << *line;
    }
}

TEST_P(MidiCommand, BadWords_AreRefusedInASentence) {
    EXPECT_NE(RunStage({"midi", "send", "pedal:in", "1G"}).err.find("\"1G\" is not a byte"), std::string::npos);
    EXPECT_NE(RunStage({"midi", "monitor", "drum:out"}).err.find("there is no MIDI port \"drum:out\""),
              std::string::npos);
    EXPECT_NE(RunStage({"midi", "learn", "Dance", "pedal:out"}).err.find("\"Dance\" is not a MIDI command"),
              std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(Periods, MidiCommand,
                         testing::Values(PortCase{MidiSystemChoice::Jack, 64}, PortCase{MidiSystemChoice::Jack, 128},
                                         PortCase{MidiSystemChoice::Jack, 1024}, PortCase{MidiSystemChoice::Jack, 4096},
                                         PortCase{MidiSystemChoice::RtMidi, 1024}),
                         test_support::NamePortCase);

}  // namespace
