#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tests/player_core/support/test_interface.h"

namespace {

using test_support::TheFacade;
using test_support::TicksPerBar;
using test_support::TicksPerQuarter;

/// "0=1:1 480=1:2": tick, label and beat.
std::string AsText(const TL::TimelineSequence<TL::BarsBeats>& beats) {
    std::string text;
    for (const TL::BarsBeats& beat : beats) {
        text += (text.empty() ? "" : " ") + std::to_string(beat.abs_time()) + "=" + beat.bar_number() + ":" +
                std::to_string(beat.beat());
    }
    return text;
}

/// A song of bars in one meter: `beatsPerBar` beats of `ticksPerBeat`, labelled "1", "2", ...
TL::Timeline MakeTimeline(const TL::Meter& meter, unsigned int beatsPerBar, unsigned int ticksPerBeat,
                          unsigned int bars) {
    TL::Timeline timeline(0, bars * beatsPerBar * ticksPerBeat);
    timeline.GetMeters().Append(meter);
    timeline.GetTempos().Append(TL::Tempo(0, 500000));
    for (unsigned int i = 0; i < bars * beatsPerBar; ++i) {
        timeline.GetBarsBeats().Append(
            TL::BarsBeats(i * ticksPerBeat, i % beatsPerBar + 1, std::to_string(i / beatsPerBar + 1)));
    }
    return timeline;
}

TEST_F(TheFacade, BeatsWithoutClickEdits_AreTheTimelinesOwn) {
    const std::string written = AsText(facade_->GetShowData().GetSongData("1").GetTimeline().GetBarsBeats());
    EXPECT_EQ(written, AsText(facade_->GetBarsBeats("1")));
    EXPECT_EQ(written, AsText(facade_->GetBarsBeats("1", false)));
    EXPECT_EQ(16U * 4, facade_->GetBarsBeats("2").size());
}

TEST_F(TheFacade, BeatsWithClickEditsNotApplied_AreTheTimelinesOwn) {
    const std::string written = AsText(facade_->GetBarsBeats("1"));
    Edits().GetClicks().Add(CL::Click(0, 2 * TicksPerBar, 4));
    EXPECT_EQ(written, AsText(facade_->GetBarsBeats("1", false)));
    EXPECT_NE(written, AsText(facade_->GetBarsBeats("1", true)));
    EXPECT_EQ(AsText(facade_->GetBarsBeats("1", true)), AsText(facade_->GetBarsBeats("1")));
}

TEST_F(TheFacade, BeatsOfAnUnknownSong_ThrowWhatTheShowDataThrows_AndLeaveNoLock) {
    EXPECT_THROW((void)facade_->GetBarsBeats("99"), std::out_of_range);
    facade_->GetShowData().AddSong(test_support::MakeSong("3", 1));
    EXPECT_THROW((void)facade_->GetBarsBeats("3", false), std::out_of_range) << "a song that the log does not know";
    const ActiveChangeLogExclusive free;
}

struct ClickRow {
    const char* what;
    std::vector<CL::Click> clicks;
    const char* beats;
};

TEST_F(TheFacade, ClickEditsOfEveryAlignment_InFourFour) {
    OpenWith(MakeTimeline(TL::Meter(0, 4, 4), 4, TicksPerQuarter, 2));
    const ClickRow rows[] = {
        {"eighths over both bars",
         {CL::Click(0, 3840, 4)},
         "0=1:1 240=1:2 480=1:3 720=1:4 960=1:5 1200=1:6 1440=1:7 1680=1:8 "
         "1920=2:1 2160=2:2 2400=2:3 2640=2:4 2880=2:5 3120=2:6 3360=2:7 3600=2:8"},
        {"on a beat, to a beat",
         {CL::Click(480, 960, 4)},
         "0=1:1 480=1:2 720=1:3 960=1:4 1440=1:5 1920=2:1 2400=2:2 2880=2:3 3360=2:4"},
        {"from between two beats",
         {CL::Click(500, 1440, 4)},
         "0=1:1 480=1:2 960=1:3 1200=1:4 1440=1:5 1920=2:1 2400=2:2 2880=2:3 3360=2:4"},
        {"across a bar line",
         {CL::Click(1440, 2400, 4)},
         "0=1:1 480=1:2 960=1:3 1440=1:4 1680=1:5 1920=2:1 2160=2:2 2400=2:3 2880=2:4 3360=2:5"},
        {"halves, ending exactly with a click",
         {CL::Click(0, 1920, 16)},
         "0=1:1 960=1:2 1920=2:1 2400=2:2 2880=2:3 3360=2:4"},
        {"one click as long as its range", {CL::Click(0, 1920, 32)}, "0=1:1 1920=2:1 2400=2:2 2880=2:3 3360=2:4"},
        {"overshooting: beats behind the last click stay and count on",
         {CL::Click(0, 1700, 12)},
         "0=1:1 720=1:2 1440=1:3 1920=2:1 2400=2:2 2880=2:3 3360=2:4"},
        {"overshooting with beats to renumber",
         {CL::Click(0, 1000, 12)},
         "0=1:1 720=1:2 960=1:3 1440=1:4 1920=2:1 2400=2:2 2880=2:3 3360=2:4"},
        {"ending between two generated clicks",
         {CL::Click(0, 840, 4)},
         "0=1:1 240=1:2 480=1:3 720=1:4 960=1:5 1440=1:6 1920=2:1 2400=2:2 2880=2:3 3360=2:4"},
        {"a bar line that no click meets is lost",
         {CL::Click(0, 2160, 12)},
         "0=1:1 720=1:2 1440=1:3 2400=2:4 2880=2:5 3360=2:6"},
        {"two edits one behind the other",
         {CL::Click(0, 480, 4), CL::Click(480, 1920, 8)},
         "0=1:1 240=1:2 480=1:3 960=1:4 1440=1:5 1920=2:1 2400=2:2 2880=2:3 3360=2:4"},
        {"no beat at or after its start", {CL::Click(3361, 3840, 4)}, nullptr},
        {"a range that no beat lies in", {CL::Click(100, 200, 4)}, nullptr},
    };
    for (const ClickRow& row : rows) {
        Edits().GetClicks() = {};
        const std::string written = AsText(facade_->GetBarsBeats("1"));
        for (const CL::Click& click : row.clicks)
            Edits().GetClicks().Add(click);
        EXPECT_EQ(row.beats == nullptr ? written : row.beats, AsText(facade_->GetBarsBeats("1"))) << row.what;
    }
}

TEST_F(TheFacade, ClickEdits_MeasureTheirStepInTheMeterAtTheirStart) {
    // Twice, once and two thirds as many thirty-seconds in a quarter note of the file: the same edit steps 480, 240,
    // 160.
    const struct {
        std::uint8_t thirtySeconds;
        const char* beats;
    } rows[] = {
        {4, "0=1:1 480=1:2 960=1:3 1440=1:4 1920=2:1"},
        {8, "0=1:1 240=1:2 480=1:3 720=1:4 960=1:5 1440=1:6 1920=2:1"},
        {12, "0=1:1 160=1:2 320=1:3 480=1:4 640=1:5 800=1:6 960=1:7 1440=1:8 1920=2:1"},
    };
    for (const auto& row : rows) {
        TL::Timeline timeline = MakeTimeline(TL::Meter(0, 4, 4, 24, row.thirtySeconds), 4, TicksPerQuarter, 1);
        timeline.GetBarsBeats().Append(TL::BarsBeats(1920, 1, "2"));
        OpenWith(timeline);
        Edits().GetClicks().Add(CL::Click(0, 960, 4));
        EXPECT_EQ(row.beats, AsText(facade_->GetBarsBeats("1"))) << int{row.thirtySeconds};
    }
}

TEST_F(TheFacade, ClickEdit_KeepsItsStepBeyondAChangeOfMeter) {
    TL::Timeline timeline = MakeTimeline(TL::Meter(0, 4, 4, 24, 8), 4, TicksPerQuarter, 2);
    timeline.GetMeters().Append(TL::Meter(1920, 4, 4, 24, 4));
    OpenWith(timeline);
    Edits().GetClicks().Add(CL::Click(960, 2880, 4));
    EXPECT_EQ("0=1:1 480=1:2 960=1:3 1200=1:4 1440=1:5 1680=1:6 1920=2:1 2160=2:2 2400=2:3 2640=2:4 2880=2:5 3360=2:6",
              AsText(facade_->GetBarsBeats("1")));
}

TEST_F(TheFacade, ClickEditWithoutMeters_IsIgnored_BeforeTheFirstMeterItTakesTheFirst) {
    TL::Timeline timeline = MakeTimeline(TL::Meter(960, 4, 4, 24, 8), 4, TicksPerQuarter, 1);
    OpenWith(timeline);
    Edits().GetClicks().Add(CL::Click(0, 480, 4));
    EXPECT_EQ("0=1:1 240=1:2 480=1:3 960=1:4 1440=1:5", AsText(facade_->GetBarsBeats("1")));
    timeline.GetMeters() = {};
    OpenWith(timeline);
    Edits().GetClicks().Add(CL::Click(0, 480, 4));
    EXPECT_EQ("0=1:1 480=1:2 960=1:3 1440=1:4", AsText(facade_->GetBarsBeats("1")));
}

TEST_F(TheFacade, BarsOfOneLabel_AreOneBarToTheClick) {
    TL::Timeline timeline(0, 1920);
    timeline.GetMeters().Append(TL::Meter(0, 2, 4));
    timeline.GetTempos().Append(TL::Tempo(0, 500000));
    timeline.GetBarsBeats() = {{0, 1, "A"}, {480, 2, "A"}, {960, 1, "A"}, {1440, 2, "A"}};
    OpenWith(timeline);
    Edits().GetClicks().Add(CL::Click(0, 1440, 8));
    EXPECT_EQ("0=A:1 480=A:2 960=A:3 1440=A:4", AsText(facade_->GetBarsBeats("1")));
}

// The click in force.

TEST_F(TheFacade, ClickValue_IsTheEditsInsideItAndTheMetersOutside) {
    Edits().GetClicks().Add(CL::Click(1920, 3840, 4));
    Edits().GetClicks().Add(CL::Click(3840, 5760, 16));
    Edits().GetClicks().Add(CL::Click(7680, 9600, 2));
    const std::pair<unsigned int, int> rows[] = {{0, 8},     {1919, 8}, {1920, 4}, {3839, 4}, {3840, 16},
                                                 {5759, 16}, {5760, 8}, {7680, 2}, {9599, 2}, {9600, 8}};
    for (const auto& [tick, value] : rows)
        EXPECT_EQ(value, facade_->GetClickValueAt(tick)) << tick;
    facade_->LoadSong("2");
    EXPECT_EQ(8, facade_->GetClickValueAt(1920)) << "the current song's";
}

TEST_F(TheFacade, ClickValue_LooksAtTheLastEditThatStartedOnly) {
    Edits().GetClicks().Add(CL::Click(0, 5760, 4));
    Edits().GetClicks().Add(CL::Click(1920, 3840, 16));
    EXPECT_EQ(16, facade_->GetClickValueAt(1920));
    EXPECT_EQ(8, facade_->GetClickValueAt(3840)) << "the longer edit covers it, but is not the last";
}

TEST_F(TheFacade, ClickValueOfAMeter_IsItsClickInThirtySeconds) {
    const struct {
        TL::Meter meter;
        int value;
    } rows[] = {
        {TL::Meter(0, 4, 4, 24, 8), 8},  {TL::Meter(0, 6, 8, 36, 8), 12}, {TL::Meter(0, 6, 8, 12, 8), 4},
        {TL::Meter(0, 2, 2, 48, 8), 16}, {TL::Meter(0, 4, 4, 24, 4), 4},  {TL::Meter(0, 4, 4, 24, 12), 12},
        {TL::Meter(0, 4, 4, 11, 8), 3},
    };
    for (const auto& row : rows) {
        OpenWith(MakeTimeline(row.meter, 4, TicksPerQuarter, 2));
        EXPECT_EQ(row.value, facade_->GetClickValueAt(0));
    }
}

TEST_F(TheFacade, ClickValueBeforeTheFirstMeter_IsThatOfTheFirst) {
    TL::Timeline timeline = MakeTimeline(TL::Meter(960, 6, 8, 36, 8), 4, TicksPerQuarter, 2);
    timeline.GetMeters().Append(TL::Meter(1920, 4, 4));
    OpenWith(timeline);
    EXPECT_EQ(12, facade_->GetClickValueAt(0));
    EXPECT_EQ(12, facade_->GetClickValueAt(1919));
    EXPECT_EQ(8, facade_->GetClickValueAt(1920));
}

TEST_F(TheFacade, ClickValues_IgnoreTheSecondArgument) {
    const std::vector<int> values{1, 2, 4, 8, 16, 32};
    EXPECT_EQ(values, facade_->GetClickValues(1920, 0));
    EXPECT_EQ(values, facade_->GetClickValues(1920, 99));
}

}  // namespace
