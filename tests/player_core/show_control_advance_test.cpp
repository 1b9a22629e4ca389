// Playing on: what a song's edits make of the flow.

#include <gtest/gtest.h>

#include "tests/player_core/flow_show.h"

using test_support::FlowShow;

TEST(Advance, NothingAhead_GoesToThePlannedEnd) {
    FlowShow show;
    EXPECT_EQ("to 1000", show.Search(0, 1000));
    EXPECT_EQ("to 5", show.Search(5, 5));
}

TEST(Advance, EventAhead_StopsThere) {
    FlowShow show("vamp 960..1920");
    EXPECT_EQ("stop at 960", show.Search(0, 1920));
    EXPECT_EQ("to 960", show.Search(0, 960));
    EXPECT_EQ("to 900", show.Search(0, 900));
    EXPECT_EQ("loop at 960", show.Search(960, 1920));
    EXPECT_EQ("to 1920", show.Search(960, 1920));
}

TEST(Vamp, UntilReleased_GoesRound) {
    FlowShow show("vamp 960..1920");
    show.PlayTo(1920);
    EXPECT_EQ("lamp on; loop 960..1920; jump 960", show.Log());
    show.PlayTo(1920);
    EXPECT_EQ("jump 960", show.Log());
    EXPECT_EQ("Vamp 960..1920 3/0", show.Loops());
}

TEST(Vamp, ReleasedByTheOperator_RunsOnAtItsEnd) {
    FlowShow show("vamp 960..1920");
    show.PlayTo(1920);
    show.Log();
    show.Exit();
    EXPECT_EQ("lamp off", show.Log());
    show.PlayTo(3840);
    EXPECT_EQ("", show.Log());
    EXPECT_EQ(3840U, show.Tick());
}

TEST(Vamp, ReleasedInItsFirstPass_IsPlayedOnce) {
    FlowShow show("vamp 960..1920");
    show.PlayTo(1200);
    show.Exit();
    show.PlayTo(3840);
    EXPECT_EQ("lamp on; loop 960..1920; lamp off", show.Log());
}

TEST(Vamp, WithAMaximumCount_LeavesByItself) {
    FlowShow show("vamp 960..1920 max 3");
    show.PlayTo(1920);
    show.PlayTo(1920);
    EXPECT_EQ("lamp on; loop 960..1920; jump 960; jump 960", show.Log());
    show.PlayTo(3840);
    EXPECT_EQ("lamp off", show.Log());
    EXPECT_EQ("", show.Loops());
}

TEST(Vamp, PassesAreCountedInTheStatus) {
    FlowShow show("vamp 960..1920");
    show.PlayTo(1920);
    show.Search(960, 1920);
    EXPECT_EQ("Vamp 2 @960", show.Statuses());
}

TEST(Repeat, OfTwo_PlaysItsSectionTwice) {
    FlowShow show("repeat 960..1920 x2");
    show.PlayTo(1920);
    show.PlayTo(1920);
    EXPECT_EQ("loop 960..1920; jump 960", show.Log());
    EXPECT_EQ("", show.Loops());
    EXPECT_EQ(1920U, show.Tick());
}

TEST(Repeat, IsNotReleasedByTheOperator) {
    FlowShow show("repeat 960..1920 x3");
    show.PlayTo(1000);
    show.Exit();
    show.PlayTo(1920);
    EXPECT_EQ("loop 960..1920; jump 960", show.Log());
}

TEST(Repeat, ItsStatusNeedsNoLamp) {
    FlowShow show("repeat 960..1920 x2");
    show.PlayTo(960);
    show.Statuses();
    show.Search(960, 1920);
    EXPECT_EQ("Repeat 1 @960", show.Statuses());
    EXPECT_EQ("", show.Log());
}

TEST(NestedLoops, TheInnerOneGoesRoundInEveryPassOfTheOuter) {
    FlowShow show("repeat 0..3840 x2; repeat 960..1920 x2");
    show.PlayTo(5760);
    EXPECT_EQ("loop 960..1920; jump 960; jump 0; loop 960..1920; jump 960", show.Log());
}

TEST(NestedLoops, EndingTogether_AreDecidedInnermostFirst) {
    FlowShow show("repeat 0..1920 x2; repeat 960..1920 x2");
    show.PlayTo(1920);
    show.PlayTo(1920);
    // The inner one has had its passes: at the same place the outer one jumps.
    EXPECT_EQ("loop 960..1920; jump 960; jump 0", show.Log());
    show.PlayTo(1920);
    show.PlayTo(3840);
    EXPECT_EQ("loop 960..1920; jump 960", show.Log());
}

