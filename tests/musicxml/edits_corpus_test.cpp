// Songs with repeats, as they are written, performed with their edits through the flow control that a theatre uses.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>

#include "stage/session/show_import.h"
#include "tavo_core/bar_positions.h"
#include "tests/support/run_program.h"
#include "tests/support/show_table.h"

namespace {

using test_support::RunStage;
using test_support::TemporaryDirectory;

/// The labels of the bars in the order in which `stage render` plays them: a jump's target is played again at once.
std::vector<std::string> RenderBars(const std::string& show, const std::string& song) {
    const test_support::ProgramResult render = RunStage({"render", show, "--song", song, "--trace", "-"});
    EXPECT_EQ(0, render.exitCode) << render.err;
    std::vector<std::string> bars;
    std::istringstream lines(render.out);
    bool hasJumped = false;
    for (std::string line; std::getline(lines, line);) {
        std::istringstream fields(line);
        std::string frame, tick, event, details;
        std::getline(fields, frame, '\t'), std::getline(fields, tick, '\t');
        std::getline(fields, event, '\t'), std::getline(fields, details);
        if (event == "jump") hasJumped = true;
        // A display is not told a bar twice in a row: the repeat of a single bar shows by its jump.
        if (event == "bar") bars.push_back(details);
        if (event == "song" && !bars.empty()) break;
    }
    EXPECT_TRUE(hasJumped);
    return bars;
}

class WrittenSongWithRepeats : public testing::TestWithParam<std::string> {};

TEST_P(WrittenSongWithRepeats, IsPerformedInTheOrderOfTheImportThatPlaysItOut) {
    SKIP_WITHOUT_CORPUS();
    const TemporaryDirectory directory;
    std::filesystem::path score;
    for (const auto& entry :
         std::filesystem::directory_iterator(test_support::CorpusPath() / "show_schubert_muellerin"))
        if (entry.path().filename().string().starts_with(GetParam()) && entry.path().extension() == ".mxl")
            score = entry.path();
    const std::string number = stage::ParseScoreFileName(score).number;
    stage::ImportRequest request;
    request.paths = {score};
    request.showPath = directory / "played";
    const tavo_midi::SongData played = ImportShow(request).songs.front();
    request.showPath = directory / "written";
    request.asWritten = true;
    (void)ImportShow(request);

    std::vector<std::string> expected;
    const TL::BarPositions positions(played.GetTimeline());
    for (const auto& bar : positions.GetBars())
        expected.push_back(bar.label.substr(0, bar.label.find(' ')));
    EXPECT_THAT(RenderBars(directory / "written", number), testing::ElementsAreArray(expected));
}

/// Those whose repeats have no endings; 07, 13 and 20 have some, which no edit can say.
INSTANTIATE_TEST_SUITE_P(Songs, WrittenSongWithRepeats, testing::Values("01", "08", "09", "10", "14", "16"),
                         [](const auto& song) { return "Song" + song.param; });

}  // namespace
