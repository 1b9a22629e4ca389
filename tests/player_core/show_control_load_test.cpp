// Loading: what a song's log becomes.

#include <gtest/gtest.h>

#include "tavo_core/active_change_log.h"
#include "tests/player_core/flow_show.h"

using test_support::FlowShow;

TEST(Load, VampAndCutAtOneTick_TheCutThatEndsSoonerLeads) {
    FlowShow show("vamp 960..1920; cut 960..1440");
    EXPECT_EQ("cut to 1440", show.Search(960, 1920));
    EXPECT_EQ("", show.Loops());
}

TEST(Load, CaesuraIsMetWhereItsCountdownBegins) {
    FlowShow show("caesura 2880");
    EXPECT_EQ("stop at 960", show.Search(0, 3840));
    EXPECT_EQ(0xFFFFFFFFU, show.Control().GetFirstCaesuraStackTickIndex());
    show.Search(960, 3840);
    EXPECT_EQ(2880U, show.Control().GetFirstCaesuraStackTickIndex());
    EXPECT_TRUE(show.Control().HasCaesuraAtTickIndex(2880));
    EXPECT_FALSE(show.Control().HasCaesuraAtTickIndex(960));
}

TEST(Load, CaesuraOfTheIgnoredVersion_IsNotThere) {
    FlowShow show("caesura 2880 target -1");
    EXPECT_FALSE(show.Control().HasCaesuraAtTickIndex(2880));
}

TEST(Load, EndsAndStartComeFromTheTimeline) {
    FlowShow show("", 960);
    EXPECT_EQ(960U, show.Control().GetStartTickIndex());
    EXPECT_EQ(960U + 20 * 1920U, show.Control().GetEndTickIndex());
}

TEST(Load, AttaccaFollowsTheSongsState) {
    EXPECT_TRUE(FlowShow("attacca").Control().GetAttacca());
    EXPECT_FALSE(FlowShow("skip").Control().GetAttacca());
    EXPECT_FALSE(FlowShow("").Control().GetAttacca());
}

TEST(Load, OfANewLog_ClearsTheJump) {
    FlowShow show;
    ASSERT_TRUE(show.Control().GetJump());
    show.Control().LoadNewChangeLog();
    EXPECT_FALSE(show.Control().GetJump());
    EXPECT_FALSE(show.Control().GetJumpForVampRepeatOrCut());
}

TEST(Load, OfAnUnknownSong_ThrowsAndKeepsTheLoadedOne) {
    FlowShow show("vamp 960..1920");
    show.GetPlayer().SetActiveSongNumber("99");
    EXPECT_THROW(show.Control().LoadSong(), std::out_of_range);
    EXPECT_EQ("loop at 960", show.Search(960, 1920));
}

TEST(Load, WithNoActiveLog_ThrowsAndKeepsTheOldEdits) {
    FlowShow show("vamp 960..1920");
    SetActiveChangeLog(nullptr);
    EXPECT_THROW(show.Control().LoadNewChangeLog(), std::logic_error);
    EXPECT_EQ("loop at 960", show.Search(960, 1920));
}

TEST(Load, WhileAFermataHolds_ItsEventOutlivesTheOldLog) {
    FlowShow show("fermata 960..1920");
    show.PlayTo(1200);
    show.ChangeEdits("");
    EXPECT_TRUE(show.Control().GetFermata());
    show.Exit();
    EXPECT_EQ(1920U, show.Tick());
}

TEST(Sounds, InRange_AreGivenFromTheFirstToTheSongsLast) {
    FlowShow show("ambient 50..60; ambient 150..160; ambient 300..310");
    const auto found = show.Control().GetAmbientSfxInTickRange_(100, 200);
    ASSERT_EQ(2U, found.size());
    EXPECT_EQ(150U, found[0]->start());
    EXPECT_EQ(300U, found[1]->start());
    EXPECT_TRUE(show.Control().GetAmbientSfxInTickRange_(60, 149).empty());
    EXPECT_EQ(1U, show.Control().GetAmbientSfxInTickRange_(300, 300).size());
    EXPECT_EQ(3U, show.Control().GetAmbientSfxInTickRange_(-1, 50).size());
}

TEST(Sounds, EffectsInRange_AreTracedWithLabelsThatRunIntoTheNumbers) {
    FlowShow show("sfx 50; sfx 150..170; sfx 300");
    testing::internal::CaptureStdout();
    const auto found = show.Control().GetSfxInTickRange_(100, 200);
    EXPECT_EQ(
        "Start Index100, End Index200\nSFX: 50 50\nResult: false\n"
        "Start Index100, End Index200\nSFX: 150 170\nResult: true\n"
        "Start Index100, End Index200\nSFX: 150 170\n"
        "Start Index100, End Index200\nSFX: 300 300\n",
        testing::internal::GetCapturedStdout());
    ASSERT_EQ(2U, found.size());
    EXPECT_EQ(150U, found[0]->start());
}

TEST(Sounds, NoEffectInRange_EveryOneLookedAtIsTraced) {
    FlowShow show("sfx 50; sfx 300");
    testing::internal::CaptureStdout();
    EXPECT_TRUE(show.Control().GetSfxInTickRange_(100, 200).empty());
    EXPECT_EQ(
        "Start Index100, End Index200\nSFX: 50 50\nResult: false\n"
        "Start Index100, End Index200\nSFX: 300 300\nResult: false\n",
        testing::internal::GetCapturedStdout());
}

TEST(Sounds, OscMessages_AreCopiedInOrder) {
    FlowShow show("osc 1920 /b; osc 960 /a");
    ASSERT_EQ(2U, show.Control().GetOscEvents_().size());
    EXPECT_EQ("/a", show.Control().GetOscEvents_()[0].address());
    show.Edits().GetOscs().RemoveAt(0);
    EXPECT_EQ("/a", show.Control().GetOscEvents_()[0].address());
}

TEST(Conductor, IsNotHere) {
    EXPECT_FALSE(FlowShow().Control().GetConductorMode());
}

TEST(Result, Reset_ClearsTheFlagsAndLeavesTheTick) {
    FindNextControlEventResult result{true, true, true, true, 42};
    result.Reset();
    EXPECT_FALSE(result.loopStartsHere || result.stopBeforeEnd || result.caesuraHere || result.cutHere);
    EXPECT_EQ(42U, result.tickIndex);
}
