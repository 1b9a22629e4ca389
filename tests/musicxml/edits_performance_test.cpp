// Songs with repeats as they are written, performed with their edits through the flow control that a theatre uses.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>

#include "stage/import/show_import.h"
#include "tavo_core/bar_positions.h"
#include "tests/support/run_program.h"
#include "tests/support/show_table.h"
#include "tests/support/trace_line.h"

namespace {

using test_support::RunStage;
using test_support::TemporaryDirectory;

/// The labels of the bars in the order in which `stage render` plays them.
std::vector<std::string> RenderBars(const std::string& show, const std::string& song) {
    const test_support::ProgramResult render = RunStage({"render", show, "--song", song, "--trace", "-"});
    EXPECT_EQ(0, render.exitCode) << render.err;
    std::vector<std::string> bars;
    std::istringstream lines(render.out);
    for (std::string line; std::getline(lines, line);) {
        const auto [frame, tick, event, details] = test_support::ReadTraceLine(line);
        if (event == "song" && !bars.empty()) break;
        if (event == "bar") bars.push_back(details);
        // A display is not told the same bar twice in a row: the repeat of a single bar shows by its jump.
        if (event != "jump" || bars.empty()) continue;
        const std::string target = details.substr(details.find("> ") + 2);
        if (target.substr(0, target.find(',')) == bars.back()) bars.push_back(bars.back());
    }
    return bars;
}

/// "12" of "12 (2)".
std::string WithoutTime(const std::string& label) {
    return label.substr(0, label.find(' '));
}

/// The same of the import that plays repeats out.
std::vector<std::string> PlayOut(const std::string& score, const std::string& show) {
    stage::ImportRequest request;
    request.paths = {score};
    request.showPath = show;
    const TL::BarPositions positions(ImportShow(request).songs.front().GetTimeline());
    std::vector<std::string> bars;
    for (const auto& bar : positions.GetBars())
        bars.push_back(WithoutTime(bar.label));
    return bars;
}

void ExpectTheSameOrder(const std::string& score) {
    const TemporaryDirectory directory;
    stage::ImportRequest request;
    request.paths = {score};
    request.showPath = directory / "written";
    request.asWritten = true;
    const std::string number = ImportShow(request).songs.front().GetSongNumber();
    std::vector<std::string> rendered = RenderBars(directory / "written", number);
    for (std::string& bar : rendered)
        bar = WithoutTime(bar);
    EXPECT_THAT(rendered, testing::ElementsAreArray(PlayOut(score, directory / "played")));
}

class WrittenSongWithRepeats : public testing::TestWithParam<std::string> {};

TEST_P(WrittenSongWithRepeats, IsPerformedInTheOrderOfTheImportThatPlaysItOut) {
    SKIP_WITHOUT_CORPUS();
    for (const auto& entry :
         std::filesystem::directory_iterator(test_support::CorpusPath() / "show_schubert_muellerin"))
        if (entry.path().filename().string().starts_with(GetParam()) && entry.path().extension() == ".mxl")
            ExpectTheSameOrder(entry.path());
}

/// Those whose repeats have no endings; 07, 13 and 20 have some, which no edit can say.
INSTANTIATE_TEST_SUITE_P(Songs, WrittenSongWithRepeats, testing::Values("01", "08", "09", "10", "14", "16"),
                         [](const auto& song) { return "Song" + song.param; });

/// Bars of one quarter note; |: and :| repeat, :|3 three times, a ! is a fermata.
std::string MakeScoreText(const std::string& flow) {
    std::string measures;
    std::istringstream words(flow);
    std::string left;
    for (std::string word; words >> word;) {
        if (word == "|:") {
            left = "<barline location='left'><repeat direction='forward'/></barline>";
            continue;
        }
        const std::size_t sign = word.find(":|");
        const std::string times = sign == std::string::npos ? "" : word.substr(sign + 2);
        const bool holds = word.find('!') != std::string::npos;
        measures += "<measure number='" + word.substr(0, 1) + "'>" + left;
        if (word.starts_with("1"))
            measures +=
                "<attributes><divisions>1</divisions><time><beats>1</beats><beat-type>4</beat-type></time>"
                "</attributes>";
        measures += "<note><pitch><step>C</step><octave>4</octave></pitch><duration>1</duration>";
        measures += holds ? "<notations><fermata/></notations></note>" : "</note>";
        if (sign != std::string::npos)
            measures += "<barline location='right'><repeat direction='backward'" +
                        (times.empty() ? "" : " times='" + times + "'") + "/></barline>";
        measures += "</measure>";
        left.clear();
    }
    return "<score-partwise version='4.0'><part-list><score-part id='P1'><part-name>Piano</part-name></score-part>"
           "</part-list><part id='P1'>" +
           measures + "</part></score-partwise>";
}

TEST(WrittenScoreWithRepeats, IsPerformedInTheOrderOfTheImportThatPlaysItOut) {
    for (const char* flow : {"1 2:|", "1 |: 2 3:|3 4", "1 |: 2:| 3 4", "1 |: 2 |: 3 4:| 5:| 6", "|: 1 2:| |: 3 4:|4",
                             "1 |: 2 |: 3:|3 4:|3 5", "1 2:| 3 4:| 5", "1 |: 2 3:| 4:| 5", "|: 1:| 2:| 3:|3 4",
                             "1 |: 2:|3 3:| |: 4:| 5", "|: 1 |: 2:| 3:| 4:| 5", "1 |: 2 3!:| 4", "|: 1 2! 3 4!:|3"}) {
        SCOPED_TRACE(flow);
        const TemporaryDirectory directory;
        test_support::WriteAll(directory / "01_score.musicxml", MakeScoreText(flow));
        ExpectTheSameOrder(directory / "01_score.musicxml");
    }
}

}  // namespace
