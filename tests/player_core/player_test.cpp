#include "player_core/player.h"

#include <gtest/gtest.h>

#include <algorithm>
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
#include "tests/player_core/support/test_player.h"
#include "tests/player_core/support/test_show.h"
#include "tests/support/notification_log.h"

namespace {

using Calls = std::vector<std::string>;
using test_support::TicksPerBar;

std::string Join(const Calls& calls) {
    std::string text;
    for (const std::string& call : calls)
        text += (text.empty() ? "" : "; ") + call;
    return text;
}

/// A song of sixteen bars with a vamp over its second to fourth beat and a caesura at bar 5, on a player that does
/// nothing but write down what it is asked to do, with what is sent to the display in between.
class ThePlayer : public ::testing::Test {
protected:
    static constexpr unsigned int VampStart = 480;
    static constexpr unsigned int VampEnd = 1920;
    static constexpr unsigned int CaesuraTick = 4 * TicksPerBar;

    ThePlayer() {
        showData_.AddSong(test_support::MakeSong("1", 16));
        showData_.AddSong(test_support::MakeSong("2", 16));
        changeLog_ = test_support::MakeChangeLog(showData_);
        CL::SongLog& songLog = changeLog_->GetSongLog("1");
        songLog.GetVamps().Add(CL::Vamp(VampStart, VampEnd));
        songLog.GetCaesuras().Add(CL::Caesura(CaesuraTick, "", 0));
        songLog.GetFermatas().Add(CL::Fermata(CaesuraTick - 960, CaesuraTick + 960));
        SetActiveChangeLog(changeLog_);
        player_ = std::make_unique<test_support::TestPlayer>(showData_);
        auto feed = std::make_unique<test_support::TestFeed>(*player_, position_);
        feed_ = feed.get();
        SetGuiUpdate(std::move(feed));
        player_->LoadSong("1");
        PutPlayheadAt(0);
    }
    ~ThePlayer() override {
        SetGuiUpdate(nullptr);
        player_.reset();
        SetActiveChangeLog(nullptr);
    }

    void PutPlayheadAt(unsigned int tickIndex) {
        player_->GetShowControl().Seek(tickIndex);
        position_.tickIndex = tickIndex;
        feed_->RunOnePass_();
        player_->calls.Take();
    }

    /// Runs an operation and tells the calls made, the notifications between them, and what became of the feed.
    std::string CallsOf(const std::function<void()>& operation) {
        const bool wasPaused = feed_->GetIsPaused();
        (void)feed_->UseCurrentPosition();
        player_->calls.Take();
        const auto handler = notify::guiDispatcher.AddHandler([this](const notify::GuiNotification& notification) {
            using enum notify::GuiNotificationType;
            switch (notification.type) {
                case PlaybackStarted:
                case PlaybackStopped:
                case NoNextSong:
                case Caesura:
                    player_->calls.AddHeard(test_support::AsLine(notification));
                    break;
                default:  // a pass of the feed's thread may come in between at any moment
                    break;
            }
        });
        operation();
        Calls calls = player_->calls.Take();
        notify::guiDispatcher.RemoveHandler(handler);
        if (feed_->GetIsPaused() != wasPaused) calls.emplace_back(wasPaused ? "feed runs" : "feed pauses");
        if (feed_->UseCurrentPosition()) calls.emplace_back("feed updates");
        return Join(calls);
    }

