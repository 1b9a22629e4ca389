#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "tavo_core/callback_dispatcher.h"
#include "tests/player_core/support/test_player.h"
#include "tests/player_core/support/test_show.h"
#include "tests/support/notification_log.h"

// What the display is told, pass by pass; the passes run on the test's own thread.

namespace {

using Lines = test_support::NotificationLog::Lines;
using test_support::TicksPerBar;
using test_support::TicksPerQuarter;

/// Eight bars of 4/4: a marker at the beginning and one at bar 3; bar 2 is played a tone higher, bar 4 at 90%; from bar
/// 5 on clicks are quavers; bar 6 is in 3/4 and begins page 2; bar 7 is at 60.
class Display : public ::testing::Test {
protected:
    Display() : player_(showData_), feed_(player_, position_) {
        tavo_midi::SongData song = test_support::MakeSong("1", 8, "Opening");
        song.GetTimeline().GetMeters().Append(TL::Meter(BarTick(6), 3, 4));
        song.GetTimeline().GetTempos().Append(TL::Tempo(BarTick(7), 1000000));
        song.GetTimeline().GetPageNums().Append(TL::PageNum(BarTick(6), 2));
        timeline_ = song.GetTimeline();
        songLog_.GetMarkers().Add(CL::Marker(0, "Intro"));
        songLog_.GetMarkers().Add(CL::Marker(BarTick(3), "Verse"));
        songLog_.GetTranspositions().Add(CL::Transposition(BarTick(2), BarTick(3), 2));
        songLog_.GetTempoScales().Add(CL::TempoScale(BarTick(4), BarTick(5), 0.9F));
        songLog_.GetClicks().Add(CL::Click(BarTick(5), BarTick(6), 4));
        notify::callbackDispatcher.AddCallback(this, notify::names::reportTargetTempo, [this](void* tempo) {
            targetTempos_.push_back(*static_cast<const double*>(tempo));
            if (onTargetTempo_) onTargetTempo_();
        });
    }
    ~Display() override { notify::callbackDispatcher.RemoveCallbacksForTarget(this); }

    static unsigned int BarTick(unsigned int bar) { return (bar - 1) * TicksPerBar; }

    Lines Pass(unsigned int tickIndex) {
        position_.tickIndex = tickIndex;
        feed_.RunOnePass_();
        return log_.Take();
    }
    /// Loads the song and shows it at `tickIndex`.
    void ShowAt(unsigned int tickIndex) {
        feed_.SetData(songLog_, timeline_, TicksPerQuarter);
        Pass(tickIndex);
        Pass(tickIndex);
        targetTempos_.clear();
    }

