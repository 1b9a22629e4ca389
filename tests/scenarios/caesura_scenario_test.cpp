// Caesuras among vamps and cuts, and operators who leave nothing going round forever, played on small songs: a bar
// lasts two seconds.

#include <gtest/gtest.h>

#include "tests/support/show_builder.h"

using test_support::Performance;
using test_support::TestShow;

namespace {

using PlayedBars = std::vector<int>;

const std::set<std::string> StopsAndStarts{"caesura", "stop", "start", "jump", "cut", "song-end"};

TEST(VampAroundACaesura, LeftBeforeTheStop_IsLeftAfterItToo) {
    TestShow show;
    show.Song("1", 6).Edits("vamp 1 4\ncaesura 3");
    const Performance played = show.Perform("at 1:2 exit\nat 3 tempo 100%\n+1s continue");
    EXPECT_EQ((PlayedBars{1, 2, 3, 4, 5, 6}), played.Bars());
    EXPECT_TRUE(played.result.remarks.empty());
}

TEST(VampAroundACaesura, LeftBeforeTheStop_LampStaysOffAfterIt) {
    TestShow show;
    show.Song("1", 6).Edits("vamp 1 4\ncaesura 3");
    const Performance played = show.Perform("at 1:2 exit\nat 3 tempo 100%\n+1s continue");
    const std::string lamp = played.Only({"vamp-on", "vamp-off"});
    EXPECT_TRUE(lamp.ends_with("vamp-off\n")) << lamp;
}

TEST(VampAroundACaesura, NotLeftBeforeTheStop_GoesRoundAfterIt) {
    TestShow show;
    show.Song("1", 6).Edits("vamp 1 4\ncaesura 3");
    const Performance played = show.Perform(
        "at 3 tempo 100%\n+1s continue\nat 2 exit\n"  // that exit drops the caesura, which is counted down
        "+1s exit");
    EXPECT_EQ((PlayedBars{1, 2, 3, 4, 1, 2, 3, 4, 5, 6}), played.Bars());
}

TEST(VampAroundACaesura, InnerOneLeft_OuterOneGoesOn) {
    TestShow show;
    show.Song("1", 6).Edits("vamp 1 5\nvamp 2 4\ncaesura 4");
    const Performance played = show.Perform(
        "at 2 exit\nat 4 tempo 100%\n+1s continue\nat 1 tempo 100%\nat 2 exit\nat 2:2 exit\n"
        "at 4 tempo 100%\n+1s continue");
    EXPECT_EQ((PlayedBars{1, 2, 3, 4, 5, 1, 2, 3, 4, 5, 6}), played.Bars());
}

TEST(RepeatAroundACaesura, KeepsItsCountOverTheStop) {
    TestShow show;
    show.Song("1", 4).Edits("repeat 1 3 2\ncaesura 2");
    EXPECT_EQ((PlayedBars{1, 2, 3, 1, 2, 3, 4}), show.Perform().Bars());
}

TEST(CaesuraAtACutsStart, StopsThenGoesOnBehindTheCut_AndTheNextOneStops) {
    TestShow show;
    show.Song("1", 8).Edits("caesura 3\ncut 3 3\ncaesura 6");
    const Performance played = show.Perform("at 3 tempo 100%\n+1s continue\nat 6 tempo 100%\n+1s continue");
    EXPECT_EQ(
        "0.000 start\n"
        "4.000 caesura 3\n"
        "4.000 stop\n"
        "5.000 start\n"
        "5.000 jump 3 -> 4, seek\n"
        "9.000 caesura 6\n"
        "9.000 stop\n"
        "10.000 start\n"
        "16.000 stop\n"
        "16.000 song-end 1\n",
        played.Only(StopsAndStarts));
    EXPECT_EQ((PlayedBars{1, 2, 4, 5, 6, 7, 8}), played.Bars());
}

TEST(CaesuraAtACutsStart, NextOneIsCountedDownFromTheCutsEnd_Stops) {
    TestShow show;
    show.Song("1", 8).Edits("caesura 3\ncut 3 4\ncaesura 5:3");
    const Performance played = show.Perform();
    EXPECT_EQ("4.000 caesura 3\n7.000 caesura 5:3\n", played.Only({"caesura"}));
    EXPECT_EQ((PlayedBars{1, 2, 5, 6, 7, 8}), played.Bars());
}

TEST(CaesuraAtACutsStart, ThatEndsInAnotherCut_NextOneStops) {
    TestShow show;
    show.Song("1", 8).Edits("caesura 3\ncut 3 3\ncut 4 4\ncaesura 6");
    const Performance played = show.Perform();
    EXPECT_EQ("4.000 caesura 3\n8.000 caesura 6\n", played.Only({"caesura"}));
    EXPECT_EQ((PlayedBars{1, 2, 5, 6, 7, 8}), played.Bars());
}

TEST(CaesuraAtACutsStart, SeekOntoAnotherOneAfterIt_StandsThere) {
    TestShow show;
    show.Song("1", 8).Edits("caesura 3\ncut 3 3\ncaesura 6");
    const Performance played =
        show.Perform("at 3 tempo 100%\n+1s continue\nat 5 seek 6\nat 8 seek 5\nat 6 tempo 100%\n+1s continue");
    EXPECT_EQ("4.000 caesura 3\n13.000 caesura 6\n", played.Only({"caesura"}));
}

TEST(CaesuraAtACutsStart, OperatorWaitsThereForAsLongAsWanted) {
    TestShow show;
    show.Song("1", 5).Edits("caesura 3\ncut 3 3");
    const Performance played = show.Perform("at 3 tempo 100%\n+7s continue");
    EXPECT_EQ("4.000 caesura 3\n11.000 jump 3 -> 4, seek\n", played.Only({"caesura", "jump"}));
}

struct BehindACut {
    const char* what;
    const char* caesura;
    const char* script;  ///< null for the automatic operator
    const char* stops;
};

void PrintTo(const BehindACut& row, std::ostream* os) {
    *os << row.what;
}

class CaesuraBehindACut : public testing::TestWithParam<BehindACut> {};

// A caesura is met where its countdown begins, four beats before it. Playback that leaves that place out goes on
// through the caesura, of which a check warns; a seek looks for what is counted down where it leads to, and stops.
TEST_P(CaesuraBehindACut, StopsWhereItsCountdownIsPlayedOrSoughtTo) {
    TestShow show;
    show.Song("1", 8).Edits("cut 3 4").Edits(std::string("caesura ") + GetParam().caesura);
    EXPECT_EQ(GetParam().stops, show.Perform(GetParam().script).Only({"caesura"}));
}

INSTANTIATE_TEST_SUITE_P(
    Places, CaesuraBehindACut,
    testing::Values(BehindACut{"at the cut's end, played", "5", nullptr, ""},
                    BehindACut{"a beat behind it, played", "5:2", nullptr, ""},
                    BehindACut{"a bar behind it, played", "6", nullptr, "6.000 caesura 6\n"},
                    BehindACut{"five beats behind it, played", "6:2", nullptr, "6.500 caesura 6:2\n"},
                    BehindACut{"at the cut's end, after a seek into it, which stands there and goes on", "5",
                               "at 2 seek 3:2", ""},
                    BehindACut{"a beat behind it, after a seek into it", "5:2", "at 2 seek 3:2\n+9s continue",
                               "2.500 caesura 5:2\n"},
                    BehindACut{"a beat behind it, after a seek to the cut's end", "5:2", "at 2 seek 5\n+9s continue",
                               "2.500 caesura 5:2\n"},
                    BehindACut{"a beat behind it, after a seek before it", "5:2", "at 2 seek 1:4", ""}));

TEST(AutomaticOperator, OfAScriptThatHasRunOut_GoesRoundSoOftenAndNoMore) {
    TestShow show;
    show.Song("1", 3).Edits("vamp 2 2");
    stage::OfflineOptions options = show.MakeOptions("at 2@3 tempo 100%");
    options.mostPasses = 5;
    const Performance played = show.Perform(std::move(options));
    PlayedBars bars = played.Bars();
    bars.resize(6);
    EXPECT_EQ((PlayedBars{1, 2, 2, 2, 2, 2}), bars);
    ASSERT_EQ(1U, played.result.remarks.size());
    EXPECT_EQ("The script has run out and nobody leaves the vamp in song 1: the render ends after 5 passes.",
              played.result.remarks[0]);
}

TEST(AutomaticOperator, PassesOfAVampThatIsComeUponAnew_AreCountedAnew) {
    TestShow show;
    show.Song("1", 4).Edits("repeat 1 3 4\nvamp 2 2");
    stage::OfflineOptions options = show.MakeOptions(nullptr);
    options.mostPasses = 2;
    const Performance played = show.Perform(std::move(options));
    EXPECT_EQ((PlayedBars{1, 2, 2, 3, 1, 2, 2, 3, 1, 2, 2, 3, 1, 2, 2, 3, 4}), played.Bars());
    EXPECT_TRUE(played.result.remarks.empty());
}

struct Overtime {
    const char* script;
    double most;
    double seconds;  // that are rendered
};

void PrintTo(const Overtime& row, std::ostream* os) {
    *os << (row.script == nullptr ? "automatic" : row.script) << ", " << row.most;
}

class SongThatDoesNotEnd : public testing::TestWithParam<Overtime> {};

// Three bars, six seconds, of which the second is played a hundred times.
TEST_P(SongThatDoesNotEnd, EndsTheRenderInOvertimeWithASentence) {
    TestShow show;
    show.Song("1", 3).Edits("repeat 2 2 100");
    stage::OfflineOptions options = show.MakeOptions(GetParam().script);
    options.mostOvertimeSeconds = GetParam().most;
    const Performance played = show.Perform(std::move(options));
    ASSERT_EQ(1U, played.result.remarks.size());
    EXPECT_EQ(
        "Song 1 does not come to its end: the render ends where it has been played 0.5 minutes longer than it is "
        "written.",
        played.result.remarks[0]);
    EXPECT_NEAR(GetParam().seconds, static_cast<double>(played.result.frames) / 48000, 2.2);
}

INSTANTIATE_TEST_SUITE_P(Operators, SongThatDoesNotEnd,
                         testing::Values(Overtime{nullptr, 30, 36}, Overtime{"", 30, 36},
                                         Overtime{"at 2@3 tempo 100%", 30, 6 + 36}, Overtime{"at 3 exit", 30, 36},
                                         Overtime{"at 2 tempo 50%", 30, 2 + 12 + 30}));

TEST(AutomaticOperator, SongWithinItsOvertime_IsPlayedToItsEnd) {
    TestShow show;
    show.Song("1", 3).Edits("repeat 2 2 10");
    stage::OfflineOptions options = show.MakeOptions(nullptr);
    options.mostOvertimeSeconds = 30;
    EXPECT_TRUE(show.Perform(std::move(options)).result.remarks.empty());
}

TEST(AutomaticOperator, LeavesAVampAroundACaesura) {
    TestShow show;
    show.Song("1", 6).Edits("vamp 1 4\ncaesura 3");
    const Performance played = show.Perform();
    EXPECT_EQ((PlayedBars{1, 2, 3, 4, 1, 2, 3, 4, 5, 6}), played.Bars());
    EXPECT_TRUE(played.result.remarks.empty());
}

}  // namespace