TEST(Repeat, WithACanceledVampInFront_TheFirstNodeGoesWhateverItsState) {
    FlowShow show("vamp 0..1000; repeat 0..960 x1");
    show.PlayTo(100);
    EXPECT_EQ("Repeat 0..960 1/1; Vamp 0..1000 1/0", show.Loops());
    // A canceled loop that ends sooner than the repeat leads the list.
    LoopEvent canceled(CL::Vamp(0, 500));
    canceled.canceled = true;
    show.Control().GetLoopEvents_().InsertLoopEvent(canceled);
    show.Control().SetTickIndex(400);
    show.Control().DoRepeatOff();
    EXPECT_EQ("Repeat 0..960 1/1; Vamp 0..1000 1/0", show.Loops());
    show.Control().DoRepeatOff();
    EXPECT_EQ("Vamp 0..1000 1/0", show.Loops());
}

TEST(Cut, IsSkipped) {
    FlowShow show("cut 960..1920");
    EXPECT_EQ("cut to 1920", show.Search(960, 3840));
    show.PlayTo(3840);
    EXPECT_EQ("cut 1920", show.Log());
    EXPECT_FALSE(show.Control().GetJump() && show.Control().GetJumpForVampRepeatOrCut());
}

TEST(Cut, BeforeACaesuraAtTheSameTick_TheCaesuraIsNotMet) {
    // The caesura's countdown begins at 960 and it ends behind the cut.
    FlowShow show("cut 960..1440; caesura 2880");
    EXPECT_EQ("cut to 1440", show.Search(960, 3840));
    EXPECT_EQ(0xFFFFFFFFU, show.Control().GetFirstCaesuraStackTickIndex());
}

TEST(Cut, BehindACaesuraAtTheSameTick_IsReportedAndTheCaesuraMet) {
    FlowShow show("cut 960..4800; caesura 2880");
    EXPECT_EQ("cut to 4800", show.Search(960, 3840));
    EXPECT_EQ(2880U, show.Control().GetFirstCaesuraStackTickIndex());
}

TEST(Loops, LastAtTheTickIsADuplicate_TheSearchSaysNothingOfTheOthers) {
    FlowShow show("vamp 960..1440; repeat 960..1920 x2");
    // The repeat is in the list already, for a seek went through it.
    show.Control().GetLoopEvents_().InsertLoopEvent(LoopEvent(CL::Repeat(960, 1920, 2)));
    EXPECT_EQ("to 1440", show.Search(960, 1440));
    EXPECT_EQ("Vamp 960..1440 1/0; Repeat 960..1920 1/2", show.Loops());
}

TEST(Fermata, Holds_ShowsAsASkipAndLightsTheLamp) {
    FlowShow show("fermata 960..1920");
    show.PlayTo(960);
    show.Statuses();
    show.Search(960, 1920);
    EXPECT_TRUE(show.Control().GetFermata());
    EXPECT_EQ("lamp on", show.Log());
    EXPECT_EQ("Skip 0 @960", show.Statuses());
}

TEST(Fermata, WhileOneHolds_NoOtherIsRegistered) {
    FlowShow show("fermata 960..1920; fermata 1440..2400");
    show.PlayTo(1500);
    EXPECT_EQ("Fermata 960..1920 1/0", show.Loops());
}

TEST(Fermata, AtItsEnd_Expires) {
    FlowShow show("fermata 960..1920");
    show.PlayTo(1920);
    EXPECT_EQ("lamp on; loop 960..1920; lamp off", show.Log());
    EXPECT_FALSE(show.Control().GetFermata());
    EXPECT_EQ("", show.Loops());
}

TEST(Fermata, Released_SeeksToItsEnd) {
    FlowShow show("fermata 960..1920");
    show.PlayTo(1200);
    show.Exit();
    EXPECT_EQ(1920U, show.Tick());
    EXPECT_FALSE(show.Control().GetFermata());
    EXPECT_EQ(1920U, show.Control().GetLastSeekTickIndex());
    EXPECT_EQ("lamp on; loop 960..1920; lamp off", show.Log());
    EXPECT_FALSE(show.Control().GetFermataCanceledCaesura());
}

