#include "tavo_midi/how_to_play.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "tavo_midi/show_data.h"

namespace {

/// Two bars of 4/4, one of 6/8, one of 4/4 at 480 ticks a quarter note: bars "0" (a pick-up of one beat), "1", "2",
/// "3".
struct Song {
    Song() : timeline(0, 6240) {
        timeline.SetSongTitle("Vals");
        AddBar("0", 0, 1, 480);
        AddBar("1", 480, 4, 480);
        AddBar("2", 2400, 4, 480);
        AddBar("3", 4320, 6, 240);
        AddBar("4", 5760, 1, 480);
        timeline.GetMeters() = {{0, 4, 4}, {4320, 6, 8, 36, 8}, {5760, 4, 4}};
        timeline.GetTempos() = {{0, 500000}, {2400, 1000000}};
        timeline.GetKeys() = {{0, -3, false}, {2400, 1, true}};
        timeline.GetPageNums() = {{480, 7}, {4320, 8}};
    }
    void AddBar(const std::string& label, unsigned int tick, unsigned int beats, unsigned int beatTicks) {
        for (unsigned int beat = 0; beat < beats; ++beat)
            timeline.GetBarsBeats().Append({tick + beat * beatTicks, beat + 1, label});
    }
    void Load() { howToPlay.SetData(log, timeline, 480); }
    /// Loads and takes every first answer, so that only changes are reported from here on.
    void LoadAndSettle() {
        Load();
        Updates();
    }
    /// The queries that answer true now.
    std::string Updates() {
        std::string text;
        if (howToPlay.UpdateBar()) text += "bar ";
        if (howToPlay.UpdateMeter()) text += "meter ";
        if (howToPlay.UpdateClick()) text += "click ";
        if (howToPlay.UpdateTransposition()) text += "transposition ";
        if (howToPlay.UpdateKey()) text += "key ";
        if (howToPlay.UpdateTempoScale()) text += "scale ";
        if (howToPlay.UpdateTempo()) text += "tempo ";
        if (howToPlay.UpdateMarker()) text += "marker ";
        if (howToPlay.UpdatePageNumber()) text += "page ";
        return text;
    }
    std::string UpdatesAt(unsigned int tick) {
        howToPlay.Advance(tick);
        return Updates();
    }

