// Seeks: the flow at a place, as if playback had arrived there.

#include <gtest/gtest.h>

#include "player_core/tavo_ext.h"
#include "tests/player_core/flow_show.h"

using test_support::FlowShow;

TEST(Seek, BeforeTheSongsStart_GoesToTheStart) {
    FlowShow show("", 960);
    EXPECT_FALSE(show.Seek(100));
    EXPECT_EQ(960U, show.Tick());
    EXPECT_EQ(960U, show.Control().GetLastSeekTickIndex());
}

TEST(Seek, IntoAVamp_RegistersItInItsFirstPass) {
    FlowShow show("vamp 960..1920");
    EXPECT_FALSE(show.Seek(1440));
    EXPECT_EQ("Vamp 960..1920 1/0", show.Loops());
    show.PlayTo(1920);
    EXPECT_EQ("lamp on; jump 960", show.Log());
}

TEST(Seek, ToALoopsEnd_IsOutsideIt) {
    FlowShow show("vamp 960..1920");
    show.Seek(1920);
    EXPECT_EQ("", show.Loops());
    show.Seek(960);
    EXPECT_EQ("Vamp 960..1920 1/0", show.Loops());
}

TEST(Seek, IntoNestedLoops_RegistersAllThatCoverThePlace) {
    FlowShow show("repeat 0..5760 x2; vamp 960..1920; vamp 1440..2880; repeat 1920..3840 x2");
    show.Seek(1500);
    EXPECT_EQ("Vamp 960..1920 1/0; Vamp 1440..2880 1/0; Repeat 0..5760 1/2", show.Loops());
}

TEST(Seek, WithinALoop_KeepsItsPass) {
    FlowShow show("vamp 960..1920");
    show.PlayTo(1920);
    show.Seek(1200);
    EXPECT_EQ("Vamp 960..1920 2/0", show.Loops());
}

TEST(Seek, ForgetsWhatWasReleased) {
    FlowShow show("vamp 960..1920");
    show.PlayTo(1200);
    show.Exit();
    show.Seek(1300);
    EXPECT_EQ("Vamp 960..1920 1/0", show.Loops());
}

TEST(Seek, IntoACut_ReportsItsEndAndDoesNotMove) {
    FlowShow show("cut 960..1920");
    show.PlayTo(480);
    show.Log();
    EXPECT_TRUE(show.Seek(960));
    EXPECT_TRUE(show.Seek(1919));
    EXPECT_EQ("in cut 1920; in cut 1920", show.Log());
    EXPECT_EQ(480U, show.Tick());
    EXPECT_FALSE(show.Seek(1920));
    EXPECT_EQ("", show.Log());
}

TEST(Seek, WhileAFermataHolds_ReleasesIt) {
    FlowShow show("fermata 960..1920");
    show.PlayTo(1200);
    ASSERT_TRUE(show.Control().GetFermata());
    show.Seek(4800);
    EXPECT_FALSE(show.Control().GetFermata());
    EXPECT_EQ("lamp on; loop 960..1920; lamp off", show.Log());
}

TEST(Seek, IntoAFermata_Holds) {
    FlowShow show("fermata 960..1920; fermata 1200..2400");
    show.Seek(1440);
    EXPECT_TRUE(show.Control().GetFermata());
    EXPECT_EQ("Fermata 960..1920 1/0", show.Loops());
}

TEST(Seek, IntoACountdown_StacksTheCaesura) {
    FlowShow show("caesura 3840");
    show.Seek(2400);
    EXPECT_EQ(3840U, show.Control().GetFirstCaesuraStackTickIndex());
    EXPECT_EQ(3, show.Control().GetCaesuraCountdown());
    show.Seek(1919);
    EXPECT_EQ(0xFFFFFFFFU, show.Control().GetFirstCaesuraStackTickIndex());
}

TEST(Seek, OntoACaesura_StandsAtIt) {
    FlowShow show("caesura 3840");
    show.Seek(3840);
    EXPECT_EQ(3840U, show.Control().GetFirstCaesuraStackTickIndex());
    EXPECT_TRUE(show.Control().HasPendingCaesura());
    EXPECT_EQ(3840U, show.Control().GetCaesuraTickIndex());
    // Standing there, the next search plays on.
    EXPECT_EQ("to 4000", show.Search(3840, 4000));
}

TEST(Seek, OntoACaesuraAfterItsStop_ClearsTheStopAndShowsTheCaesura) {
    FlowShow show("caesura 3840");
    show.PlayTo(3840);
    show.Search(3840, 4800);
    show.Statuses();
    show.Control().OnCaesuraStop();
    EXPECT_FALSE(show.Control().HasPendingCaesura());
    EXPECT_EQ(0xFFFFFFFFU, show.Control().GetFirstCaesuraStackTickIndex());
    show.Statuses();
    // The status stays for as long as the playhead does.
    show.Search(3840, 4800);
    EXPECT_EQ("Caesura 0 @3840", show.Statuses());
    show.ArriveAt(4800);
    show.Search(4800, 5760);
    EXPECT_EQ("'' 0 @4800", show.Statuses());
}