TEST(Exit, FermataHoldingAndCaesuraPending_TheFermataGoesAndTheCaesuraWithIt) {
    FlowShow show("fermata 1440..1980; caesura 1920");
    show.PlayTo(1920);
    show.Search(1920, 3840);
    ASSERT_TRUE(show.Control().HasPendingCaesura());
    show.Exit();
    EXPECT_TRUE(show.Control().GetFermataCanceledCaesura());
    EXPECT_FALSE(show.Control().HasPendingCaesura());
    EXPECT_EQ(1980U, show.Tick());
    show.Control().ClearFermataCanceledCaesura();
    EXPECT_FALSE(show.Control().GetFermataCanceledCaesura());
}

TEST(Exit, VampEndingBehindTheCaesura_TheCaesuraIsDroppedFirst) {
    FlowShow show("vamp 1440..3840; caesura 2880");
    show.PlayTo(2000);
    EXPECT_EQ(2880U, show.Control().GetFirstCaesuraStackTickIndex());
    show.Exit();
    EXPECT_EQ(0xFFFFFFFFU, show.Control().GetFirstCaesuraStackTickIndex());
    EXPECT_EQ("Vamp 1440..3840 1/0", show.Loops());
    show.Exit();
    EXPECT_EQ("", show.Loops());
}

TEST(Exit, VampEndingBeforeTheCaesura_TheVampIsReleasedFirst) {
    FlowShow show("vamp 1440..2400; caesura 2880");
    show.PlayTo(2000);
    show.Exit();
    EXPECT_EQ("", show.Loops());
    EXPECT_EQ(2880U, show.Control().GetFirstCaesuraStackTickIndex());
    show.Exit();
    EXPECT_EQ(0xFFFFFFFFU, show.Control().GetFirstCaesuraStackTickIndex());
}

TEST(Exit, VampEndingAtTheCaesura_TheVampIsReleasedFirst) {
    FlowShow show("vamp 1440..2880; caesura 2880");
    show.PlayTo(2000);
    show.Exit();
    EXPECT_EQ("", show.Loops());
    EXPECT_EQ(2880U, show.Control().GetFirstCaesuraStackTickIndex());
}

TEST(Exit, WithNothingToLeave_ChangesNothing) {
    FlowShow show("repeat 960..1920 x2");
    show.PlayTo(500);
    show.Exit();
    EXPECT_EQ("", show.Log());
    EXPECT_EQ("", show.Loops());
}

TEST(Caesura, StopsPlaybackAfterItsCountdown) {
    FlowShow show("caesura 3840");
    show.PlayTo(5760);
    EXPECT_EQ("caesura 3840", show.Log());
    EXPECT_EQ(3840U, show.Tick());
    EXPECT_TRUE(show.Control().HasPendingCaesura());
    EXPECT_EQ(3840U, show.Control().GetCaesuraTickIndex());
}

TEST(Caesura, CountsDownBeatByBeat) {
    FlowShow show("caesura 3840");
    for (unsigned int beat = 1440; beat <= 3840; beat += 480) {
        show.PlayTo(beat);
        show.Search(beat, beat + 480);
    }
    EXPECT_EQ("'' 0 @1440; Caesura 4 @1920; Caesura 3 @2400; Caesura 2 @2880; Caesura 1 @3360; Caesura 0 @3840",
              show.Statuses());
}

TEST(Caesura, BetweenTheBeatsOfItsCountdown_NothingIsFiled) {
    FlowShow show("caesura 3840");
    show.PlayTo(1920);
    show.Search(1920, 2000);
    show.Statuses();
    show.ArriveAt(2000);
    show.Search(2000, 2400);
    EXPECT_EQ("", show.Statuses());
}

TEST(Caesura, AtTheSearchedTick_LeavesTheResultsTickAsItWas) {
    FlowShow show("caesura 3840");
    show.PlayTo(3840);
    const unsigned int before = show.Control().GetResult_().tickIndex;
    EXPECT_EQ("caesura", show.Search(3840, 5760));
    EXPECT_EQ(before, show.Control().GetResult_().tickIndex);
}

TEST(Caesura, StopPerformed_PlaybackStandsBehindItAndGoesOn) {
    FlowShow show("caesura 3840");
    show.PlayTo(5760);
    show.Statuses();
    show.Control().OnCaesuraStop();
    EXPECT_FALSE(show.Control().HasPendingCaesura());
    EXPECT_EQ(3840U, show.Tick());
    EXPECT_EQ(0xFFFFFFFFU, show.Control().GetFirstCaesuraStackTickIndex());
    show.Log();
    show.PlayTo(5760);
    EXPECT_EQ("", show.Log());
    EXPECT_EQ(5760U, show.Tick());
}

