#include "player_core/player.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tavo_core/callback_dispatcher.h"
#include "tavo_midi/how_to_play.h"
#include "tests/player_core/support/the_player.h"

namespace {

using Calls = std::vector<std::string>;
using test_support::ThePlayer;
using test_support::TicksPerBar;
using enum PlayerState;

TEST_F(ThePlayer, StatesAreSingleBits_AndFadedCountsAsPlaying) {
    struct {
        PlayerState state;
        int value;
        bool isPlaying, isStopped;
    } const rows[] = {
        {Stopped, 1, false, true}, {Playing, 2, true, false}, {Paused, 4, false, false}, {Faded, 8, true, false}};
    static_assert(sizeof(PlayerState) == 1);
    for (const auto& row : rows) {
        player_->SetPlayerState(row.state);
        EXPECT_EQ(row.value, static_cast<int>(player_->GetPlayerState()));
        EXPECT_EQ(row.isPlaying, player_->IsPlaying()) << row.value;
        EXPECT_EQ(row.isStopped, player_->IsStopped()) << row.value;
    }
}

TEST_F(ThePlayer, NewOne_IsStoppedAndUntouched) {
    test_support::TestPlayer player(showData_);
    EXPECT_EQ(Stopped, player.GetPlayerState());
    EXPECT_FALSE(player.IsPlaying());
    EXPECT_TRUE(player.IsStopped());
    EXPECT_FALSE(player.IsResetting());
    EXPECT_FALSE(player.GetUserCanceledCaesura());
    EXPECT_FALSE(player.GetNewChangeLogLoaded());
    EXPECT_EQ("", player.GetActiveSongNumberRef().Get());
    EXPECT_EQ(1.0, player.GetUserControls().GetTempoScale());
    EXPECT_EQ(0, player.GetUserControls().GetTransposition());
}

TEST_F(ThePlayer, IsResetting_ReadsAsWritten) {
    player_->IsResetting(true);
    EXPECT_TRUE(player_->IsResetting());
    player_->IsResetting(false);
    EXPECT_FALSE(player_->IsResetting());
}

TEST_F(ThePlayer, UserControls_AreTheOperators) {
    player_->SetTempoScale(0.8);
    player_->SetTransposition(-3);
    EXPECT_EQ(0.8, player_->GetUserControls().GetTempoScale());
    EXPECT_EQ(-3, player_->GetUserControls().GetTransposition());
}

TEST_F(ThePlayer, ActiveSongNumber_IsTheSongThatWasLoaded) {
    player_->LoadSong("2");
    EXPECT_EQ("2", player_->GetActiveSongNumberRef().Get());
}

TEST_F(ThePlayer, TickIndex_IsThatOfTheDisplay) {
    PutPlayheadAt(1234);
    EXPECT_EQ(1234U, player_->GetTickIndex());
}

// Volume and fade.

class PlayerWithVolume : public test_support::TestPlayer {
public:
    using Player::GetVolume;
    using Player::SetVolume;
    using TestPlayer::TestPlayer;
    bool SetVolume(double volume, tavo_audio::VolumeType type) override {
        volumes[type] = volume;
        return true;
    }
    double GetVolume(tavo_audio::VolumeType type) override { return volumes[type]; }