    tavo_midi::ShowData showData_;
    std::shared_ptr<CL::ChangeLog> changeLog_;
    test_support::ReportedPosition position_;
    std::unique_ptr<test_support::TestPlayer> player_;
    test_support::TestFeed* feed_ = nullptr;
};

// The transition table: what each operation does in each state.

enum class Operation {
    Continue,
    FlowControlExit,
    UserRequestedStop,
    StoppedAtEndOfSong,
    StoppedAtEndOfShow,
    EnsureGuiIsCurrent,
    LoadNewChangeLog,
    NotifyNewChangeLog,
    MovePlayheadOutOfCut,
    SeekToNextMeasure,
    SeekToPreviousMeasure,
    UserCancelCaesura,
    GuiNotifyCaesura,
    InternalCut,
    Count
};

constexpr PlayerState AllStates[] = {PlayerState::Stopped, PlayerState::Playing, PlayerState::Paused,
                                     PlayerState::Faded};

struct Transition {
    PlayerState state;
    Operation operation;
    PlayerState next;
    const char* calls;
    /// What becomes of a vamp that is being played: announced again by a check, left by an exit or a reset, or neither.
    enum class Vamp { LeftAlone, Announced, Left } vamp = Vamp::LeftAlone;
};

using enum PlayerState;
using enum Operation;
using Vamp = Transition::Vamp;

const Transition transitions[] = {
    {Stopped, Continue, Stopped, "Play; PlaybackStarted; feed runs", Vamp::Announced},
    {Playing, Continue, Playing, "PlaybackStarted", Vamp::Left},
    {Paused, Continue, Paused, "Play; PlaybackStarted; feed runs", Vamp::Announced},
    {Faded, Continue, Playing, "CancelFade; Play; PlaybackStarted", Vamp::Left},

    {Stopped, FlowControlExit, Stopped, "Play", Vamp::Announced},
    {Playing, FlowControlExit, Playing, "", Vamp::Left},
    {Paused, FlowControlExit, Paused, "Play", Vamp::Announced},
    {Faded, FlowControlExit, Playing, "CancelFade; Play", Vamp::Left},

    {Stopped, UserRequestedStop, Stopped, "Stop; PlaybackStopped; feed updates"},
    {Playing, UserRequestedStop, Playing, "Stop; PlaybackStopped; feed pauses; feed updates"},
    {Paused, UserRequestedStop, Paused, "Stop; PlaybackStopped; feed updates"},
    {Faded, UserRequestedStop, Faded, "Stop; PlaybackStopped; feed pauses; feed updates"},

    {Stopped, StoppedAtEndOfSong, Stopped, "PlaybackStopped; NextSong"},
    {Playing, StoppedAtEndOfSong, Playing, "PlaybackStopped; NextSong; feed pauses"},
    {Paused, StoppedAtEndOfSong, Paused, "PlaybackStopped; NextSong"},
    {Faded, StoppedAtEndOfSong, Faded, "PlaybackStopped; NextSong; feed pauses"},

    {Stopped, StoppedAtEndOfShow, Stopped, "PlaybackStopped; NextSong; NoNextSong"},
    {Playing, StoppedAtEndOfShow, Playing, "PlaybackStopped; NextSong; NoNextSong; feed pauses"},
    {Paused, StoppedAtEndOfShow, Paused, "PlaybackStopped; NextSong; NoNextSong"},
    {Faded, StoppedAtEndOfShow, Faded, "PlaybackStopped; NextSong; NoNextSong; feed pauses"},

    {Stopped, EnsureGuiIsCurrent, Stopped, "feed updates"},
    {Playing, EnsureGuiIsCurrent, Playing, ""},
    {Paused, EnsureGuiIsCurrent, Paused, "feed updates"},
    {Faded, EnsureGuiIsCurrent, Faded, ""},

    // Flow control begins anew with a new change log and registers nothing before the next seek.
    {Stopped, LoadNewChangeLog, Stopped, "StopIfPlaying; HaltOutput; ResetPlayerNoFillBuffers; Seek 961", Vamp::Left},
    {Playing, LoadNewChangeLog, Playing,
     "StopIfPlaying; PlaybackStopped; HaltOutput; ResetPlayerNoFillBuffers; Seek 961; feed pauses", Vamp::Left},
    {Paused, LoadNewChangeLog, Paused, "StopIfPlaying; HaltOutput; ResetPlayerNoFillBuffers; Seek 961", Vamp::Left},
    {Faded, LoadNewChangeLog, Faded,
     "StopIfPlaying; PlaybackStopped; HaltOutput; ResetPlayerNoFillBuffers; Seek 961; feed pauses", Vamp::Left},

    {Stopped, NotifyNewChangeLog, Stopped, "OnNewChangeLog", Vamp::Left},
    {Playing, NotifyNewChangeLog, Playing, "OnNewChangeLog", Vamp::Left},
    {Paused, NotifyNewChangeLog, Paused, "OnNewChangeLog", Vamp::Left},
    {Faded, NotifyNewChangeLog, Faded, "OnNewChangeLog", Vamp::Left},

    {Stopped, MovePlayheadOutOfCut, Stopped, "Seek 905"},
    {Playing, MovePlayheadOutOfCut, Playing, "Seek 905"},
    {Paused, MovePlayheadOutOfCut, Paused, "Seek 905"},
    {Faded, MovePlayheadOutOfCut, Faded, "Seek 905"},

    {Stopped, SeekToNextMeasure, Stopped, "Seek 1920"},
    {Playing, SeekToNextMeasure, Playing, "Seek 1920"},
    {Paused, SeekToNextMeasure, Paused, "Seek 1920"},
    {Faded, SeekToNextMeasure, Faded, "Seek 1920"},

    {Stopped, SeekToPreviousMeasure, Stopped, "Seek 0"},
    {Playing, SeekToPreviousMeasure, Playing, "Seek 0"},
    {Paused, SeekToPreviousMeasure, Paused, "Seek 0"},
    {Faded, SeekToPreviousMeasure, Faded, "Seek 0"},

    {Stopped, UserCancelCaesura, Stopped, ""},
    {Playing, UserCancelCaesura, Playing, ""},
    {Paused, UserCancelCaesura, Paused, ""},
    {Faded, UserCancelCaesura, Faded, ""},

    {Stopped, GuiNotifyCaesura, Stopped, "Caesura 0"},
    {Playing, GuiNotifyCaesura, Playing, "Caesura 0"},
    {Paused, GuiNotifyCaesura, Paused, "Caesura 0"},
    {Faded, GuiNotifyCaesura, Faded, "Caesura 0"},

    {Stopped, InternalCut, Stopped, "JumpToInternalCut 2880"},
    {Playing, InternalCut, Playing, "JumpToInternalCut 2880"},
    {Paused, InternalCut, Paused, "JumpToInternalCut 2880"},
    {Faded, InternalCut, Faded, "JumpToInternalCut 2880"},
};

class PlayerTransitions : public ThePlayer {
protected:
    void Perform(Operation operation) {
        switch (operation) {
            case Continue:
                return player_->Continue();
            case FlowControlExit:
                return player_->FlowControlExit();
            case UserRequestedStop:
                return player_->UserRequestedStop();
            case StoppedAtEndOfShow:
                player_->hasNoNextSong = true;
                [[fallthrough]];
            case StoppedAtEndOfSong:
                return notify::callbackDispatcher.Notify(notify::names::stopped_at_end_of_song, nullptr);
            case EnsureGuiIsCurrent:
                return player_->EnsureGuiIsCurrent();
            case LoadNewChangeLog:
                player_->stopsAsked = player_->IsPlaying();
                return player_->LoadNewChangeLog([](unsigned int tickIndex) { return tickIndex + 1; });
            case NotifyNewChangeLog:
                return player_->NotifyNewChangeLog();
            case MovePlayheadOutOfCut:
                return player_->MovePlayheadOutOfCut(900, 1000, [](unsigned int start) { return start + 5; });
            case SeekToNextMeasure:
                return player_->SeekToNextMeasure();
            case SeekToPreviousMeasure:
                return player_->SeekToPreviousMeasure();
            case UserCancelCaesura:
                return player_->UserCancelCaesura();
            case GuiNotifyCaesura:
                return player_->GUINotifyCaesura();
            case InternalCut: {
                unsigned int cutEnd = 2880;
                return notify::callbackDispatcher.Notify(notify::names::internal_cut, &cutEnd);
            }
            case Operation::Count:
                FAIL() << "no operation";
        }
    }