TEST(Seek, AwayFromACaesura_NoLongerStandsAtIt) {
    FlowShow show("caesura 3840");
    show.Seek(3840);
    show.Seek(5760);
    EXPECT_FALSE(show.Control().HasPendingCaesura());
}

TEST(Seek, TellsTheDisplay) {
    FlowShow show;
    show.Seek(4800);
    EXPECT_EQ(4800U, GetGuiUpdate().GetTickIndex());
    EXPECT_EQ(4800U, show.Control().GetHowToPlay().GetTickIndex());
}

TEST(SeekSearch, SkippingCaesuras_LeavesTheOneAtTheTickAlone) {
    FlowShow show("caesura 3840");
    EXPECT_EQ(std::pair(false, 0U), show.Control().FindNextControlEventOnSeek(3840, true));
    EXPECT_FALSE(show.Control().HasPendingCaesura());
    EXPECT_EQ(std::pair(false, 0U), show.Control().FindNextControlEventOnSeek(3840, false));
    EXPECT_TRUE(show.Control().HasPendingCaesura());
}

TEST(SeekSearch, StopsAtTheFirstCutThatCoversTheTick) {
    FlowShow show("vamp 0..3840; cut 960..1920; vamp 1200..3840");
    EXPECT_EQ(std::pair(true, 1920U), show.Control().FindNextControlEventOnSeek(1500, false));
    EXPECT_EQ("Vamp 0..3840 1/0", show.Loops());
}

TEST(RecoverySeek, IntoACutThatEndsWhereAnotherBegins_LandsBehindBoth) {
    FlowShow show("cut 960..1920; cut 1920..2880");
    EXPECT_EQ(2880U, show.Control().RecoverySeek(1000));
    EXPECT_EQ(2880U, show.Tick());
    EXPECT_EQ(2880U, show.Control().GetLastSeekTickIndex());
    EXPECT_EQ(2880U, GetGuiUpdate().GetTickIndex());
    EXPECT_EQ("", show.Log());
}

TEST(RecoverySeek, BeforeTheSongsStart_GoesToTheStart) {
    FlowShow show("", 960);
    EXPECT_EQ(960U, show.Control().RecoverySeek(0));
}

TEST(RecoverySeek, UnlikeASeek_LeavesAHoldingFermataAndTheLoops) {
    FlowShow show("fermata 960..1920; vamp 960..1920");
    show.PlayTo(1200);
    show.Control().RecoverySeek(4800);
    EXPECT_TRUE(show.Control().GetFermata());
    EXPECT_EQ("Vamp 960..1920 1/0; Fermata 960..1920 1/0", show.Loops());
}

TEST(MarkerSteps, Left_SoonAfterAMarkerGoesToTheOneBefore) {
    FlowShow show("marker 0 A; marker 3000 B; marker 4500 C");
    struct Row {
        unsigned int position, target;
    };
    for (const Row& row :
         {Row{5000, 3000}, Row{6000, 4500}, Row{5459, 3000}, Row{5460, 4500}, Row{4500, 3000}, Row{3960, 3000}}) {
        show.ShowPosition(row.position);
        EXPECT_EQ(row.target, show.Control().GetSeekLeft()) << row.position;
    }
}

TEST(MarkerSteps, LeftNearTheSongsStart_WrapsToItsLastMarker) {
    FlowShow show("marker 3000 B; marker 4500 C");
    show.ShowPosition(500);
    EXPECT_EQ(4500U, show.Control().GetSeekLeft());
    show.ShowPosition(960);
    EXPECT_EQ(0U, show.Control().GetSeekLeft());
    show.ShowPosition(500);
    show.Control().SeekLeft();
    EXPECT_EQ(4500U, show.Tick());
}

TEST(MarkerSteps, Right_GoesToTheNextOne) {
    FlowShow show("marker 3000 B; marker 4500 C");
    show.ShowPosition(3000);
    EXPECT_EQ(4500U, show.Control().GetSeekRight());
    show.Control().SeekRight();
    EXPECT_EQ(4500U, show.Tick());
}

TEST(MarkerSteps, RightWithNoMarkerAhead_StaysQuietly) {
    FlowShow show("marker 3000 B");
    show.ShowPosition(3000);
    EXPECT_THROW(static_cast<void>(show.Control().GetSeekRight()), tavo_ext::NoNextMarker);
    show.Control().SeekRight();
    EXPECT_EQ(0U, show.Tick());
}

