// What else an evening may hold beside what stands in evening.txt, played on small songs: a bar lasts two seconds.

#include <gtest/gtest.h>

#include "tests/support/show_builder.h"

using test_support::Performance;
using test_support::TestShow;

namespace {

using Bars = std::vector<int>;

const std::set<std::string> Stops{"hold", "release", "caesura", "stop", "start", "jump", "song-end"};

TEST(Vamp, NobodyLeavesIt_EndsTheRenderWithASentence) {
    TestShow show;
    show.Song("1", 3).Edits("vamp 2 2");
    const Performance played = show.Perform("");
    ASSERT_EQ(1U, played.result.remarks.size());
    EXPECT_EQ("The script has run out and nobody leaves the vamp in song 1: the render ends after 16 passes.",
              played.result.remarks[0]);
    EXPECT_EQ(17U, played.Bars().size());
}

TEST(Cut, SeekIntoTenThousandThatFollowEachOther_LandsBehindTheLast) {
    TestShow show;
    show.Song("1", 12);
    for (unsigned int i = 0; i < 10000; ++i)
        show.GetLog().GetSongLog("1").GetCuts().Add(CL::Cut(1920 + i, 1921 + i));
    const Performance played = show.Perform("at 1:2 seek 2");
    EXPECT_EQ("0.500 jump 1:2 -> 7:1+400, seek\n", played.Only({"jump"}));
}

TEST(Fermata, WhileItHolds_TheDisplayStaysBeforeItsEndAndTheNoteSoundsOn) {
    TestShow show;
    show.Song("1", 4).Edits("fermata 2 2");
    const Performance played = show.Perform("at 3 tempo 100%\n+3s exit");
    EXPECT_EQ("0.000 bar 1\n2.013 bar 2\n7.029 bar 3\n9.009 bar 4\n", played.Only({"bar"}));
    for (const stage::SynthMessage& message : played.messages) {
        const bool isHeldNote = message.status == 0x80 && message.data1 == 42 && message.frame > 4 * 48000 - 24000;
        if (isHeldNote && message.frame > 187200) {
            EXPECT_EQ(7 * 48000, message.frame);
        }
    }
}

TEST(Caesura, CountsDownStopsAndGoesOn) {
    TestShow show;
    show.Song("1", 4).Edits("caesura 3");
    const Performance played = show.Perform("at 3 tempo 100%\n+1.5s continue");
    EXPECT_EQ("0.000 start\n4.000 caesura 3\n4.000 stop\n5.500 start\n9.500 stop\n9.500 song-end 1\n",
              played.Only(Stops));
    const std::string statuses = played.Only({"status"});
    EXPECT_TRUE(
        statuses.starts_with("0.033 status\n2.013 status Caesura 4\n2.508 status Caesura 3\n3.003 status Caesura 2\n"
                             "3.531 status Caesura 1\n4.000 status Caesura 0\n5.511 status\n"))
        << statuses;
    EXPECT_EQ((Bars{1, 2, 3, 4}), played.Bars());
}

/// The words and counts that a display shows, one after the other; "lamp" and "dark" for the lamp.
std::string Displayed(const Performance& played) {
    std::istringstream lines(played.Only({"status", "vamp-on", "vamp-off"}));
    std::string told;
    std::string seconds;
    std::string event;
    for (std::string details; lines >> seconds >> event && std::getline(lines, details);) {
        if (event != "status")
            told += event == "vamp-on" ? " lamp" : " dark";
        else
            told += details.empty() ? " -" : details;
    }
    return told;
}

struct DisplayRow {
    const char* edits;
    const char* script;
    const char* displayed;
};

TEST(Display, OneThingAtATime_CountdownsBeforeAllOthers) {
    const std::string end = " EndOfSong 4 EndOfSong 3 EndOfSong 2 EndOfSong 1";
    for (const DisplayRow& row : {
             DisplayRow{"vamp 2 2", "at 2@2 exit", " dark - lamp Vamp 1 dark -END"},
             DisplayRow{"repeat 2 2 2", "at 2:2 exit", " dark - Repeat 1 Repeat 2 -END"},
             DisplayRow{"fermata 2 2", "at 3 exit", " dark - lamp Skip 0 dark -END"},
             // On the last chord, and over the last bar.
             DisplayRow{"fermata 4 4", "at end exit", " dark - lampEND dark EndOfSong 0"},
             DisplayRow{"vamp 4 4", "at 4@2 exit", " dark - lampEND darkEND"},
             DisplayRow{"caesura 3", "at 3 tempo 100%\n+1s continue",
                        " dark - Caesura 4 Caesura 3 Caesura 2 Caesura 1 Caesura 0 -END"},
             DisplayRow{"caesura 3", "at 2:2 go", " dark - Caesura 4 -END"},
             // Right after a loop, and at its very end.
             DisplayRow{"repeat 2 2 2\ncaesura 3:3", "at 3:3 tempo 100%\n+1s continue",
                        " dark - Repeat 1 Repeat 2 Caesura 2 Caesura 1 Caesura 0 -END"},
             DisplayRow{"repeat 2 2 2\ncaesura 3", "at 3 tempo 100%\n+1s continue",
                        " dark - Repeat 1 Repeat 2 Caesura 0 -END"},
             // Within a countdown.
             DisplayRow{"fermata 2:3 2:4\ncaesura 3", "at 2:4 exit\nat 3 tempo 100%\n+1s continue",
                        " dark - Caesura 4 Caesura 3 lamp Caesura 2 dark Caesura 1 Caesura 0 -END"},
             DisplayRow{"cut 2 2", "", " dark -END"},
         }) {
        TestShow show;
        show.Song("1", 4).Edits(row.edits);
        std::string expected = row.displayed;
        for (std::size_t at = expected.find("END"); at != std::string::npos; at = expected.find("END", at + end.size()))
            expected.replace(at, 3, end);
        EXPECT_EQ(expected, Displayed(show.Perform(row.script))) << row.edits;
    }
}

TEST(Attacca, NextSongFollowsWithoutAGap) {
    TestShow show;
    show.Song("1", 2).Edits("attacca").Song("2", 2);
    const Performance played = show.Perform("");
    EXPECT_EQ("0.000 song 1 Song 1\n4.000 attacca 1 -> 2\n4.000 song 2 Song 2\n8.000 song-end 2\n",
              played.Only({"song", "attacca", "song-end"}));
    EXPECT_EQ((Bars{1, 2, 1, 2}), played.Bars());
    EXPECT_EQ((std::vector<std::string>{"1", "2"}), played.result.songs);
}

TEST(Attacca, SkippedSongIsPassedOver) {
    TestShow show;
    show.Song("1", 1).Edits("attacca").Song("2", 1).Song("3", 1);
    show.GetLog().GetSongLog("2").SetAttacca(CL::AttaccaSkip);
    EXPECT_EQ("2.000 attacca 1 -> 3\n", show.Perform("").Only({"attacca"}));
}

TEST(Range, OperatorStartsEachSongOfIt) {
    TestShow show;
    show.Song("1", 1).Song("2", 1).Song("3", 1);
    EXPECT_EQ("0.000 start\n2.000 stop\n3.000 start\n5.000 stop\n",
              show.Perform(nullptr, "1", "2").Only({"start", "stop"}));
}

TEST(TempoScale, SlowsItsBarsAndLandsOnItsTicks) {
    TestShow show;
    show.Song("1", 4).Edits("tempo 2 3 50");
    const Performance played = show.Perform("");
    EXPECT_EQ("0.000 tempo-scale 100%\n2.013 tempo-scale 50%\n10.032 tempo-scale 100%\n", played.Only({"tempo-scale"}));
    EXPECT_EQ("12.000 song-end 1\n", played.Only({"song-end"}));
}

TEST(Transposition, IsThatOfTheBarAndOfTheOperator) {
    TestShow show;
    show.Song("1", 3).Edits("transpose 2 2 5");
    EXPECT_EQ((Bars{1, 7, 3}), show.Perform("").Bars());
    EXPECT_EQ((Bars{1, 7 - 3, 3 - 3}), show.Perform("at 2 transpose -3").Bars());
}

TEST(Transposition, ChangedWhileANoteSounds_EndsTheNoteThatWasStruck) {
    TestShow show;
    show.Song("1", 1);
    const Performance played = show.Perform("at 1:2+240 transpose 4");
    int sounding = 0;
    for (const stage::SynthMessage& message : played.messages) {
        sounding += message.status == 0x90 ? 1 : message.status == 0x80 ? -1 : 0;
        ASSERT_LE(sounding, 1);
    }
    EXPECT_EQ(0, sounding);
}

TEST(Operator, CueIsSentAtItsTickAndInEveryPass) {
    TestShow show;
    show.Song("1", 3).Edits("osc 2:2 /lights/go\nrepeat 2 2 2");
    show.settings = R"({"oscTargets": [{"name": "desk", "port": 9000}]})";
    EXPECT_EQ("2.500 cue osc /lights/go\n4.500 cue osc /lights/go\n", show.Perform("").Only({"cue"}));
    show.settings = "{}";
    EXPECT_EQ("", show.Perform("").Only({"cue"})) << "nobody is there to hear it";
    EXPECT_NE("", show.Perform("").Only({"cue-missing"}));
}

TEST(AutomaticOperator, LeavesVampsHoldsAndCaesuras) {
    TestShow show;
    show.Song("1", 6).Edits("vamp 1 1\nfermata 3 3\ncaesura 5");
    const Performance played = show.Perform();
    EXPECT_EQ((Bars{1, 1, 2, 3, 4, 5, 6}), played.Bars());
    EXPECT_EQ(
        "2.000 operator exit (automatic)\n10.000 operator exit (automatic)\n14.000 operator continue (automatic)\n",
        played.Only({"operator"}));
}

TEST(Script, LineThatIsNeverReached_IsTold) {
    TestShow show;
    show.Song("1", 3).Edits("cut 2 2");
    const Performance played = show.Perform("at 2:2 exit");
    ASSERT_EQ(1U, played.result.remarks.size());
    EXPECT_EQ("line 1 of the script (\"at 2:2 exit\") is never reached: playback is stopped at end of song 1.",
              played.result.remarks[0]);
}

TEST(Script, RunsOutInAHold_EndsWithASentence) {
    TestShow show;
    show.Song("1", 3).Edits("fermata 2 2");
    const Performance played = show.Perform("");
    ASSERT_EQ(1U, played.result.remarks.size());
    EXPECT_EQ(
        "The script has run out and playback is stopped in the fermata before 3 of song 1: the render ends there.",
        played.result.remarks[0]);
}

TEST(Trace, IsTheSameInEveryRunAndForEveryAdvance) {
    TestShow show;
    show.Song("1", 6).Edits("vamp 2 3\nfermata 4 4\ncaesura 6\ntempo 5 5 73\nattacca").Song("2", 2);
    const auto play = [&](std::uint32_t advanceFrames) {
        show.sessionOptions.advanceFrames = advanceFrames;
        return show.Perform();
    };
    const Performance first = play(64);
    const Performance second = play(64);
    EXPECT_EQ(first.trace, second.trace);
    EXPECT_EQ(first.left, second.left);
    EXPECT_EQ(first.messages, play(2000).messages);
}

TEST(Render, SessionThatWasPlayedBefore_IsPlayedAgainAlike) {
    TestShow show;
    show.Song("1", 2);
    const test_support::TemporaryDirectory directory;
    show.WriteTo(directory);
    stage::ShowSession session(directory.Path(), directory.Path(), show.sessionOptions);
    const auto play = [&] { return stage::OfflineShow(session, show.MakeOptions("+1.5s quit"), {}, {}).Run().frames; };
    const std::int64_t first = play();
    EXPECT_GE(first, 72000);
    EXPECT_NEAR(static_cast<double>(first), static_cast<double>(play()), 64);
}

}  // namespace
