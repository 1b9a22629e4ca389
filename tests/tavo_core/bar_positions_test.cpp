#include "tavo_core/bar_positions.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

/// A pick-up of one quarter note with the label 0, then bars 1 to 3 in 4/4, a bar "3a" in 2/4 and a second bar 1.
TL::BarPositions MakePositions() {
    TL::Timeline timeline(0, 480 + 4 * 1920 + 960);
    const auto addBar = [&](unsigned int tick, unsigned int beats, const std::string& label) {
        for (unsigned int beat = 0; beat < beats; ++beat)
            timeline.GetBarsBeats().Append(TL::BarsBeats(tick + beat * 480, beat + 1, label));
    };
    addBar(0, 1, "0");
    addBar(480, 4, "1");
    addBar(2400, 4, "2");
    addBar(4320, 4, "3");
    addBar(6240, 2, "3a");
    addBar(7200, 4, "1");
    return TL::BarPositions(timeline);
}

struct PlaceRow {
    const char* place;
    unsigned int start;
    unsigned int end;
};

TEST(BarPositions, APlace_IsATickAsStartAndAsEnd) {
    const TL::BarPositions positions = MakePositions();
    for (const PlaceRow& row :
         {PlaceRow{"0", 0, 480}, PlaceRow{"1", 480, 2400}, PlaceRow{"3a", 6240, 7200}, PlaceRow{"2:1", 2400, 2400},
          PlaceRow{"2:4", 3840, 3840}, PlaceRow{"2:4+1", 3841, 3841}, PlaceRow{" 2 : 4 ", 3840, 3840},
          PlaceRow{"t9", 9, 9}, PlaceRow{"tick 9600", 9600, 9600}, PlaceRow{"start", 0, 0},
          PlaceRow{"end", 9120, 9120}}) {
        EXPECT_EQ(row.start, positions.FindStartTick(row.place)) << row.place;
        EXPECT_EQ(row.end, positions.FindEndTick(row.place)) << row.place;
    }
}

TEST(BarPositions, PlacesThatAreNotThere_AreRefusedWithWhatIs) {
    const TL::BarPositions positions = MakePositions();
    const auto refusal = [&](const std::string& place) -> std::string {
        try {
            static_cast<void>(positions.FindStartTick(place));
        } catch (const std::out_of_range& problem) {
            return problem.what();
        } catch (const std::invalid_argument&) {
            return "no place";
        }
        return "found";
    };
    EXPECT_EQ("there is no bar 4, the song's bars are 0 to 1", refusal("4"));
    EXPECT_EQ("there is no bar 4, the song's bars are 0 to 1", refusal("4:1"));
    EXPECT_EQ("bar 3a has no beat 3, it has the beats 1 to 2", refusal("3a:3"));
    EXPECT_EQ("bar 0 has no beat 2, it has beat 1 only", refusal("0:2"));
    EXPECT_EQ("there is no bar t-1, the song's bars are 0 to 1", refusal("t-1"));
    EXPECT_EQ("there is no bar t4294967296, the song's bars are 0 to 1", refusal("t4294967296"));
    for (const std::string place : {"", " ", "soon", "2:", "2:x", "2:1+", "2:1+4294967295", "t", "tick", ":3"})
        EXPECT_EQ("no place", refusal(place)) << place;
}

TEST(BarPositions, EveryTick_IsFoundAgainByItsDescription) {
    const TL::BarPositions positions = MakePositions();
    for (unsigned int tick = 0; tick < 9400; tick += 7)
        ASSERT_EQ(tick, positions.FindStartTick(positions.DescribeTick(tick))) << positions.DescribeTick(tick);
    EXPECT_EQ("2", positions.DescribeTick(2400));
    EXPECT_EQ("2:2", positions.DescribeTick(2880));
    EXPECT_EQ("2:2+7", positions.DescribeTick(2887));
    EXPECT_EQ("end", positions.DescribeTick(9120));
    EXPECT_EQ("t7200", positions.DescribeTick(7200)) << "the second bar 1 is not the one that the label means";
    EXPECT_EQ("t9121", positions.DescribeTick(9121));
}

TEST(BarPositions, WholeBars_AreDescribedAsBars) {
    const TL::BarPositions positions = MakePositions();
    EXPECT_EQ("bar 2", positions.DescribeRange(2400, 4320));
    EXPECT_EQ("bars 1 to 3a", positions.DescribeRange(480, 7200));
    EXPECT_EQ("2:2 up to 3", positions.DescribeRange(2880, 4320));
    EXPECT_EQ("2 up to 2", positions.DescribeRange(2400, 2400));
    EXPECT_EQ("3 up to 2", positions.DescribeRange(4320, 2400));
}

TEST(BarPositions, ASongWithoutBars_KnowsItsEndsOnly) {
    const TL::BarPositions positions{TL::Timeline(0, 960)};
    EXPECT_EQ(960U, positions.FindEndTick("end"));
    EXPECT_EQ("t5", positions.DescribeTick(5));
    EXPECT_THROW(static_cast<void>(positions.FindStartTick("1")), std::out_of_range);
}

}  // namespace
