#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "player_core/player.h"
#include "tavo_core/callback_dispatcher.h"
#include "tests/player_core/support/the_player.h"
#include "tests/support/notification_log.h"

namespace {

using Calls = std::vector<std::string>;
using test_support::ThePlayer;

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
    enum class VampFate { LeftAlone, Announced, Left } vamp = VampFate::LeftAlone;
};

using enum PlayerState;
using enum Operation;
using VampFate = Transition::VampFate;

const Transition transitions[] = {
    {Stopped, Continue, Stopped, "Play; PlaybackStarted; feed runs", VampFate::Announced},
    {Playing, Continue, Playing, "PlaybackStarted", VampFate::Left},
    {Paused, Continue, Paused, "Play; PlaybackStarted; feed runs", VampFate::Announced},
    {Faded, Continue, Playing, "CancelFade; Play; PlaybackStarted", VampFate::Left},

    {Stopped, FlowControlExit, Stopped, "Play", VampFate::Announced},
    {Playing, FlowControlExit, Playing, "", VampFate::Left},
    {Paused, FlowControlExit, Paused, "Play", VampFate::Announced},
    {Faded, FlowControlExit, Playing, "CancelFade; Play", VampFate::Left},

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
    {Stopped, LoadNewChangeLog, Stopped, "StopIfPlaying; HaltOutput; ResetPlayerNoFillBuffers; Seek 961",
     VampFate::Left},
    {Playing, LoadNewChangeLog, Playing,
     "StopIfPlaying; PlaybackStopped; HaltOutput; ResetPlayerNoFillBuffers; Seek 961; feed pauses", VampFate::Left},
    {Paused, LoadNewChangeLog, Paused, "StopIfPlaying; HaltOutput; ResetPlayerNoFillBuffers; Seek 961", VampFate::Left},
    {Faded, LoadNewChangeLog, Faded,
     "StopIfPlaying; PlaybackStopped; HaltOutput; ResetPlayerNoFillBuffers; Seek 961; feed pauses", VampFate::Left},

    {Stopped, NotifyNewChangeLog, Stopped, "OnNewChangeLog", VampFate::Left},
    {Playing, NotifyNewChangeLog, Playing, "OnNewChangeLog", VampFate::Left},
    {Paused, NotifyNewChangeLog, Paused, "OnNewChangeLog", VampFate::Left},
    {Faded, NotifyNewChangeLog, Faded, "OnNewChangeLog", VampFate::Left},

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
    VampFate FateOfTheVamp(const std::function<void()>& operation) {
        player_->GetShowControl().SetTickIndex(970);
        position_.tickIndex = 970;
        test_support::NotificationLog log;
        operation();
        if (!player_->GetShowControl().HoldsVamp()) return VampFate::Left;
        feed_->RunOnePass_();
        return log.TakeOnly("StatusFlowControl") == Calls{"StatusFlowControl 'Vamp' 1"} ? VampFate::Announced
                                                                                        : VampFate::LeftAlone;
    }
};

TEST_F(PlayerTransitions, AreThoseOfTheTable) {
    for (const Transition& row : transitions) {
        PutIntoState(row.state);
        player_->hasNoNextSong = false;
        std::string calls;
        const VampFate vamp = FateOfTheVamp([&] { calls = CallsOf([&] { Perform(row.operation); }); });
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

}  // namespace
