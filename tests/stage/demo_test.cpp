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

}  // namespace
