#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tests/player_core/support/test_interface.h"
#include "tests/support/notification_log.h"

namespace {

using test_support::TheFacade;
using test_support::TicksPerBar;

struct Forwarded {
    const char* name;
    std::function<void(Interface&)> operation;
    const char* calls;
};

const Forwarded forwardedOperations[] = {
    {"Play", [](Interface& facade) { facade.Play(); }, "Play"},
    {"Stop", [](Interface& facade) { facade.Stop(); }, "Stop; PlaybackStopped; feed updates"},
    {"Continue", [](Interface& facade) { facade.Continue(); }, "Continue"},
    {"FlowControlExit", [](Interface& facade) { facade.FlowControlExit(); }, "FlowControlExit"},
    {"Seek", [](Interface& facade) { facade.Seek(960); }, "Seek 960"},
    {"SeekLeft", [](Interface& facade) { facade.SeekLeft(); }, "SeekLeft"},
    {"SeekRight", [](Interface& facade) { facade.SeekRight(); }, "SeekRight"},
    {"SeekToNextMeasure", [](Interface& facade) { facade.SeekToNextMeasure(); }, "SeekToNextMeasure"},
    {"SeekToPreviousMeasure", [](Interface& facade) { facade.SeekToPreviousMeasure(); }, "SeekToPreviousMeasure"},
    {"NextSong", [](Interface& facade) { facade.NextSong(); }, "NextSong"},
    {"PrevSong", [](Interface& facade) { facade.PrevSong(); }, "PrevSong"},
    {"LoadSong", [](Interface& facade) { facade.LoadSong("2"); }, "StopIfPlaying; LoadSong 2"},
    {"LoadSongAtTime", [](Interface& facade) { facade.LoadSongAtTime("2", 960); },
     "StopIfPlaying; LoadSong 2; Seek 960"},
    {"CancelFade", [](Interface& facade) { facade.CancelFade(); }, "CancelFade"},
    {"SetTempoScale", [](Interface& facade) { facade.SetTempoScale(0.9); }, "SetTempoScale 90"},
    {"SetTransposition", [](Interface& facade) { facade.SetTransposition(-2); }, "SetTransposition -2"},
    {"SetAttacca", [](Interface& facade) { facade.SetAttacca("2", 1); }, "SetAttaccaState 2 1"},
    {"SetVolume", [](Interface& facade) { facade.SetVolume(0.5, tavo_audio::Click); }, "SetVolume 50 of 2"},
    {"Pause", [](Interface& facade) { facade.Pause(true); }, "Pause true"},
    {"LoadNewChangeLog", [](Interface& facade) { facade.LoadNewChangeLog(); },
     "StopIfPlaying; HaltOutput; ResetPlayerNoFillBuffers; Seek 0"},
    {"MovePlayheadOutOfCut", [](Interface& facade) { facade.MovePlayheadOutOfCut(480, 960); }, ""},
};

TEST_F(TheFacade, TransportOperations_AreThePlayers) {
    for (const Forwarded& row : forwardedOperations)
        EXPECT_EQ(row.calls, CallsOf([&] { row.operation(*facade_); })) << row.name;
}

TEST_F(TheFacade, ThePlayer_IsAskedForAfreshEveryTime) {
    for (const Forwarded& row : forwardedOperations) {
        facade_->timesPlayerAsked = 0;
        row.operation(*facade_);
        EXPECT_GE(facade_->timesPlayerAsked, 1U) << row.name;
    }
    auto other = std::make_unique<test_support::FacadePlayer>(facade_->GetShowData());
    std::swap(facade_->player, other);
    facade_->Play();
    EXPECT_EQ((std::vector<std::string>{"Play"}), facade_->player->calls.Take());
    std::swap(facade_->player, other);
}

// Pausing.

TEST_F(TheFacade, Pause_PausesTheDisplayWhateverTheFlag) {
    for (const bool flag : {false, true}) {
        facade_->feed->Unpause();
        EXPECT_EQ(flag ? "Pause true; feed pauses" : "Pause false; feed pauses",
                  CallsOf([&] { facade_->Pause(flag); }));
    }
}

TEST_F(TheFacade, PauseWhileACaesuraIsPending_CancelsTheCaesuraInstead) {
    Edits().GetCaesuras().Add(CL::Caesura(4 * TicksPerBar, "", 0));
    facade_->player->NotifyNewChangeLog();
    for (const PlayerState state : {PlayerState::Stopped, PlayerState::Playing, PlayerState::Paused}) {
        PutPlayheadAt(4 * TicksPerBar);
        facade_->player->ResetForRecovery();
        facade_->player->SetPlayerState(state);
        facade_->feed->Unpause();
        ASSERT_TRUE(facade_->player->HasPendingCaesura());
        EXPECT_EQ("", CallsOf([this] { facade_->Pause(false); })) << "neither player nor display";
        EXPECT_TRUE(facade_->player->GetUserCanceledCaesura());
    }
}

TEST_F(TheFacade, PauseWhileACaesuraIsPending_AndThePlayerIsFaded_Pauses) {
    Edits().GetCaesuras().Add(CL::Caesura(4 * TicksPerBar, "", 0));
    facade_->player->NotifyNewChangeLog();
    PutPlayheadAt(4 * TicksPerBar);
    facade_->player->SetPlayerState(PlayerState::Faded);
    facade_->feed->Unpause();
    ASSERT_TRUE(facade_->player->HasPendingCaesura());
    EXPECT_EQ("Pause false; feed pauses", CallsOf([this] { facade_->Pause(false); }));
    EXPECT_FALSE(facade_->player->GetUserCanceledCaesura());
}

// Loading songs.

TEST_F(TheFacade, LoadSongWhilePlaying_StopsAndDoesNotStartAgain) {
    facade_->player->stopsAsked = true;
    facade_->player->SetPlayerState(PlayerState::Playing);
    facade_->feed->Unpause();
    EXPECT_EQ("StopIfPlaying; PlaybackStopped; LoadSong 2; feed pauses", CallsOf([this] { facade_->LoadSong("2"); }));
    EXPECT_EQ("2", facade_->GetCurrentSongNumber());
    EXPECT_TRUE(facade_->GetIsStopped());
}

TEST_F(TheFacade, LoadSongAtTime_PlaysOnIfPlaybackRan_FadedOrNot) {
    const struct {
        PlayerState state;
        const char* calls;
    } rows[] = {
        {PlayerState::Stopped, "StopIfPlaying; LoadSong 2; Seek 960"},
        {PlayerState::Playing, "StopIfPlaying; PlaybackStopped; LoadSong 2; Seek 960; Play"},
        {PlayerState::Paused, "StopIfPlaying; LoadSong 2; Seek 960"},
        {PlayerState::Faded, "StopIfPlaying; PlaybackStopped; LoadSong 2; Seek 960; Play"},
    };
    for (const auto& row : rows) {
        facade_->player->SetPlayerState(row.state);
        // The player is stopped by the time of the load: what counts is what it did before.
        facade_->player->stopsAsked = facade_->player->IsPlaying();
        facade_->feed->Pause();
        EXPECT_EQ(row.calls, CallsOf([this] { facade_->LoadSongAtTime("2", 960); }))
            << "state " << static_cast<int>(row.state);
    }
}

// State.

TEST_F(TheFacade, States_AreThePlayers_AndFadedIsNotPlaying) {
    const struct {
        PlayerState state;
        unsigned char value;
        bool stopped, playing, paused, faded;
    } rows[] = {
        {PlayerState::Stopped, 1, true, false, false, false},
        {PlayerState::Playing, 2, false, true, false, false},
        {PlayerState::Paused, 4, false, false, true, false},
        {PlayerState::Faded, 8, false, false, false, true},
    };
    for (const auto& row : rows) {
        facade_->player->SetPlayerState(row.state);
        EXPECT_EQ(row.value, facade_->GetState());
        EXPECT_EQ(row.stopped, facade_->GetIsStopped()) << int{row.value};
        EXPECT_EQ(row.stopped, facade_->IsStopped()) << int{row.value};
        EXPECT_EQ(row.playing, facade_->GetIsPlaying()) << int{row.value};
        EXPECT_EQ(row.paused, facade_->GetIsPaused()) << int{row.value};
        EXPECT_EQ(row.faded, facade_->GetIsFaded()) << int{row.value};
    }
    ASSERT_EQ(PlayerState::Faded, facade_->player->GetPlayerState());
    EXPECT_TRUE(facade_->player->IsPlaying()) << "the player itself counts a fade as playing";
}

TEST_F(TheFacade, SongTimeAndTick_AreThoseOfPlayerAndDisplay) {
    EXPECT_EQ("1", facade_->GetCurrentSongNumber());
    EXPECT_EQ(12.5, facade_->GetElapsedTime());
    PutPlayheadAt(1234);
    EXPECT_EQ(1234U, facade_->GetTickIndex());
}

TEST_F(TheFacade, GetTickIndex_AsksForThePlayerAndDoesNotUseIt) {
    facade_->timesPlayerAsked = 0;
    EXPECT_EQ(0U, facade_->GetTickIndex());
    EXPECT_EQ(1U, facade_->timesPlayerAsked);
}

TEST_F(TheFacade, UpdateOnce_SendsTheWholeDisplayAndWakesTheFeed) {
    PutPlayheadAt(TicksPerBar);
    test_support::NotificationLog log;
    facade_->UpdateOnce();
    EXPECT_EQ((std::vector<std::string>{"BarBeat '2:1'"}), log.TakeOnly("BarBeat"));
    facade_->player->calls.Take();
    const unsigned int asked = facade_->position.CountAsked();
    EXPECT_TRUE(facade_->position.WaitUntilAsked(asked + 1, [this] { facade_->feed->SendGuiUpdate(); }));
}

// Fades and volumes.

TEST_F(TheFacade, Fade_HandsOnWhatFollowsIt) {
    bool isDone = false;
    EXPECT_EQ("Fade 1500", CallsOf([&] { facade_->Fade([&isDone] { isDone = true; }, 1.5F); }));
    EXPECT_TRUE(isDone);
}

TEST_F(TheFacade, FadeOfAPlayerWithoutOne_ThrowsThePlayersSentence) {
    // FacadePlayer fades; this one does not.
    class Unfaded : public test_support::FacadePlayer {
    public:
        using FacadePlayer::FacadePlayer;
        void Fade(std::function<void()> onDone, float seconds) override { Player::Fade(std::move(onDone), seconds); }
    };
    std::unique_ptr<test_support::FacadePlayer> other = std::make_unique<Unfaded>(facade_->GetShowData());
    std::swap(facade_->player, other);
    EXPECT_THROW(facade_->Fade([] {}, 1.0F), std::logic_error);
    std::swap(facade_->player, other);
}

TEST_F(TheFacade, VolumeWithoutAType_IsTypeOne) {
    EXPECT_EQ("SetVolume 50 of 1", CallsOf([this] { EXPECT_TRUE(facade_->SetVolume(0.5)); }));
    EXPECT_FALSE(facade_->SetVolume(1.5)) << "the player's answer";
    EXPECT_EQ(0.25, facade_->GetVolume());
    EXPECT_EQ(0.75, facade_->GetVolume(tavo_audio::Effects));
}

TEST_F(TheFacade, VolumeWithoutAType_GoesThroughTheFacadesOwnOperation) {
    class Muted : public test_support::TestInterface {
    public:
        using Interface::GetVolume;
        using Interface::SetVolume;
        using TestInterface::TestInterface;
        bool SetVolume(double, tavo_audio::VolumeType type) override { return type == tavo_audio::Master; }
        double GetVolume(tavo_audio::VolumeType type) override { return type == tavo_audio::Master ? 0.125 : 1; }
    };
    Muted muted(files_.Show(), files_.Settings());
    EXPECT_TRUE(muted.SetVolume(0.5));
    EXPECT_EQ(0.125, muted.GetVolume());
}

// Attacca.

TEST_F(TheFacade, Attacca_IsWrittenToTheLogAndToldToThePlayer) {
    for (const unsigned char attacca : {CL::AttaccaNext, CL::AttaccaSkip, CL::AttaccaNormal}) {
        EXPECT_EQ("SetAttaccaState 1 " + std::to_string(attacca), CallsOf([&] { facade_->SetAttacca("1", attacca); }));
        EXPECT_EQ(attacca, facade_->GetAttacca("1"));
        EXPECT_EQ(attacca, Edits().GetAttacca());
    }
    EXPECT_EQ(0, facade_->GetAttacca("2"));
}

TEST_F(TheFacade, AttaccaOfAnUnknownSong_ThrowsWithoutTellingThePlayer_AndLeavesNoLock) {
    EXPECT_EQ("", CallsOf([this] { EXPECT_THROW(facade_->SetAttacca("99", 1), std::out_of_range); }));
    EXPECT_THROW((void)facade_->GetAttacca("99"), std::out_of_range);
    const ActiveChangeLogExclusive free;
}

// Cuts and new change logs.

TEST_F(TheFacade, LoadNewChangeLog_LeavesACutAtItsEnd) {
    Edits().GetCuts().Add(CL::Cut(2 * TicksPerBar, 4 * TicksPerBar));
    PutPlayheadAt(2 * TicksPerBar + 5);
    EXPECT_EQ("StopIfPlaying; HaltOutput; ResetPlayerNoFillBuffers; Seek 7680",
              CallsOf([this] { facade_->LoadNewChangeLog(); }));
}

TEST_F(TheFacade, LoadNewChangeLog_AfterAnotherSongWasLoaded_KnowsThatSongsCuts) {
    Edits("1").GetCuts().Add(CL::Cut(2 * TicksPerBar, 4 * TicksPerBar));
    facade_->LoadSong("2");
    PutPlayheadAt(2 * TicksPerBar + 5);
    EXPECT_EQ("StopIfPlaying; HaltOutput; ResetPlayerNoFillBuffers; Seek 3845",
              CallsOf([this] { facade_->LoadNewChangeLog(); }));
}

TEST_F(TheFacade, MovePlayheadOutOfCut_StandsOneBeatBeforeTheCut) {
    Edits().GetCuts().Add(CL::Cut(2 * TicksPerBar, 4 * TicksPerBar));
    const std::pair<unsigned int, const char*> rows[] = {
        {2 * TicksPerBar - 1, ""},
        {2 * TicksPerBar, "Seek 3360"},
        {4 * TicksPerBar - 1, "Seek 3360"},
        {4 * TicksPerBar, ""},
    };
    for (const auto& [playhead, calls] : rows) {
        PutPlayheadAt(0);
        facade_->position.tickIndex = playhead;
        facade_->feed->Seek(playhead);
        EXPECT_EQ(calls, CallsOf([this] { facade_->MovePlayheadOutOfCut(2 * TicksPerBar, 4 * TicksPerBar); }))
            << playhead;
    }
}

}  // namespace