    tavo_midi::ShowData showData_;
    TL::Timeline timeline_;
    CL::SongLog songLog_;
    std::vector<double> targetTempos_;
    std::function<void()> onTargetTempo_;
    test_support::NotificationLog log_;
    test_support::TestPlayer player_;
    test_support::ReportedPosition position_;
    test_support::TestFeed feed_;
};

TEST_F(Display, FirstPassOfASong_ShowsEverythingInOrder) {
    feed_.SetData(songLog_, timeline_, TicksPerQuarter);
    EXPECT_EQ((Lines{"Playhead 0", "Marker 0 'Intro'", "SongTitle 'Opening'", "BarBeat '1:1'", "Meter '4/4'",
                     "StatusClickResolution 8", "Transposition 0", "Key 'C major'", "TempoScale '100%'", "Tempo '120'",
                     "PageNum 1"}),
              Pass(0));
    EXPECT_EQ(std::vector<double>{120}, targetTempos_);
}

TEST_F(Display, SongThatBeginsBeforeItsFirstMarker_ShowsAnEmptyOneAtThePlayhead) {
    songLog_.GetMarkers().RemoveAt(0);
    feed_.SetData(songLog_, timeline_, TicksPerQuarter);
    Pass(0);
    feed_.SetData(songLog_, timeline_, TicksPerQuarter);
    const Lines lines = Pass(960);
    ASSERT_LT(2U, lines.size());
    EXPECT_TRUE(lines[1].starts_with("Marker") && lines[1].ends_with("''")) << lines[1];
    EXPECT_EQ("SongTitle 'Opening'", lines[2]);
}

TEST_F(Display, WhereNothingChanges_OnlyThePlayheadIsSent) {
    ShowAt(0);
    EXPECT_EQ((Lines{"Playhead 0"}), Pass(0));
    EXPECT_EQ((Lines{"Playhead 479"}), Pass(479));
    EXPECT_EQ(std::vector<double>{}, targetTempos_);
}

TEST_F(Display, NewBeat_IsShown) {
    ShowAt(0);
    EXPECT_EQ((Lines{"Playhead 480", "BarBeat '1:2'"}), Pass(480));
}

TEST_F(Display, NewMeter_IsShownWithItsClickEvenIfThatIsTheSame) {
    songLog_.GetClicks().RemoveAt(0);
    ShowAt(BarTick(6) - 1);
    EXPECT_EQ((Lines{"Playhead 9600", "BarBeat '6:1'", "Meter '3/4'", "StatusClickResolution 8", "PageNum 2"}),
              Pass(BarTick(6)));
}

TEST_F(Display, NewClick_IsShownWithoutTheMeter) {
    ShowAt(BarTick(5) - 1);
    Lines lines = Pass(BarTick(5));
    std::erase_if(lines, [](const std::string& line) { return line.starts_with("Tempo"); });
    EXPECT_EQ((Lines{"Playhead 7680", "BarBeat '5:1'", "StatusClickResolution 4"}), lines);
}

TEST_F(Display, NewTransposition_BringsTheKeyWithIt) {
    ShowAt(BarTick(2) - 1);
    EXPECT_EQ((Lines{"Playhead 1920", "BarBeat '2:1'", "Transposition 2", "Key 'D major'"}), Pass(BarTick(2)));
}

TEST_F(Display, NewTempoScale_BringsTheTempoAndTheTargetTempo) {
    ShowAt(BarTick(4) - 1);
    EXPECT_EQ((Lines{"Playhead 5760", "BarBeat '4:1'", "TempoScale '90%'", "Tempo '108'"}), Pass(BarTick(4)));
    ASSERT_EQ(1U, targetTempos_.size());
    EXPECT_NEAR(108, targetTempos_[0], 1e-4);
}

TEST_F(Display, OperatorsTempoScale_IsShownInTheNextPass) {
    ShowAt(0);
    player_.SetTempoScale(1.5);
    EXPECT_EQ((Lines{"Playhead 1", "TempoScale '150%'", "Tempo '180'"}), Pass(1));
    EXPECT_EQ(std::vector<double>{180}, targetTempos_);
}

TEST_F(Display, NewTempoAlone_BringsTheTargetTempo) {
    ShowAt(BarTick(7) - 1);
    const Lines lines = Pass(BarTick(7));
    EXPECT_EQ("Tempo '60'", lines.back());
    EXPECT_EQ(0, std::ranges::count_if(lines, [](const auto& line) { return line.starts_with("TempoScale"); }));
    EXPECT_EQ(std::vector<double>{60}, targetTempos_);
}

TEST_F(Display, NewMarker_IsShownAtItsOwnTick) {
    ShowAt(BarTick(3) - 1);
    const Lines lines = Pass(BarTick(3) + 10);
    EXPECT_EQ("Marker 3840 'Verse'", lines.back());
}

TEST_F(Display, WhatWasPostedBeforeTheTargetTempo_ArrivesWhileItsCallbackWaits) {
    bool hasArrived = true;
    onTargetTempo_ = [&] { hasArrived = log_.WaitFor("Tempo '120'"); };
    // More than once: a dispatcher that is not asleep yet needs nobody to wake it.
    for (int round = 0; round < 20 && hasArrived; ++round) {
        hasArrived = false;
        feed_.SetData(songLog_, timeline_, TicksPerQuarter);
        Pass(0);
    }
    EXPECT_TRUE(hasArrived);
}

TEST_F(Display, TargetTempoIsReportedWithTheFeedsMutexFree) {
    bool wasFree = false;
    onTargetTempo_ = [&] {
        std::thread other([&] {
            wasFree = feed_.GetMutex().try_lock();
            if (wasFree) feed_.GetMutex().unlock();
        });
        other.join();
    };
    feed_.SetData(songLog_, timeline_, TicksPerQuarter);
    Pass(0);
    EXPECT_TRUE(wasFree);
}

TEST_F(Display, PassNeverSendsTheTargetTempoAsAStatus) {
    feed_.SetData(songLog_, timeline_, TicksPerQuarter);
    Lines lines;
    for (unsigned int tick = 0; tick < 8 * TicksPerBar; tick += 120) {
        for (const std::string& line : Pass(tick))
            lines.push_back(line);
    }
    EXPECT_EQ(0, std::ranges::count_if(lines, [](const auto& line) { return line.starts_with("StatusTargetTempo"); }));
    EXPECT_FALSE(targetTempos_.empty());
}

// After a seek or a reset the display goes back to its neutral values.

TEST_F(Display, PassAfterASeek_RestoresTheNeutralDisplayOnce) {
    ShowAt(480);
    feed_.Seek(960);
    EXPECT_EQ((Lines{"Playhead 960", "BarBeat '1:3'", "Transposition 0", "TempoScale '100%'", "Marker 960 ''"}),
              Pass(960));
    EXPECT_EQ((Lines{"Playhead 970"}), Pass(970));
}

TEST_F(Display, PassAfterAReset_RestoresTheNeutralDisplayOnce) {
    ShowAt(480);
    feed_.ResetAndSeekToTickIndex(960);
    EXPECT_EQ((Lines{"Playhead 960", "BarBeat '1:3'", "Transposition 0", "TempoScale '100%'", "Marker 960 ''"}),
              Pass(960));
    EXPECT_EQ((Lines{"Playhead 970"}), Pass(970));
}

TEST_F(Display, SeekWithinATransposedBar_ShowsZeroAlthoughTheTranspositionHolds) {
    ShowAt(BarTick(2));
    feed_.Seek(BarTick(2) + 480);
    EXPECT_EQ((Lines{"Playhead 2400", "BarBeat '2:2'", "Transposition 0", "TempoScale '100%'", "Marker 2400 ''"}),
              Pass(BarTick(2) + 480));
}

TEST_F(Display, SeekIntoRealChanges_ShowsThemInsteadOfTheNeutralValues) {
    ShowAt(0);
    feed_.Seek(BarTick(2));
    EXPECT_EQ((Lines{"Playhead 1920", "BarBeat '2:1'", "Transposition 2", "Key 'D major'", "TempoScale '100%'",
                     "Marker 1920 ''"}),
              Pass(BarTick(2)));
    feed_.Seek(BarTick(4));
    const Lines lines = Pass(BarTick(4));
    EXPECT_EQ(1, std::ranges::count(lines, "TempoScale '90%'"));
    EXPECT_EQ(0, std::ranges::count(lines, "TempoScale '100%'"));
    EXPECT_EQ(1, std::ranges::count(lines, "Marker 3840 'Verse'"));
    EXPECT_EQ(1, std::ranges::count(lines, "Transposition 0"));
}

TEST_F(Display, SeekToANewTempo_ShowsItAndTheNeutralScale) {
    ShowAt(0);
    feed_.Seek(BarTick(7));
    const Lines lines = Pass(BarTick(7));
    const auto tempo = std::ranges::find(lines, "Tempo '60'");
    ASSERT_NE(lines.end(), tempo);
    ASSERT_NE(lines.end(), tempo + 1);
    EXPECT_EQ("TempoScale '100%'", *(tempo + 1));
    EXPECT_EQ(std::vector<double>{60}, targetTempos_);
}

// The full refresh.

TEST_F(Display, FullRefresh_SendsEverythingWhateverChanged) {
    ShowAt(BarTick(4));
    const Lines whole{"Playhead 5760", "Marker 3840 'Verse'",     "SongTitle 'Opening'",   "BarBeat '4:1'",
                      "Meter '4/4'",   "StatusClickResolution 8", "Key 'C major'",         "Transposition 0",
                      "Tempo '108'",   "TempoScale '90%'",        "StatusTargetTempo 108", "PageNum 1"};
    for (int times = 0; times < 2; ++times) {
        feed_.UpdateAll();
        EXPECT_EQ(whole, log_.Take());
    }
}

TEST_F(Display, FullRefreshWhereNoMarkerIs_ShowsAnEmptyOneAtThePlayhead) {
    songLog_.GetMarkers().RemoveAt(0);
    ShowAt(960);
    feed_.UpdateAll();
    EXPECT_EQ((Lines{"Marker 960 ''"}), log_.TakeOnly("Marker"));
}

TEST_F(Display, FullRefresh_ReportsNoTargetTempo) {
    ShowAt(0);
    player_.SetTempoScale(0.75);
    feed_.UpdateAll();
    EXPECT_EQ(std::vector<double>{}, targetTempos_);
}

TEST_F(Display, FullRefresh_SendsTheStatusesThatAreDue) {
    ShowAt(960);
    feed_.AddFutureStatusFlowControl("Vamp", 1, 970);
    feed_.AddFutureStatusFlowControl("Vamp", 2, 981);
    position_.tickIndex = 980;
    feed_.UpdateAll();
    EXPECT_EQ((Lines{"StatusFlowControl 'Vamp' 1"}), log_.TakeOnly("StatusFlowControl"));
}

// Statuses.

TEST_F(Display, Statuses_FollowEverythingElseOfThePass) {
    ShowAt(0);
    feed_.AddFutureStatusFlowControl("Repeat", 1, 480);
    EXPECT_EQ((Lines{"Playhead 480", "BarBeat '1:2'", "StatusFlowControl 'Repeat' 1"}), Pass(480));
}

TEST_F(Display, Seek_DropsTheFiledStatuses) {
    ShowAt(0);
    feed_.AddFutureStatusFlowControl("Repeat", 1, 500);
    feed_.Seek(480);
    Pass(510);
    EXPECT_EQ((Lines{"Playhead 520"}), Pass(520));
}

TEST_F(Display, Reset_SendsTheStatusesUpToItsTickAtOnce) {
    ShowAt(0);
    feed_.AddFutureStatusFlowControl("Repeat", 1, 500);
    feed_.AddFutureStatusFlowControl("Vamp", 1, 600);
    feed_.ResetAndSeekToTickIndex(550);
    EXPECT_EQ((Lines{"StatusFlowControl 'Repeat' 1"}), log_.Take());
}

TEST_F(Display, Reset_DropsACaesurasPendingZero) {
    ShowAt(0);
    feed_.AddFutureStatusFlowControl("Caesura", 0, 960);
    feed_.AddFutureStatusFlowControl("EndOfSong", 3, 960);
    feed_.ResetAndSeekToTickIndex(480);
    Pass(960);
    feed_.AddFutureStatusFlowControl("", 0, 970);
    EXPECT_EQ((Lines{"Playhead 970", "StatusFlowControl '' 0"}), Pass(970));
}

TEST_F(Display, SignalWithoutCaesura_WithdrawsTheZeroAtItsTick) {
    ShowAt(0);
    feed_.AddFutureStatusFlowControl("Caesura", 0, 100);
    feed_.AddFutureStatusFlowControl("Caesura", 0, 200);
    feed_.SendGuiUpdateWithoutCaesura(100);
    position_.tickIndex = 150;
    feed_.UpdateAll();
    EXPECT_EQ(Lines{}, log_.TakeOnly("StatusFlowControl"));
    position_.tickIndex = 250;
    feed_.UpdateAll();
    EXPECT_EQ((Lines{"StatusFlowControl 'Caesura' 0"}), log_.TakeOnly("StatusFlowControl"));
}

// The playhead.

TEST_F(Display, Playhead_IsSentInEveryPass) {
    Pass(7);
    EXPECT_EQ((Lines{"Playhead 7"}), [this] {
        Pass(7);
        return Pass(7);
    }());
}

TEST_F(Display, WithoutAReportedPosition_ThePassRunsWhereThePlayheadWas) {
    ShowAt(470);
    position_.available = false;
    feed_.AddFutureStatusFlowControl("Vamp", 1, 470);
    feed_.Seek(960);
    EXPECT_EQ("Playhead 960", Pass(5000).front());
    EXPECT_EQ(960U, feed_.GetTickIndex());
}

TEST_F(Display, PositionFromTheFarSideOfASeek_IsShownButNotKept) {
    ShowAt(1000);
    feed_.Seek(5000);
    EXPECT_EQ("Playhead 1200", Pass(1200).front());
    EXPECT_EQ(5000U, feed_.GetTickIndex());
}

TEST_F(Display, ForwardSeek_IgnoresPositionsBeforeItsTarget) {
    feed_.SetTickIndex_(1000);
    feed_.Seek(5000);
    EXPECT_EQ(5000U, feed_.SetTickIndex_(1200));
    EXPECT_EQ(5000U, feed_.SetTickIndex_(4990));
    EXPECT_EQ(5000U, feed_.SetTickIndex_(5000));
    EXPECT_EQ(1200U, feed_.SetTickIndex_(1200));
}

TEST_F(Display, ForwardSeek_AcceptsAPositionBeyondItsTarget) {
    feed_.SetTickIndex_(1000);
    feed_.Seek(5000);
    EXPECT_EQ(5300U, feed_.SetTickIndex_(5300));
    EXPECT_EQ(5290U, feed_.SetTickIndex_(5290));
}

TEST_F(Display, BackwardSeek_ComparesWithWhereItLeft) {
    feed_.SetTickIndex_(5000);
    feed_.Seek(1000);
    EXPECT_EQ(1000U, feed_.SetTickIndex_(5100));
    EXPECT_EQ(1000U, feed_.SetTickIndex_(5001));
    EXPECT_EQ(4990U, feed_.SetTickIndex_(4990));
    EXPECT_EQ(5100U, feed_.SetTickIndex_(5100));
}

TEST_F(Display, BackwardSeek_AcceptsThePositionItLeft) {
    feed_.SetTickIndex_(5000);
    feed_.Seek(1000);
    EXPECT_EQ(5000U, feed_.SetTickIndex_(5000));
}

TEST_F(Display, SeekToThePlayheadItself_CountsAsBackward) {
    feed_.SetTickIndex_(5000);
    feed_.Seek(5000);
    EXPECT_EQ(5000U, feed_.SetTickIndex_(5001));
    EXPECT_EQ(4000U, feed_.SetTickIndex_(4000));
}

TEST_F(Display, SecondSeekBeforePlaybackFollows_LeavesFromTheFirstTarget) {
    feed_.SetTickIndex_(5000);
    feed_.Seek(1000);
    feed_.Seek(3000);
    EXPECT_EQ(3000U, feed_.SetTickIndex_(2000));
    EXPECT_EQ(3000U, feed_.SetTickIndex_(3000));
}

TEST_F(Display, Reset_ForgetsPlayheadAndSeek) {
    feed_.SetTickIndex_(5000);
    feed_.Seek(9000);
    feed_.Reset();
    EXPECT_EQ(0U, feed_.GetTickIndex());
    EXPECT_EQ(1200U, feed_.SetTickIndex_(1200));
    // The neutral display that the seek asked for is forgotten, too.
    ShowAt(960);
    EXPECT_EQ((Lines{"Playhead 970"}), Pass(970));
}

TEST_F(Display, ResetAndSeek_AcceptsAnyReportedPositionAfterwards) {
    feed_.SetTickIndex_(5000);
    feed_.ResetAndSeekToTickIndex(9000);
    EXPECT_EQ(9000U, feed_.GetTickIndex());
    EXPECT_EQ(1200U, feed_.SetTickIndex_(1200));
}

TEST_F(Display, UseCurrentPosition_IsTrueOnceAfterUpdateOnce) {
    EXPECT_FALSE(feed_.UseCurrentPosition());
    feed_.UpdateOnce();
    feed_.UpdateOnce();
    EXPECT_TRUE(feed_.UseCurrentPosition());
    EXPECT_FALSE(feed_.UseCurrentPosition());
    feed_.UpdateOnce();
    feed_.Reset();
    EXPECT_FALSE(feed_.UseCurrentPosition());
}

TEST_F(Display, SendGuiUpdate_DoesNotAskForTheCurrentPosition) {
    feed_.SendGuiUpdate();
    feed_.SendGuiUpdateWithTickIndex(10);
    EXPECT_FALSE(feed_.UseCurrentPosition());
}

TEST_F(Display, QueuedPositions_MoveNothing) {
    ShowAt(960);
    feed_.Pause();
    feed_.SendGuiUpdateWithTickIndex(5000);
    EXPECT_EQ(960U, feed_.GetTickIndex());
}

TEST_F(Display, EmptyPositionFunction_ThrowsOnWhoeverAsks) {
    gui::GuiUpdate feed(player_, nullptr);
    EXPECT_THROW(feed.UpdateAll(), std::bad_function_call);
}

}  // namespace