    /// In the second beat of the vamp, which has announced itself.
    void PutIntoState(PlayerState state) {
        PutPlayheadAt(960);
        player_->SetPlayerState(state);
        if (player_->IsPlaying()) {
            feed_->Unpause();
        } else {
            feed_->Pause();
        }
    }

    /// What the flow says at the next tick, where nothing has been announced yet.
    Vamp FateOfTheVamp(const std::function<void()>& operation) {
        player_->GetShowControl().SetTickIndex(970);
        position_.tickIndex = 970;
        test_support::NotificationLog log;
        operation();
        if (!player_->GetShowControl().HoldsVamp()) return Vamp::Left;
        feed_->RunOnePass_();
        return log.TakeOnly("StatusFlowControl") == Calls{"StatusFlowControl 'Vamp' 1"} ? Vamp::Announced
                                                                                        : Vamp::LeftAlone;
    }
};

TEST_F(PlayerTransitions, AreThoseOfTheTable) {
    for (const Transition& row : transitions) {
        PutIntoState(row.state);
        player_->hasNoNextSong = false;
        std::string calls;
        const Vamp vamp = FateOfTheVamp([&] { calls = CallsOf([&] { Perform(row.operation); }); });
        SCOPED_TRACE("state " + std::to_string(static_cast<int>(row.state)) + ", operation " +
                     std::to_string(static_cast<int>(row.operation)));
        EXPECT_EQ(row.calls, calls);
        EXPECT_EQ(row.next, player_->GetPlayerState());
        EXPECT_EQ(static_cast<int>(row.vamp), static_cast<int>(vamp));
    }
}

TEST_F(PlayerTransitions, TableHasOneRowForEveryStateAndOperation) {
    for (const PlayerState state : AllStates) {
        for (int operation = 0; operation < static_cast<int>(Operation::Count); ++operation) {
            EXPECT_EQ(1, std::ranges::count_if(transitions,
                                               [&](const Transition& row) {
                                                   return row.state == state &&
                                                          static_cast<int>(row.operation) == operation;
                                               }))
                << "state " << static_cast<int>(state) << ", operation " << operation;
        }
    }
}

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