TEST(Caesura, BehindTheLoopBeingPlayed_DoesNotCountDownYet) {
    FlowShow show("repeat 960..2400 x2; caesura 3840");
    show.PlayTo(1920);
    show.Statuses();
    show.Search(1920, 2400);
    EXPECT_EQ("Repeat 1 @1920", show.Statuses());
    show.PlayTo(2400);
    show.PlayTo(2400);
    show.Statuses();
    show.Search(2400, 2880);
    EXPECT_EQ("Caesura 3 @2400", show.Statuses());
}

TEST(Caesura, InsideTheLoopBeingPlayed_CountsDown) {
    FlowShow show("repeat 960..4800 x2; caesura 3840");
    show.PlayTo(2880);
    show.Statuses();
    show.Search(2880, 3360);
    EXPECT_EQ("Caesura 2 @2880", show.Statuses());
}

TEST(Caesura, UnderAHoldingFermata_CountsDown) {
    FlowShow show("fermata 1440..2400; caesura 3840");
    show.PlayTo(1920);
    show.Statuses();
    show.Search(1920, 2400);
    EXPECT_EQ("Caesura 4 @1920", show.Statuses());
}

TEST(Caesura, MetTwice_StandsInTheStackOnce) {
    FlowShow show("caesura 3840");
    show.Search(1920, 2400);
    show.Search(1920, 2400);
    show.Exit();
    EXPECT_EQ(0xFFFFFFFFU, show.Control().GetFirstCaesuraStackTickIndex());
}

TEST(Caesura, LyingBehind_IsDroppedByTheNextSearch) {
    FlowShow show("caesura 3840");
    show.Search(1920, 2400);
    show.Search(3841, 4000);
    EXPECT_EQ(0xFFFFFFFFU, show.Control().GetFirstCaesuraStackTickIndex());
}

TEST(Caesura, NoneStacked_AnswersMinusOne) {
    FlowShow show;
    EXPECT_EQ(-1, show.Control().GetCaesuraCountdown());
    EXPECT_EQ(0xFFFFFFFFU, show.Control().GetFirstCaesuraStackTickIndex());
}

TEST(EndOfSong, IsAnnouncedInTheLastFourClicks) {
    FlowShow show;
    show.PlayTo(36000);  // five clicks before the end
    show.Statuses();
    show.Search(36000, 36480);
    EXPECT_EQ("'' 0 @36000", show.Statuses());
    show.ArriveAt(36480);
    show.Search(36480, 36960);
    EXPECT_EQ("EndOfSong 4 @36480", show.Statuses());
}

TEST(EndOfSong, OfAnAttaccaSong_IsAnnouncedAsTheAdvance) {
    FlowShow show("attacca");
    show.PlayTo(36480);
    show.Statuses();
    show.Search(36480, 36960);
    EXPECT_EQ("AdvanceAttacca 4 @36480", show.Statuses());
}

TEST(Attacca, SetForTheActiveSong_HoldsAndIsNotTakenBack) {
    FlowShow show;
    EXPECT_FALSE(show.Control().GetAttacca());
    show.Control().SetAttaccaState("1", 1);
    EXPECT_TRUE(show.Control().GetAttacca());
    EXPECT_TRUE(show.Control().SongIsAttacca("1"));
    for (const unsigned char state : {CL::AttaccaNormal, CL::AttaccaSkip}) {
        show.Control().SetAttaccaState("1", state);
        EXPECT_TRUE(show.Control().GetAttacca()) << int{state};
        EXPECT_FALSE(show.Control().SongIsAttacca("1"));
        EXPECT_EQ(state != 2, show.Control().SongIsNotSkip("1"));
    }
    show.Control().FullReset();
    EXPECT_TRUE(show.Control().GetAttacca());
    show.Control().LoadNewChangeLog();
    EXPECT_FALSE(show.Control().GetAttacca());
}

TEST(Attacca, OfAnUnknownSong_Throws) {
    FlowShow show;
    EXPECT_THROW(show.Control().SetAttaccaState("99", 1), std::out_of_range);
    EXPECT_THROW(static_cast<void>(show.Control().SongIsAttacca("99")), std::out_of_range);
}

