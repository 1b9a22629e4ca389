// The operator's desk: `stage midi` as a process beside a real server.

#include <gtest/gtest.h>

#include "tests/midi_ports/pedal.h"
#include "tests/support/run_program.h"

namespace {

using test_support::Child;
using test_support::ProgramResult;
using test_support::RunStage;

class MidiCommand : public testing::Test {
protected:
    void SetUp() override {
        const std::string obstacle = test_support::PrepareJackServer(server_);
        if (!obstacle.empty()) GTEST_SKIP() << obstacle;
        pedal_ = test_support::StartPeer("pedal");
        ASSERT_NE(pedal_, nullptr);
    }

    /// `stage midi` and the words, beside the test.
    static std::unique_ptr<Child> StartStage(std::vector<std::string> words) {
        words.insert(words.begin(), {STAGE_BINARY, "midi"});
        auto program = std::make_unique<Child>(words);
        program->CollectLines();
        return program;
    }

    test_support::TemporaryDirectory directory_;
    std::unique_ptr<Child> server_;
    std::unique_ptr<Child> pedal_;
};

TEST_F(MidiCommand, List_ShowsThePortsOfOthers) {
    const ProgramResult result = RunStage({"midi", "list"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_NE(result.out.find("JACK"), std::string::npos) << result.out;
    EXPECT_NE(result.out.find("pedal:out"), std::string::npos) << result.out;
    EXPECT_NE(result.out.find("pedal:in"), std::string::npos) << result.out;
    EXPECT_EQ(result.out.find("tavo"), std::string::npos) << result.out;
}

TEST_F(MidiCommand, Monitor_PrintsWhatIsPressed) {
    const auto monitor = StartStage({"monitor", "pedal:out", "--seconds", "20"});
    EXPECT_EQ(monitor->NextLine(), "The MIDI input \"pedal:out\" is connected.");
    pedal_->Write("send 90 3C 40");
    const auto line = monitor->NextLine();
    ASSERT_TRUE(line);
    EXPECT_TRUE(line->ends_with("  90 3C 40")) << *line;
}

TEST_F(MidiCommand, Learn_KeepsWhatIsPressed) {
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

TEST_F(MidiCommand, Send_ReachesTheReceiver) {
    const ProgramResult result = RunStage({"midi", "send", "pedal:in", "B0", "07", "64"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    const auto line = pedal_->NextLine();
    ASSERT_TRUE(line);
    EXPECT_TRUE(line->ends_with(" B0 07 64")) << *line;
}

TEST_F(MidiCommand, BadWords_AreRefusedInASentence) {
    EXPECT_NE(RunStage({"midi", "send", "pedal:in", "1G"}).err.find("\"1G\" is not a byte"), std::string::npos);
    EXPECT_NE(RunStage({"midi", "monitor", "drum:out"}).err.find("there is no MIDI port \"drum:out\""),
              std::string::npos);
    EXPECT_NE(RunStage({"midi", "learn", "Dance", "pedal:out"}).err.find("\"Dance\" is not a MIDI command"),
              std::string::npos);
}

}  // namespace