TEST(MeasureSteps, Left_SoonAfterABarLineGoesToTheBarBefore) {
    FlowShow show;
    struct Row {
        unsigned int position, target;
    };
    for (const Row& row : {Row{5000, 3840}, Row{4799, 1920}, Row{4800, 3840}, Row{3840, 1920}, Row{100, 0}}) {
        show.ShowPosition(row.position);
        EXPECT_EQ(row.target, show.Control().GetPreviousMeasureTickIndex()) << row.position;
    }
    show.ShowPosition(0);
    EXPECT_THROW(static_cast<void>(show.Control().GetPreviousMeasureTickIndex()), HowToPlay::SongBegin);
}

TEST(MeasureSteps, Right_GoesToTheNextBarLine) {
    FlowShow show;
    show.ShowPosition(1920);
    EXPECT_EQ(3840U, show.Control().GetNextMeasureTickIndex());
    show.ShowPosition(19 * 1920);
    EXPECT_THROW(static_cast<void>(show.Control().GetNextMeasureTickIndex()), HowToPlay::SongEnd);
}

TEST(Reset, LeavesThePlayheadAtTheStartWithNoLoops) {
    FlowShow show("vamp 1920..2880; fermata 1920..2880; caesura 7680", 960);
    show.Seek(2000);
    EXPECT_FALSE(show.Control().FullReset());
    EXPECT_EQ(960U, show.Tick());
    EXPECT_EQ("", show.Loops());
    EXPECT_FALSE(show.Control().GetFermata());
    EXPECT_EQ(960U, GetGuiUpdate().GetTickIndex());
}

TEST(Reset, LoopsThatCoverTheStart_AreRegistered) {
    FlowShow show("vamp 0..1920");
    show.Seek(4800);
    show.Control().FullReset();
    EXPECT_EQ("Vamp 0..1920 1/0", show.Loops());
}

TEST(Reset, OfTheVariablesOnly_ClearsTheJumpAndAFullOneMarksItAgain) {
    FlowShow show;
    show.Seek(4800);
    show.Control().ResetControlVariables();
    EXPECT_FALSE(show.Control().GetJump());
    EXPECT_EQ(0U, show.Control().GetLastSeekTickIndex());
    EXPECT_EQ(0U, show.Control().GetLastJumpTargetTickIndex());
    show.Control().FullReset();
    EXPECT_TRUE(show.Control().GetJump());
}

TEST(Reset, OfTheVariablesOnly_LeavesStandingAtACaesuraAndAttacca) {
    FlowShow show("caesura 3840; attacca");
    show.Seek(3840);
    ASSERT_TRUE(show.Control().HasPendingCaesura());
    show.Control().ResetControlVariables();
    EXPECT_TRUE(show.Control().HasPendingCaesura());
    EXPECT_TRUE(show.Control().GetAttacca());
    EXPECT_EQ(0U, show.Control().GetCaesuraTickIndex());
    EXPECT_EQ(0xFFFFFFFFU, show.Control().GetFirstCaesuraStackTickIndex());
}

TEST(Reset, WithACutOverTheStart_ReportsIt) {
    FlowShow show("cut 0..1920");
    EXPECT_TRUE(show.Control().FullReset());
    EXPECT_EQ("in cut 1920", show.Log());
}

TEST(ResetOfTheCaesura, KeepsADisplayThatBelongsToTheTick) {
    for (const bool keep : {true, false}) {
        FlowShow show("caesura 3840");
        show.PlayTo(3840);
        show.Search(3840, 4800);
        show.Control().OnCaesuraStop();
        show.Statuses();
        show.Control().ResetCaesuraState(keep ? 3840 : 3841);
        show.Search(3840, 3900);
        EXPECT_EQ(keep ? "Caesura 0 @3840" : "'' 0 @3840", show.Statuses());
    }
}

// A stop's own seek gives edits without length no second turn. Where it ends in a cut, the seek that moves the playhead
// to the cut's end is part of it.
TEST(Seek, AfterAStopsSeekEndedInACut_GivesEditsWithoutLengthAnotherTurn) {
    FlowShow show("cut 0..960; cut 1920..1920");
    show.Seek(1440);
    ASSERT_EQ("cut to 1920", show.Search(1920, 3840));
    ASSERT_EQ("to 3840", show.Search(1920, 3840));
    show.Control().OnCaesuraStop();  // seeks to 0; nobody moves the playhead out of the cut
    show.Seek(1440);
    EXPECT_EQ("cut to 1920", show.Search(1920, 3840));
}

TEST(Seek, ThatTakesAStopsSeekOutOfACut_IsPartOfIt) {
    FlowShow show("cut 0..960; cut 1920..1920");
    show.Seek(1440);
    ASSERT_EQ("cut to 1920", show.Search(1920, 3840));
    show.Control().OnCaesuraStop();
    show.Seek(960);
    EXPECT_EQ("to 3840", show.Search(1920, 3840));
    show.Seek(960);
    EXPECT_EQ("cut to 1920", show.Search(1920, 3840)) << "the one after it is the operator's again";
}
