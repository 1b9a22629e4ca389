#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <sstream>

#include "stage/show/edit_list.h"
#include "stage/show/show_directory.h"
#include "tavo_core/edit_text.h"
#include "tests/support/run_program.h"

namespace {

using test_support::ProgramResult;
using test_support::RunStage;

std::filesystem::path SourcePath() {
    return SOURCE_DIR;
}

class Demo : public testing::Test {
protected:
    Demo() {
        const ProgramResult build =
            test_support::RunProgram({SourcePath() / "examples/demo/build", STAGE_BINARY, directory_ / "show"});
        EXPECT_EQ(0, build.exitCode) << build.out << build.err;
    }
    test_support::TemporaryDirectory directory_;
};

TEST_F(Demo, HasEveryKindOfEdit_AndNothingIsWrong) {
    const stage::ShowDirectory show = stage::ScanShowDirectory(directory_ / "show");
    const CL::ChangeLog log = CL::ChangeLog::Load(show.NewestLogPath());
    std::set<std::string> kinds;
    std::set<unsigned char> attaccas;
    for (const auto& [number, songLog] : log.GetSongLogs()) {
        attaccas.insert(songLog.GetAttacca());
        for (const stage::ListedEdit& listed : stage::ListEdits(songLog))
            kinds.insert(CL::DescribeKind(*listed.edit));
    }
    EXPECT_EQ((std::set<std::string>{"vamp", "repeat", "cut", "fermata", "caesura", "tempo scale", "transposition",
                                     "click", "sfx", "ambient sfx", "OSC", "marker"}),
              kinds);
    EXPECT_EQ((std::set<unsigned char>{CL::AttaccaNormal, CL::AttaccaNext, CL::AttaccaSkip}), attaccas);
    EXPECT_EQ(6U, log.GetSongLogs().size());
    EXPECT_EQ("nothing is wrong\n", RunStage({"check", directory_ / "show"}).out);
}

/// The events of a trace that tell how the flow went, "event details" each.
std::vector<std::string> ReadFlow(const std::string& trace) {
    static const std::set<std::string> wanted{"song",    "attacca", "jump", "cut", "hold",
                                              "release", "caesura", "cue",  "end"};
    std::vector<std::string> flow;
    std::istringstream lines(trace);
    for (std::string line; std::getline(lines, line);) {
        const std::size_t event = line.find('\t', line.find('\t') + 1) + 1;
        const std::size_t details = line.find('\t', event);
        if (wanted.contains(line.substr(event, details - event)))
            flow.push_back(line.substr(event).replace(details - event, 1, " "));
    }
    return flow;
}

TEST_F(Demo, ItsOperator_PlaysItToTheEnd) {
    const ProgramResult render = RunStage({"render", directory_ / "show", "--song", "1..6", "--script",
                                           SourcePath() / "examples/demo/operator.txt", "--trace", "-"});
    EXPECT_EQ(0, render.exitCode) << render.err;
    EXPECT_EQ((std::vector<std::string>{
                  "song 1 Harbour Lights",
                  "cue osc /house/dim 0.2 to lights",
                  "attacca 1 -> 2",
                  "song 2 The Ferry Comes In",
                  "jump 3 -> 1, vamp pass 2",
                  "cue effect sounds/bell.wav",
                  "song 3 Lamplighters' Waltz",
                  "jump 9 -> 1, repeat pass 2",
                  "hold 21",
                  "release 21",
                  "song 4 Market Day",
                  "cut 9 -> 13",
                  "song 6 Goodnight, Harbour",
                  "cue ambience sounds/rain.wav",
                  "caesura 9",
                  "cue osc /curtain 1 slow to lights",
                  "end -",
              }),
              ReadFlow(render.out));
}

TEST_F(Demo, TraceAsAStory_TellsMinuteBarAndWhatHappenedInWords) {
    const ProgramResult render =
        RunStage({"render", directory_ / "show", "--song", "1..6", "--script",
                  SourcePath() / "examples/demo/operator.txt", "--trace", "-", "--trace-style", "story"});
    EXPECT_EQ(0, render.exitCode) << render.err;
    // Each thing once, in its order, and nothing in between that a person would not tell.
    EXPECT_THAT(render.out, testing::StartsWith("  0:00.0            song 1 Harbour Lights\n"
                                                "  0:00.0  bar 1     4/4, D major, tempo 100\n"
                                                "  0:00.0  bar 1     playback starts\n"
                                                "  0:00.0  bar 1     cue: osc /house/dim 0.2 to lights\n"
                                                "  0:19.2  bar 9     tempo 108, marker Second theme\n"));
    EXPECT_THAT(render.out, testing::HasSubstr("  0:42.3  bar 2     round again: 3 -> 1, vamp pass 2\n"));
    EXPECT_THAT(render.out, testing::HasSubstr("  1:52.1  bar 20    the fermata before 21 holds\n"));
    EXPECT_THAT(render.out, testing::HasSubstr("  2:08.0  bar 8     cut: 9 -> 13\n"));
    EXPECT_THAT(render.out, testing::HasSubstr("  2:43.3  bar 8     stops at the caesura before 9\n"));
    EXPECT_THAT(render.out, testing::EndsWith("the end of the render\n"));
    EXPECT_THAT(render.out, testing::Not(testing::HasSubstr("\t")));
}

TEST_F(Demo, PartOfASong_BeginsAndEndsAtItsPlaces) {
    const auto render = [&](std::vector<std::string> places) {
        std::vector<std::string> words{"render", directory_ / "show", "--song", "3", "--trace", "-"};
        words.insert(words.end(), places.begin(), places.end());
        return RunStage(words);
    };
    // The display shows bar 13, where playback stopped; nothing of it has sounded.
    const std::string part = render({"--from", "10", "--to", "13"}).out;
    EXPECT_THAT(part, testing::HasSubstr("\tbar\t10\n"));
    EXPECT_THAT(part, testing::HasSubstr("\tbar\t12\n"));
    EXPECT_THAT(part, testing::Not(testing::HasSubstr("\tbar\t9\n")));
    EXPECT_THAT(part, testing::HasSubstr("\t17280\tend\t-\n"));
    // The second pass of a repeat is played out before a place behind it comes.
    EXPECT_THAT(render({"--from", "7", "--to", "10"}).out, testing::HasSubstr("jump\t9 -> 1, repeat pass 2"));
    EXPECT_EQ("stage: --to \"5\" does not come after --from \"5\"\n", render({"--from", "5", "--to", "5"}).err);
    EXPECT_THAT(render({"--to", "99"}).err, testing::HasSubstr("stage: --to: in song 3, there is no bar 99"));
}

}  // namespace