TEST(Jump, IsMarkedUntilCleared) {
    FlowShow show("vamp 960..1920");
    show.Control().ClearJump();
    show.PlayTo(1920);
    EXPECT_TRUE(show.Control().GetJump());
    EXPECT_TRUE(show.Control().GetJumpForVampRepeatOrCut());
    EXPECT_EQ(1920U, show.Control().GetPreJumpTickIndex());
    EXPECT_EQ(960U, show.Control().GetLastJumpTargetTickIndex());
    show.Control().ClearJump();
    EXPECT_FALSE(show.Control().GetJump());
    EXPECT_TRUE(show.Control().GetJumpForVampRepeatOrCut());
    show.Seek(4800);
    EXPECT_TRUE(show.Control().GetJump());
    EXPECT_FALSE(show.Control().GetJumpForVampRepeatOrCut());
}

TEST(Jump, SkippingAhead_LeavesItsMarksAlone) {
    FlowShow show;
    show.Control().ClearJump();
    show.Control().DoSkipAhead(4800);
    EXPECT_FALSE(show.Control().GetJump());
    EXPECT_EQ(0U, show.Control().GetLastJumpTargetTickIndex());
    EXPECT_EQ(4800U, show.Tick());
    EXPECT_EQ(4800U, show.Control().GetHowToPlay().GetTickIndex());
}

TEST(Jump, Back_SweepsCanceledLoopsThatStartBehindTheTarget) {
    FlowShow show("repeat 0..3840 x2; vamp 960..1920");
    show.PlayTo(1000);
    show.Exit();
    show.PlayTo(3840);
    // The vamp that was left waits again in the second pass.
    show.Log();
    show.PlayTo(1920);
    EXPECT_EQ("lamp on; loop 960..1920; jump 960", show.Log());
}

TEST(Jump, OutOfACountdown_DropsItsCaesura) {
    FlowShow show("caesura 3840");
    show.Search(1920, 2400);
    show.Control().DoSkipAhead(1919);
    EXPECT_EQ(0xFFFFFFFFU, show.Control().GetFirstCaesuraStackTickIndex());
    show.Search(1920, 2400);
    show.Control().DoSkipAhead(3840);
    EXPECT_EQ(3840U, show.Control().GetFirstCaesuraStackTickIndex());
}

TEST(CutQuery, AnswersForACutThatBeginsExactlyThere) {
    FlowShow show("cut 960..1920; vamp 960..2880");
    unsigned int end = 7;
    EXPECT_FALSE(show.Control().HasCutAtTickIndex(959, &end));
    EXPECT_EQ(7U, end);
    EXPECT_TRUE(show.Control().HasCutAtTickIndex(960, &end));
    EXPECT_EQ(1920U, end);
    EXPECT_FALSE(show.Control().HasCutAtTickIndex(961, &end));
}

TEST(UsedUpVamp, WhileAFermataHolds_ReleasesTheFermata) {
    FlowShow show("vamp 960..1920 max 1; fermata 1440..2880");
    show.PlayTo(1920);
    EXPECT_EQ(2880U, show.Tick());
    EXPECT_FALSE(show.Control().GetFermata());
    EXPECT_EQ("", show.Loops());
}

TEST(EditWithoutLength, HasItsOneTurnAndPlaybackGoesOn) {
    for (const char* edits : {"cut 960..960", "vamp 960..960", "repeat 960..960 x3", "fermata 960..960",
                              "vamp 960..480", "cut 960..960; vamp 960..1920 max 1"}) {
        FlowShow show(edits);
        show.PlayTo(5760);
        EXPECT_EQ(5760U, show.Tick()) << edits;
    }
}

TEST(EditWithoutLength, LoopThatIsInTheList_JumpsOnce) {
    FlowShow show;
    show.Control().GetLoopEvents_().InsertLoopEvent(LoopEvent(CL::Vamp(960, 960)));
    show.Control().ClearJump();
    show.ArriveAt(960);
    EXPECT_TRUE(show.Control().GetJump());
    EXPECT_EQ("", show.Loops());
}

TEST(CutThatEndsBeforeItStarts, JumpsBackOnceAndIsThenPassed) {
    FlowShow show("cut 1920..960");
    show.PlayTo(5760);
    EXPECT_EQ("cut 960", show.Log());
    EXPECT_EQ(5760U, show.Tick());
}

TEST(Edits, ReplacedWhilePlaying_TheOldLogStaysAliveUntilFlowControlIsTold) {
    FlowShow show("vamp 960..1920; caesura 3840");
    show.PlayTo(1000);
    show.ChangeEdits("cut 2880..3840");
    EXPECT_EQ("", show.Loops());
    show.PlayTo(4800);
    EXPECT_EQ("lamp on; loop 960..1920; lamp off; cut 3840", show.Log());
}