    std::map<int, double> volumes;
};

TEST_F(ThePlayer, WithoutAVolume_EverythingIsAtFullAndNothingCanBeSet) {
    EXPECT_EQ(1.0, player_->GetVolume());
    for (const auto type : {tavo_audio::Synth, tavo_audio::Master, tavo_audio::Click, tavo_audio::Effects}) {
        EXPECT_EQ(1.0, player_->GetVolume(type));
        EXPECT_FALSE(player_->SetVolume(0.5, type));
    }
    EXPECT_FALSE(player_->SetVolume(0.5));
    EXPECT_EQ(1.0, player_->GetVolume());
}

TEST_F(ThePlayer, VolumeWithoutAType_IsTypeOne) {
    PlayerWithVolume player(showData_);
    EXPECT_TRUE(player.SetVolume(0.5));
    EXPECT_EQ((std::map<int, double>{{1, 0.5}}), player.volumes);
    EXPECT_EQ(0.5, player.GetVolume());
}

TEST_F(ThePlayer, Fade_RefusesAndForgetsWhatWasToFollow) {
    auto token = std::make_shared<int>(0);
    bool called = false;
    try {
        player_->Fade([token, &called] { called = true; }, 2.0F);
        FAIL() << "faded";
    } catch (const std::logic_error& error) {
        EXPECT_STREQ("Fade not implemented in this player.", error.what());
    }
    EXPECT_FALSE(called);
    EXPECT_EQ(1, token.use_count());
}

TEST_F(ThePlayer, CancelFade_DoesNothingByItself) {
    player_->SetPlayerState(Faded);
    EXPECT_EQ("", CallsOf([this] { player_->Player::CancelFade(); }));
    EXPECT_EQ(Faded, player_->GetPlayerState());
}

// Leaving a vamp.

TEST_F(ThePlayer, FlowControlExitWhileFaded_MayMeetReadersOfTheState) {
    // The state is written without its mutex there: readers see the old or the new one.
    player_->SetPlayerState(Faded);
    std::atomic<bool> done{false};
    std::thread reader([&] {
        while (!done)
            (void)player_->IsPlaying();
    });
    player_->FlowControlExit();
    done = true;
    reader.join();
    EXPECT_EQ(Playing, player_->GetPlayerState());
}

// Caesuras.

TEST_F(ThePlayer, UserCancelCaesura_WithoutAPendingOne_ChangesNothing) {
    player_->UserCancelCaesura();
    EXPECT_FALSE(player_->GetUserCanceledCaesura());
}

TEST_F(ThePlayer, UserCancelCaesura_WithAPendingOne_IsRememberedUntilAReset) {
    PutPlayheadAt(CaesuraTick);
    ASSERT_TRUE(player_->HasPendingCaesura());
    const std::pair<const char*, std::function<void()>> resets[] = {
        {"recovery", [this] { player_->ResetForRecovery(); }},
        {"recovery while advancing", [this] { player_->ResetForRecoveryAdvance(); }},
        {"reset", [this] { player_->ResetPlayerNoFillBuffers(); }},
    };
    for (const auto& [name, reset] : resets) {
        player_->UserCancelCaesura();
        EXPECT_TRUE(player_->GetUserCanceledCaesura()) << name;
        reset();
        EXPECT_FALSE(player_->GetUserCanceledCaesura()) << name;
    }
}

TEST_F(ThePlayer, GuiNotifyCaesura_TellsWherePlaybackStopped) {
    PutPlayheadAt(CaesuraTick);
    EXPECT_EQ("Caesura 7680", CallsOf([this] { player_->GUINotifyCaesura(); }));
}

TEST_F(ThePlayer, FermataReleasedWithACaesuraPending_SaysSo) {
    PutPlayheadAt(CaesuraTick);
    player_->SetPlayerState(Playing);
    ASSERT_TRUE(player_->HasPendingCaesura());
    EXPECT_FALSE(player_->GetFermataCanceledCaesura());
    player_->FlowControlExit();
    EXPECT_TRUE(player_->GetFermataCanceledCaesura());
    EXPECT_FALSE(player_->HasPendingCaesura());
}

// Jumps and attacca.

TEST_F(ThePlayer, Jumps_AreThoseOfFlowControl) {
    player_->ClearJump();
    EXPECT_FALSE(player_->GetJump());
    player_->GetShowControl().Seek(0);
    EXPECT_TRUE(player_->GetJump());
    EXPECT_FALSE(player_->GetJumpForVampRepeatOrCut());
    player_->ClearJump();
    PutPlayheadAt(VampStart);
    player_->GetShowControl().SetTickIndex(VampEnd);
    player_->GetShowControl().ProcessLoopEventsAtCurrentTickIndex();
    EXPECT_TRUE(player_->GetJump());
    EXPECT_TRUE(player_->GetJumpForVampRepeatOrCut());
}

TEST_F(ThePlayer, SongIsAttacca_WhenItsByteIsOne) {
    for (const auto& [attacca, expected] : {std::pair{0, false}, {1, true}, {2, false}}) {
        player_->SetAttaccaState("1", static_cast<unsigned char>(attacca));
        EXPECT_EQ(expected, player_->CurrentSongIsAttacca()) << attacca;
        EXPECT_EQ(attacca, changeLog_->GetSongLog("1").GetAttacca());
    }
    player_->SetAttaccaState("2", 1);
    EXPECT_FALSE(player_->CurrentSongIsAttacca());
}

// Cuts and change logs.

TEST_F(ThePlayer, MovePlayheadOutOfCut_LeavesFromTheCutsStartIfThePlayheadIsInside) {
    const auto mapTick = [](unsigned int tickIndex) { return tickIndex * 10; };
    for (const auto& [playhead, expected] : std::vector<std::pair<unsigned int, std::string>>{
             {99, ""}, {100, "Seek 1000"}, {150, "Seek 1000"}, {199, "Seek 1000"}, {200, ""}}) {
        PutPlayheadAt(playhead);
        EXPECT_EQ(expected, CallsOf([&] { player_->MovePlayheadOutOfCut(100, 200, mapTick); })) << playhead;
    }
}

TEST_F(ThePlayer, MovePlayheadOutOfCut_WithoutAMapping_ThrowsInsideOnly) {
    PutPlayheadAt(99);
    EXPECT_NO_THROW(player_->MovePlayheadOutOfCut(100, 200, nullptr));
    PutPlayheadAt(100);
    EXPECT_THROW(player_->MovePlayheadOutOfCut(100, 200, nullptr), std::bad_function_call);
}

TEST_F(ThePlayer, LoadNewChangeLog_WithoutAMapping_ThrowsAfterAllOtherSteps) {
    EXPECT_EQ("StopIfPlaying; HaltOutput; ResetPlayerNoFillBuffers",
              CallsOf([this] { EXPECT_THROW(player_->LoadNewChangeLog(nullptr), std::bad_function_call); }));
    EXPECT_TRUE(player_->GetNewChangeLogLoaded());
}

TEST_F(ThePlayer, LoadNewChangeLog_MapsThePlayheadFromBeforeEverythingStopped) {
    PutPlayheadAt(960);
    EXPECT_EQ("StopIfPlaying; HaltOutput; ResetPlayerNoFillBuffers; Seek 960",
              CallsOf([this] { player_->LoadNewChangeLog([](unsigned int tickIndex) { return tickIndex; }); }));
}

TEST_F(ThePlayer, NewChangeLogLoaded_StaysUntilTheConcretePlayerTakesIt) {
    player_->LoadNewChangeLog([](unsigned int tickIndex) { return tickIndex; });
    EXPECT_TRUE(player_->GetNewChangeLogLoaded());
    player_->NotifyNewChangeLog();
    player_->ResetPlayerNoFillBuffers();
    EXPECT_TRUE(player_->TakeNewChangeLogLoaded());
    EXPECT_FALSE(player_->TakeNewChangeLogLoaded());
    EXPECT_FALSE(player_->GetNewChangeLogLoaded());
}

TEST_F(ThePlayer, NotifyNewChangeLog_IsNoLoad) {
    player_->NotifyNewChangeLog();
    EXPECT_FALSE(player_->GetNewChangeLogLoaded());
}

TEST_F(ThePlayer, NewChangeLog_ReachesFlowControl) {
    PutPlayheadAt(960);
    ASSERT_TRUE(player_->GetShowControl().HoldsVamp());
    changeLog_ = test_support::MakeChangeLog(showData_);
    SetActiveChangeLog(changeLog_);
    player_->LoadNewChangeLog([](unsigned int tickIndex) { return tickIndex; });
    PutPlayheadAt(960);
    EXPECT_FALSE(player_->GetShowControl().HoldsVamp());
}

TEST_F(ThePlayer, Reset_BringsFlowControlToTheSongsStart) {
    PutPlayheadAt(960);
    player_->ResetPlayerNoFillBuffers();
    EXPECT_EQ(0U, player_->GetShowControl().GetTickIndex());
    EXPECT_FALSE(player_->GetShowControl().HoldsVamp());
}

// Steps by measure.

TEST_F(ThePlayer, StepBeyondTheLastMeasure_EndsQuietly) {
    PutPlayheadAt(15 * TicksPerBar + 100);
    EXPECT_EQ("", CallsOf([this] { player_->SeekToNextMeasure(); }));
}

TEST_F(ThePlayer, StepBeforeTheFirstMeasure_EndsQuietly) {
    player_->onSeek = [] { throw HowToPlay::SongBegin(); };
    PutPlayheadAt(0);
    EXPECT_EQ("", CallsOf([this] { player_->SeekToPreviousMeasure(); }));
}

TEST_F(ThePlayer, MeasureSteps_CatchTheEndInTheirOwnDirectionOnly) {
    PutPlayheadAt(960);
    player_->onSeek = [] { throw HowToPlay::SongEnd(); };
    EXPECT_NO_THROW(player_->SeekToNextMeasure());
    EXPECT_THROW(player_->SeekToPreviousMeasure(), HowToPlay::SongEnd);
    player_->onSeek = [] { throw HowToPlay::SongBegin(); };
    EXPECT_NO_THROW(player_->SeekToPreviousMeasure());
    EXPECT_THROW(player_->SeekToNextMeasure(), HowToPlay::SongBegin);
    player_->onSeek = [] { throw std::runtime_error("the engine is gone"); };
    EXPECT_THROW(player_->SeekToNextMeasure(), std::runtime_error);
    EXPECT_THROW(player_->SeekToPreviousMeasure(), std::runtime_error);
}

// Callbacks.

TEST_F(ThePlayer, Callbacks_EndWithThePlayer) {
    player_->calls.Take();
    {
        test_support::TestPlayer other(showData_);
        unsigned int cutEnd = 5;
        notify::callbackDispatcher.Notify(notify::names::internal_cut, &cutEnd);
        EXPECT_EQ((Calls{"JumpToInternalCut 5"}), other.calls.Take());
        EXPECT_EQ((Calls{"JumpToInternalCut 5"}), player_->calls.Take());
    }
    unsigned int cutEnd = 6;
    notify::callbackDispatcher.Notify(notify::names::internal_cut, &cutEnd);
    EXPECT_EQ((Calls{"JumpToInternalCut 6"}), player_->calls.Take());
}

TEST_F(ThePlayer, InternalCutRaisedByASeek_ReachesThePlayer) {
    changeLog_->GetSongLog("1").GetCuts().Add(CL::Cut(5 * TicksPerBar, 6 * TicksPerBar));
    player_->NotifyNewChangeLog();
    EXPECT_EQ("JumpToInternalCut 11520",
              CallsOf([this] { EXPECT_TRUE(player_->GetShowControl().Seek(5 * TicksPerBar + 10)); }));
}

}  // namespace