    UserControls controls;
    CL::SongLog log;
    TL::Timeline timeline;
    HowToPlay howToPlay{controls};
};

const char* const kAll = "bar meter click transposition key scale tempo marker page ";

TEST(HowToPlay, NewData_EveryQueryAnswersOnce) {
    Song song;
    song.Load();
    EXPECT_EQ(kAll, song.Updates());
    EXPECT_EQ("", song.Updates());
    EXPECT_TRUE(song.howToPlay.GetSendMarkerAndSongTitle());
    EXPECT_FALSE(song.howToPlay.GetSendMarkerAndSongTitle());
    song.howToPlay.Advance(3000);
    song.Load();
    EXPECT_EQ(0U, song.howToPlay.GetTickIndex());
    EXPECT_EQ(kAll, song.Updates());
    EXPECT_TRUE(song.howToPlay.GetSendMarkerAndSongTitle());
}

TEST(HowToPlay, PlayingOn_ReportsWhatChangesAndOnlyThat) {
    Song song;
    song.log.GetMarkers().Add({2400, "B"});
    song.LoadAndSettle();
    EXPECT_EQ("", song.UpdatesAt(479));
    EXPECT_EQ("bar page ", song.UpdatesAt(480));
    EXPECT_EQ("bar ", song.UpdatesAt(960));
    EXPECT_EQ("bar key tempo marker ", song.UpdatesAt(2400));
    EXPECT_EQ("bar meter click tempo page ", song.UpdatesAt(4320)) << "the click is longer, so fewer go in a minute";
    EXPECT_EQ("bar meter click key tempo marker page ", song.UpdatesAt(480)) << "a jump back";
}

TEST(HowToPlay, Reset_GoesToTheStartAndEveryQueryAnswersOnce) {
    Song song;
    song.LoadAndSettle();
    song.howToPlay.Seek(3000);
    song.howToPlay.Reset();
    EXPECT_EQ(0U, song.howToPlay.GetTickIndex());
    EXPECT_EQ(kAll, song.Updates());
}

TEST(HowToPlay, ValuesAtAPosition) {
    Song song;
    song.Load();
    struct Row {
        unsigned int tick;
        const char* bar;
        const char* meter;
        const char* key;
        const char* tempo;
        int click;
        int page;
    };
    for (const Row& row :
         {Row{0, "0:1", "4/4", "Eb major", "120", 8, 0}, Row{480, "1:1", "4/4", "Eb major", "120", 8, 7},
          Row{2399, "1:4", "4/4", "Eb major", "120", 8, 7}, Row{2400, "2:1", "4/4", "E minor", "60", 8, 7},
          Row{4560, "3:2", "6/8", "E minor", "40", 12, 8}, Row{0xFFFFFFFF, "4:1", "4/4", "E minor", "60", 8, 8}}) {
        song.howToPlay.Seek(row.tick);
        EXPECT_EQ(row.bar, song.howToPlay.GetBarString());
        EXPECT_EQ(row.meter, song.howToPlay.GetMeterString());
        EXPECT_EQ(row.key, song.howToPlay.GetKeyString());
        EXPECT_EQ(row.tempo, song.howToPlay.GetTempoString());
        EXPECT_EQ(std::stoi(row.tempo), song.howToPlay.GetTempoInteger());
        EXPECT_EQ(row.click, song.howToPlay.GetNotated32PerClick());
        EXPECT_EQ(row.page, song.howToPlay.GetPageNumberValue());
    }
    EXPECT_EQ("Vals", song.howToPlay.GetSongTitle());
}

TEST(HowToPlay, EmptySong_HasCommonTimeAndTheDefaultTempo) {
    UserControls controls;
    HowToPlay howToPlay(controls);
    EXPECT_EQ("", howToPlay.GetBarString());
    EXPECT_EQ("4/4", howToPlay.GetMeterString());
    EXPECT_EQ("", howToPlay.GetKeyString());
    EXPECT_EQ("120", howToPlay.GetTempoString());
    EXPECT_EQ(500000U, howToPlay.GetMicrosecondsPerQuarter());
    EXPECT_EQ("100%", howToPlay.GetTempoScaleString());
    EXPECT_EQ(8, howToPlay.GetNotated32PerClick());
    EXPECT_EQ(0, howToPlay.GetClicksToSongEnd());
    EXPECT_THROW(static_cast<void>(howToPlay.GetNextMeasureTickIndex(0)), HowToPlay::SongEnd);
    EXPECT_THROW(static_cast<void>(howToPlay.GetPreviousMeasureTickIndex(0)), HowToPlay::SongBegin);
}

TEST(HowToPlay, BeforeTheFirstBeat_TheBarIsEmpty) {
    Song song;
    song.timeline.GetBarsBeats() = {{960, 1, "1"}};
    song.LoadAndSettle();
    EXPECT_EQ("", song.howToPlay.GetBarString());
    EXPECT_EQ("bar ", song.UpdatesAt(960).substr(0, 4));
    EXPECT_EQ("1:1", song.howToPlay.GetBarString());
}

TEST(HowToPlay, ABeatThatReadsLikeTheLast_IsNoNews) {
    Song song;
    song.timeline.GetBarsBeats() = {{0, 1, "1"}, {480, 1, "1"}, {960, 1, "2"}};
    song.LoadAndSettle();
    EXPECT_FALSE((song.howToPlay.Advance(480), song.howToPlay.UpdateBar()));
    EXPECT_TRUE((song.howToPlay.Advance(960), song.howToPlay.UpdateBar()));
    EXPECT_TRUE((song.howToPlay.Seek(0), song.howToPlay.UpdateBar()));
}

TEST(HowToPlay, ClickEdit_ChangesBeatsClickAndTempoInClicks) {
    Song song;
    song.log.GetClicks().Add({480, 2400, 4});
    song.LoadAndSettle();
    EXPECT_EQ("bar click tempo page ", song.UpdatesAt(480));
    EXPECT_EQ(4, song.howToPlay.GetNotated32PerClick());
    EXPECT_EQ("240", song.howToPlay.GetTempoString());
    song.howToPlay.Advance(720);
    EXPECT_EQ("1:2", song.howToPlay.GetBarString());
    song.howToPlay.Advance(2399);
    EXPECT_EQ("1:8", song.howToPlay.GetBarString());
    EXPECT_EQ("bar click key tempo ", song.UpdatesAt(2400));
    EXPECT_EQ("60", song.howToPlay.GetTempoString());
}

TEST(HowToPlay, Transposition_SumsUserAndEditAndSpellsTheKeySimply) {
    struct Row {
        TL::Key written;
        int semitones;
        const char* sounding;
    };
    for (const Row& row :
         {Row{{0, 0, false}, 1, "Db major"}, Row{{0, 0, false}, 6, "Gb major"}, Row{{0, 0, false}, -6, "Gb major"},
          Row{{0, 0, false}, 2, "D major"}, Row{{0, 0, false}, -1, "B major"}, Row{{0, 7, false}, 0, "C# major"},
          Row{{0, 7, false}, 12, "C# major"}, Row{{0, 7, false}, -24, "C# major"}, Row{{0, -7, false}, 1, "C major"},
          Row{{0, 6, false}, 12, "F# major"}, Row{{0, 0, true}, 1, "Bb minor"}, Row{{0, 0, true}, 6, "Eb minor"},
          Row{{0, 3, true}, -2, "E minor"}, Row{{0, 7, true}, 48, "A# minor"}}) {
        Song song;
        song.timeline.GetKeys() = {row.written};
        song.controls.SetTransposition(row.semitones - row.semitones / 2);
        song.log.GetTranspositions().Add({0, 6240, row.semitones / 2});
        song.Load();
        EXPECT_EQ(row.semitones, song.howToPlay.GetTranspositionValue());
        EXPECT_EQ(row.sounding, song.howToPlay.GetKeyString());
    }
}

TEST(HowToPlay, TranspositionEdit_HoldsToItsEnd_AndIsNoChangeOfKey) {
    Song song;
    song.log.GetTranspositions().Add({480, 960, 2});
    song.LoadAndSettle();
    EXPECT_EQ("bar transposition page ", song.UpdatesAt(480));
    EXPECT_EQ("F major", song.howToPlay.GetKeyString());
    EXPECT_EQ("", song.UpdatesAt(959));
    EXPECT_EQ("bar transposition ", song.UpdatesAt(960));
    song.controls.SetTransposition(-1);
    EXPECT_EQ("transposition ", song.Updates());
    EXPECT_EQ("D major", song.howToPlay.GetKeyString());
}

TEST(HowToPlay, NestedEdits_TheInnerCountsAndThenTheOuterAgain) {
    Song song;
    song.log.GetTranspositions().Add({0, 4000, 1});
    song.log.GetTranspositions().Add({1000, 2000, 5});
    song.log.GetTranspositions().Add({1500, 1500, 9});
    song.Load();
    for (const auto& [tick, semitones] :
         {std::pair{0U, 1}, {999U, 1}, {1000U, 5}, {1999U, 5}, {2000U, 1}, {4000U, 0}}) {
        song.howToPlay.Seek(tick);
        EXPECT_EQ(semitones, song.howToPlay.GetTranspositionValue()) << tick;
    }
}

TEST(HowToPlay, TempoScale_IsUsersTimesEdits_AndIsNoChangeOfTempo) {
    Song song;
    song.log.GetTempoScales().Add({480, 960, 1.25F});
    song.LoadAndSettle();
    song.controls.SetTempoScale(0.9);
    EXPECT_EQ("scale ", song.Updates());
    EXPECT_EQ("90%", song.howToPlay.GetTempoScaleString());
    EXPECT_EQ("108", song.howToPlay.GetTempoString());
    EXPECT_EQ("bar scale page ", song.UpdatesAt(480));
    EXPECT_EQ("112.5%", song.howToPlay.GetTempoScaleString());
    EXPECT_DOUBLE_EQ(135, song.howToPlay.GetTempoDouble());
    EXPECT_EQ(135, song.howToPlay.GetTempoInteger());
    EXPECT_DOUBLE_EQ(1.125, song.howToPlay.GetTempoScale());
    EXPECT_EQ(500000U, song.howToPlay.GetMicrosecondsPerQuarter());
    EXPECT_EQ("bar scale ", song.UpdatesAt(960));
}

TEST(HowToPlay, TempoScaleTexts_HaveTwoDecimalsAtMost) {
    Song song;
    song.Load();
    for (const auto& [scale, text] :
         {std::pair{1.0, "100%"}, {0.9, "90%"}, {0.875, "87.5%"}, {0.98765, "98.77%"}, {2.0, "200%"}}) {
        song.controls.SetTempoScale(scale);
        EXPECT_EQ(text, song.howToPlay.GetTempoScaleString());
    }
}

TEST(HowToPlay, AnUnplayableScaleOfAnEdit_BecomesTheNearestPlayableOne) {
    Song song;
    song.log.GetTempoScales().Add({0, 480, 9.0F});
    song.log.GetTempoScales().Add({480, 960, 0.0F});
    song.Load();
    EXPECT_EQ("200%", song.howToPlay.GetTempoScaleString());
    song.howToPlay.Seek(480);
    EXPECT_EQ("50%", song.howToPlay.GetTempoScaleString());
}

TEST(HowToPlay, AMarkerIsInForceFromItsTickToTheNext) {
    Song song;
    song.log.GetMarkers().Add({480, "A"});
    song.log.GetMarkers().Add({2400, "B"});
    song.LoadAndSettle();
    EXPECT_EQ("", song.howToPlay.GetMarkerString());
    EXPECT_TRUE((song.howToPlay.Advance(500), song.howToPlay.UpdateMarker()));
    EXPECT_FALSE((song.howToPlay.Advance(2399), song.howToPlay.UpdateMarker()));
    EXPECT_EQ("A", song.howToPlay.GetMarkerString());
    EXPECT_EQ(480U, song.howToPlay.GetMarkerTickIndex());
    EXPECT_TRUE((song.howToPlay.Advance(2400), song.howToPlay.UpdateMarker()));
    EXPECT_EQ("B", song.howToPlay.GetMarkerString());
    EXPECT_TRUE((song.howToPlay.Advance(100), song.howToPlay.UpdateMarker())) << "back to where there is none";
    EXPECT_EQ(100U, song.howToPlay.GetMarkerTickIndex());
    EXPECT_FALSE((song.howToPlay.Advance(200), song.howToPlay.UpdateMarker()));
}

TEST(HowToPlay, SetMarkerUpdated_FalseReportsAgain_TrueTheNextOnly) {
    Song song;
    song.log.GetMarkers().Add({0, "A"});
    song.log.GetMarkers().Add({480, "B"});
    song.LoadAndSettle();
    EXPECT_FALSE(song.howToPlay.UpdateMarker());
    song.howToPlay.SetMarkerUpdated(false);
    EXPECT_TRUE(song.howToPlay.UpdateMarker());
    EXPECT_FALSE(song.howToPlay.UpdateMarker());
    song.howToPlay.Advance(480);
    song.howToPlay.SetMarkerUpdated(true);
    EXPECT_FALSE(song.howToPlay.UpdateMarker());
    EXPECT_TRUE((song.howToPlay.Advance(0), song.howToPlay.UpdateMarker()));
}

TEST(HowToPlay, ClicksToSongEnd_CountTheEndItself) {
    Song song;
    song.timeline.SetEndTickIndex(2400);
    song.Load();
    for (const auto& [tick, clicks] :
         {std::pair{0U, 5}, {479U, 5}, {480U, 4}, {1919U, 2}, {1920U, 1}, {2399U, 1}, {2400U, 0}, {9999U, 0}}) {
        song.howToPlay.Seek(tick);
        EXPECT_EQ(clicks, song.howToPlay.GetClicksToSongEnd()) << tick;
    }
    song.log.GetClicks().Add({480, 2400, 4});
    song.Load();
    song.howToPlay.Seek(1920);
    EXPECT_EQ(2, song.howToPlay.GetClicksToSongEnd()) << "click edits count";
}

TEST(HowToPlay, NextMeasure) {
    Song song;
    song.Load();
    for (const auto& [from, to] : {std::pair{0U, 480U}, {479U, 480U}, {480U, 2400U}, {2399U, 2400U}, {5759U, 5760U}})
        EXPECT_EQ(to, song.howToPlay.GetNextMeasureTickIndex(from)) << from;
    for (const unsigned int tick : {5760U, 6239U, 0xFFFFFFFFU})
        EXPECT_THROW(static_cast<void>(song.howToPlay.GetNextMeasureTickIndex(tick)), HowToPlay::SongEnd) << tick;
}

TEST(HowToPlay, PreviousMeasure_OnTheFirstBarLineThrows_OneBeforeTickZeroAnswersIt) {
    Song song;
    song.Load();
    for (const auto& [from, to] :
         {std::pair{1U, 0U}, {479U, 0U}, {480U, 480U}, {2399U, 480U}, {9999U, 5760U}, {0xFFFFFFFFU, 0U}})
        EXPECT_EQ(to, song.howToPlay.GetPreviousMeasureTickIndex(from)) << from;
    EXPECT_THROW(static_cast<void>(song.howToPlay.GetPreviousMeasureTickIndex(0)), HowToPlay::SongBegin);
    song.timeline.GetBarsBeats() = {{960, 1, "1"}, {2880, 1, "2"}};
    song.Load();
    EXPECT_EQ(960U, song.howToPlay.GetPreviousMeasureTickIndex(100)) << "before the first bar line";
    EXPECT_THROW(static_cast<void>(song.howToPlay.GetPreviousMeasureTickIndex(960)), HowToPlay::SongBegin);
}

TEST(HowToPlay, ClickEdits_DoNotMoveTheBarLines) {
    Song song;
    song.log.GetClicks().Add({480, 2400, 24});
    song.Load();
    EXPECT_EQ(2400U, song.howToPlay.GetNextMeasureTickIndex(480));
}

TEST(HowToPlay, ItsDataAreCopies) {
    Song song;
    song.Load();
    song.timeline = TL::Timeline();
    song.log = CL::SongLog();
    song.howToPlay.Seek(2400);
    EXPECT_EQ("2:1", song.howToPlay.GetBarString());
    EXPECT_EQ("Vals", song.howToPlay.GetSongTitle());
}

TEST(UserControls, ValuesOutsideTheRange_BecomeItsNearestEnd) {
    UserControls controls;
    const double nan = std::numeric_limits<double>::quiet_NaN();
    for (const auto& [set, kept] : {std::pair{0.49, 0.5},
                                    {0.5, 0.5},
                                    {1.1, 1.1},
                                    {2.0, 2.0},
                                    {2.01, 2.0},
                                    {nan, 2.0},
                                    {-1.0, 0.5},
                                    {std::numeric_limits<double>::infinity(), 2.0}}) {
        controls.SetTempoScale(set);
        EXPECT_EQ(kept, controls.GetTempoScale()) << set;
    }
    for (const auto& [set, kept] : {std::pair{-25, -24}, {-24, -24}, {0, 0}, {24, 24}, {25, 24}}) {
        controls.SetTransposition(set);
        EXPECT_EQ(kept, controls.GetTransposition());
    }
}

TEST(ShowData, SongsKeepOrderAndAddress_NumbersAreTheirOwn) {
    tavo_midi::ShowData show;
    const tavo_midi::SongData& first = show.AddSong({"2", TL::Timeline(0, 10), 480});
    show.AddSong({"1", TL::Timeline(5, 10), 96});
    EXPECT_EQ(&first, &show.GetSongData("2"));
    EXPECT_EQ("2", show.GetSongs().front().GetSongNumber());
    EXPECT_EQ(5U, show.GetSongData("1").GetSongStartTickIndex());
    EXPECT_THROW(show.AddSong({"1", TL::Timeline(), 480}), std::invalid_argument);
    try {
        static_cast<void>(show.GetSongData("3"));
        FAIL();
    } catch (const std::out_of_range& error) {
        EXPECT_STREQ("the show has no song \"3\"", error.what());
    }
}

}  // namespace
