// The transition table of the player that really plays: what each operation does in each state.

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "stage/engine/sound_font.h"
#include "stage/engine/stage_player.h"
#include "stage/session/stepped_feed.h"
#include "tavo_core/active_change_log.h"
#include "tests/support/notification_log.h"
#include "tests/support/show_builder.h"

namespace {

using test_support::TestShow;

constexpr std::uint32_t SynthFramesPerSecond = 48000;

enum class Operation {
    Play,
    PauseRingingOut,
    PauseCuttingOff,
    Stop,
    StopIfPlaying,
    Fade,
    FadeAndWait,
    CancelFade,
    Continue,
    FlowControlExit,
    UserRequestedStop,
    HaltOutput,
    PrepareForExit,
    Shutdown,
    Seek,
    SeekIntoCut,
    SeekLeft,
    SeekRight,
    LoadSong,
    LoadUnknownSong,
    NextSong,
    PrevSong,
    LoadNewChangeLog,
    NotifyNewChangeLog,
    ReachCaesura,
    ReachCanceledCaesura,
    ReachEndOfSong,
    ReachEndOfShow,
    ReachAttacca,
    Count
};

constexpr const char* OperationNames[] = {"Play",
                                          "PauseRingingOut",
                                          "PauseCuttingOff",
                                          "Stop",
                                          "StopIfPlaying",
                                          "Fade",
                                          "FadeAndWait",
                                          "CancelFade",
                                          "Continue",
                                          "FlowControlExit",
                                          "UserRequestedStop",
                                          "HaltOutput",
                                          "PrepareForExit",
                                          "Shutdown",
                                          "Seek",
                                          "SeekIntoCut",
                                          "SeekLeft",
                                          "SeekRight",
                                          "LoadSong",
                                          "LoadUnknownSong",
                                          "NextSong",
                                          "PrevSong",
                                          "LoadNewChangeLog",
                                          "NotifyNewChangeLog",
                                          "ReachCaesura",
                                          "ReachCanceledCaesura",
                                          "ReachEndOfSong",
                                          "ReachEndOfShow",
                                          "ReachAttacca"};
static_assert(std::size(OperationNames) == static_cast<std::size_t>(Operation::Count));

constexpr PlayerState AllStates[] = {PlayerState::Stopped, PlayerState::Playing, PlayerState::Paused,
                                     PlayerState::Faded};

struct Transition {
    PlayerState state;
    Operation operation;
    PlayerState next;
    /// What the display and the fade's owner hear, what becomes of the feed, and where the playhead then is.
    const char* effects;
};

using enum PlayerState;
using enum Operation;

const Transition transitions[] = {
    {Stopped, Play, Playing, "PlaybackStarted; feed runs; bar 2 of 1"},
    {Stopped, PauseRingingOut, Stopped, "bar 2 of 1"},
    {Stopped, PauseCuttingOff, Stopped, "bar 2 of 1"},
    {Stopped, Operation::Stop, Stopped, "bar 1 of 1"},
    {Stopped, StopIfPlaying, Stopped, "bar 2 of 1"},
    {Stopped, Fade, Stopped, "fade is done; bar 2 of 1"},
    {Stopped, FadeAndWait, Stopped, "fade is done; bar 2 of 1"},
    {Stopped, CancelFade, Stopped, "bar 2 of 1"},
    {Stopped, Continue, Playing, "PlaybackStarted; PlaybackStarted; feed runs; bar 2 of 1"},
    {Stopped, FlowControlExit, Playing, "PlaybackStarted; feed runs; bar 2 of 1"},
    {Stopped, UserRequestedStop, Stopped, "PlaybackStopped; feed updates; bar 1 of 1"},
    {Stopped, HaltOutput, Stopped, "bar 2 of 1"},
    {Stopped, PrepareForExit, Stopped, "bar 2 of 1"},
    {Stopped, Shutdown, Stopped, "bar 2 of 1"},
    {Stopped, Seek, Stopped, "bar 4 of 1"},
    {Stopped, SeekIntoCut, Stopped, "bar 8 of 1"},
    {Stopped, SeekLeft, Stopped, "bar 1 of 1"},
    {Stopped, SeekRight, Stopped, "bar 3 of 1"},
    {Stopped, LoadSong, Stopped, "bar 1 of 2"},
    {Stopped, LoadUnknownSong, Stopped, "bar 2 of 1"},
    {Stopped, NextSong, Stopped, "bar 1 of 2"},
    {Stopped, PrevSong, Stopped, "bar 1 of 1"},
    {Stopped, LoadNewChangeLog, Stopped, "bar 2 of 1"},
    {Stopped, NotifyNewChangeLog, Stopped, "bar 2 of 1"},
    {Stopped, ReachCaesura, Stopped, "bar 4 of 1"},
    {Stopped, ReachCanceledCaesura, Stopped, "bar 4 of 1"},
    {Stopped, ReachEndOfSong, Stopped, "bar 8 of 1"},
    {Stopped, ReachEndOfShow, Stopped, "bar 8 of 1"},
    {Stopped, ReachAttacca, Stopped, "bar 8 of 1"},

    {Playing, Play, Playing, "bar 2 of 1"},
    {Playing, PauseRingingOut, Paused, "PlaybackStopped; bar 2 of 1"},
    {Playing, PauseCuttingOff, Paused, "PlaybackStopped; bar 2 of 1"},
    {Playing, Operation::Stop, Stopped, "bar 1 of 1"},
    {Playing, StopIfPlaying, Stopped, "bar 2 of 1"},
    {Playing, Fade, Faded, "bar 2 of 1"},
    {Playing, FadeAndWait, Faded, "fade is done; bar 2 of 1"},
    {Playing, CancelFade, Playing, "bar 2 of 1"},
    {Playing, Continue, Playing, "PlaybackStarted; bar 2 of 1"},
    {Playing, FlowControlExit, Playing, "bar 2 of 1"},
    {Playing, UserRequestedStop, Stopped, "PlaybackStopped; feed pauses; feed updates; bar 1 of 1"},
    {Playing, HaltOutput, Stopped, "bar 2 of 1"},
    {Playing, PrepareForExit, Stopped, "bar 2 of 1"},
    {Playing, Shutdown, Stopped, "bar 2 of 1"},
    {Playing, Seek, Playing, "bar 4 of 1"},
    {Playing, SeekIntoCut, Playing, "bar 8 of 1"},
    {Playing, SeekLeft, Playing, "bar 1 of 1"},
    {Playing, SeekRight, Playing, "bar 3 of 1"},
    {Playing, LoadSong, Stopped, "PlaybackStopped; feed pauses; bar 1 of 2"},
    {Playing, LoadUnknownSong, Playing, "bar 2 of 1"},
    {Playing, NextSong, Stopped, "PlaybackStopped; feed pauses; bar 1 of 2"},
    {Playing, PrevSong, Stopped, "PlaybackStopped; feed pauses; bar 1 of 1"},
    {Playing, LoadNewChangeLog, Stopped, "PlaybackStopped; feed pauses; bar 2 of 1"},
    {Playing, NotifyNewChangeLog, Playing, "bar 2 of 1"},
    {Playing, ReachCaesura, Paused, "Caesura 7680; PlaybackStopped; feed pauses; bar 5 of 1"},
    {Playing, ReachCanceledCaesura, Playing, "bar 5 of 1"},
    {Playing, ReachEndOfSong, Stopped, "PlaybackStopped; feed pauses; bar 1 of 2"},
    {Playing, ReachEndOfShow, Stopped, "PlaybackStopped; NoNextSong; feed pauses; bar 9 of 1"},
    {Playing, ReachAttacca, Playing, "bar 1 of 2"},

    {Paused, Play, Playing, "PlaybackStarted; bar 2 of 1"},
    {Paused, PauseRingingOut, Paused, "bar 2 of 1"},
    {Paused, PauseCuttingOff, Paused, "bar 2 of 1"},
    {Paused, Operation::Stop, Stopped, "bar 1 of 1"},
    {Paused, StopIfPlaying, Stopped, "bar 2 of 1"},
    {Paused, Fade, Paused, "fade is done; bar 2 of 1"},
    {Paused, FadeAndWait, Paused, "fade is done; bar 2 of 1"},
    {Paused, CancelFade, Paused, "bar 2 of 1"},
    {Paused, Continue, Playing, "PlaybackStarted; PlaybackStarted; bar 2 of 1"},
    {Paused, FlowControlExit, Playing, "PlaybackStarted; bar 2 of 1"},
    {Paused, UserRequestedStop, Stopped, "PlaybackStopped; feed pauses; feed updates; bar 1 of 1"},
    {Paused, HaltOutput, Stopped, "bar 2 of 1"},
    {Paused, PrepareForExit, Stopped, "bar 2 of 1"},
    {Paused, Shutdown, Stopped, "bar 2 of 1"},
    {Paused, Seek, Paused, "bar 4 of 1"},
    {Paused, SeekIntoCut, Paused, "bar 8 of 1"},
    {Paused, SeekLeft, Paused, "bar 1 of 1"},
    {Paused, SeekRight, Paused, "bar 3 of 1"},
    {Paused, LoadSong, Stopped, "bar 1 of 2"},
    {Paused, LoadUnknownSong, Paused, "bar 2 of 1"},
    {Paused, NextSong, Stopped, "bar 1 of 2"},
    {Paused, PrevSong, Stopped, "bar 1 of 1"},
    {Paused, LoadNewChangeLog, Stopped, "bar 2 of 1"},
    {Paused, NotifyNewChangeLog, Paused, "bar 2 of 1"},
    {Paused, ReachCaesura, Paused, "bar 4 of 1"},
    {Paused, ReachCanceledCaesura, Paused, "bar 4 of 1"},
    {Paused, ReachEndOfSong, Paused, "bar 8 of 1"},
    {Paused, ReachEndOfShow, Paused, "bar 8 of 1"},
    {Paused, ReachAttacca, Paused, "bar 8 of 1"},

    {Faded, Play, Faded, "bar 2 of 1"},
    {Faded, PauseRingingOut, Paused, "PlaybackStopped; bar 2 of 1"},
    {Faded, PauseCuttingOff, Paused, "PlaybackStopped; bar 2 of 1"},
    {Faded, Operation::Stop, Stopped, "bar 1 of 1"},
    {Faded, StopIfPlaying, Stopped, "bar 2 of 1"},
    {Faded, Fade, Faded, "bar 2 of 1"},
    {Faded, FadeAndWait, Faded, "fade is done; bar 2 of 1"},
    {Faded, CancelFade, Playing, "bar 2 of 1"},
    {Faded, Continue, Playing, "PlaybackStarted; bar 2 of 1"},
    {Faded, FlowControlExit, Playing, "bar 2 of 1"},
    {Faded, UserRequestedStop, Stopped, "PlaybackStopped; feed pauses; feed updates; bar 1 of 1"},
    {Faded, HaltOutput, Stopped, "bar 2 of 1"},
    {Faded, PrepareForExit, Stopped, "bar 2 of 1"},
    {Faded, Shutdown, Stopped, "bar 2 of 1"},
    {Faded, Seek, Faded, "bar 4 of 1"},
    {Faded, SeekIntoCut, Faded, "bar 8 of 1"},
    {Faded, SeekLeft, Faded, "bar 1 of 1"},
    {Faded, SeekRight, Faded, "bar 3 of 1"},
    {Faded, LoadSong, Stopped, "PlaybackStopped; feed pauses; bar 1 of 2"},
    {Faded, LoadUnknownSong, Faded, "bar 2 of 1"},
    {Faded, NextSong, Stopped, "PlaybackStopped; feed pauses; bar 1 of 2"},
    {Faded, PrevSong, Stopped, "PlaybackStopped; feed pauses; bar 1 of 1"},
    {Faded, LoadNewChangeLog, Stopped, "PlaybackStopped; feed pauses; bar 2 of 1"},
    {Faded, NotifyNewChangeLog, Faded, "bar 2 of 1"},
    {Faded, ReachCaesura, Paused, "Caesura 7680; PlaybackStopped; feed pauses; bar 5 of 1"},
    {Faded, ReachCanceledCaesura, Faded, "bar 5 of 1"},
    {Faded, ReachEndOfSong, Stopped, "PlaybackStopped; feed pauses; bar 1 of 2"},
    {Faded, ReachEndOfShow, Stopped, "PlaybackStopped; NoNextSong; feed pauses; bar 9 of 1"},
    {Faded, ReachAttacca, Faded, "bar 1 of 2"},
};

const char* NameOf(PlayerState state) {
    switch (state) {
        case Stopped:
            return "Stopped";
        case Playing:
            return "Playing";
        case Paused:
            return "Paused";
        case Faded:
            return "Faded";
    }
    return "";
}

/// A player in bar 2 of song 1, which has a marker in bars 1 and 3, a caesura at bar 5, a cut over bar 7 and eight
/// bars; song 2 follows.
class Rig {
public:
    Rig() {
        show_.Song("1", 8).Edits("marker 1 Verse\nmarker 3 Chorus\ncaesura 5\ncut 7 7").Song("2", 4);
        show_.Activate();
        player_ = std::make_unique<stage::StagePlayer>("", show_.GetShowData(), TheSynth_(), SynthFramesPerSecond);
        auto feed = std::make_unique<stage::SteppedFeed>(
            *player_, [this](unsigned int* tick) { return player_->ReportPosition(tick); });
        feed_ = feed.get();
        SetGuiUpdate(std::move(feed));
        player_->LoadSong("1");
        PutAt_(2 * TestShow::BarTicks - TestShow::BarTicks / 2);
    }
    ~Rig() {
        player_->HaltOutput();
        SetGuiUpdate(nullptr);
        player_.reset();
        SetActiveChangeLog(nullptr);
    }

    void PutIntoState(PlayerState state) {
        if (state == Stopped) return;
        player_->Play();
        Render_(0.1);
        if (state == Paused) player_->Pause(true);
        if (state == Faded) player_->Fade([this] { fadeIsDone_ = true; }, 100);
    }

    /// Performs the operation; what came of it as the table says it.
    std::string EffectsOf(Operation operation) {
        const bool wasRunning = feed_->IsRunning();
        (void)feed_->UseCurrentPosition();
        test_support::NotificationLog display;
        Perform_(operation);
        std::string effects;
        for (const std::string& line : display.Take()) {
            if (line.starts_with("Playback") || line.starts_with("NoNextSong") || line.starts_with("Caesura"))
                effects += line + "; ";
        }
        if (fadeIsDone_) effects += "fade is done; ";
        if (feed_->IsRunning() != wasRunning) effects += wasRunning ? "feed pauses; " : "feed runs; ";
        if (feed_->UseCurrentPosition()) effects += "feed updates; ";
        if (player_->GetEngine().IsRolling() != player_->IsPlaying()) effects += "STATE AND ENGINE DIFFER; ";
        Render_(0.1);
        unsigned int tick = 0;
        EXPECT_TRUE(player_->ReportPosition(&tick));
        return effects + "bar " + std::to_string(tick / TestShow::BarTicks + 1) + " of " +
               player_->GetActiveSongNumberRef().Get();
    }
    [[nodiscard]] PlayerState GetState() { return player_->GetPlayerState(); }

private:
    static stage::Synth& TheSynth_() {
        static stage::Synth synth(stage::FindDefaultSoundFont(), SynthFramesPerSecond, 16);
        return synth;
    }

    void PutAt_(unsigned int tick) {
        player_->Seek(tick);
        Render_(0.01);
        feed_->MakePass();
    }
    void Render_(double seconds) {
        constexpr std::uint32_t Block = 480;
        float left[Block];
        float right[Block];
        for (auto frames = static_cast<int>(seconds * SynthFramesPerSecond); frames > 0;
             frames -= static_cast<int>(Block))
            player_->GetEngine().Render(left, right, Block);
    }
    /// Playback, if it runs, comes to this tick.
    void PlayTo_(unsigned int tick) {
        PutAt_(tick - TestShow::BarTicks / 4);
        Render_(0.7);
    }

    void Perform_(Operation operation) {
        switch (operation) {
            case Play:
                return player_->Play();
            case PauseRingingOut:
                return player_->Pause(false);
            case PauseCuttingOff:
                return player_->Pause(true);
            case Operation::Stop:
                return player_->Stop();
            case StopIfPlaying:
                static_cast<void>(player_->StopIfPlaying());
                return;
            case Fade:
                return player_->Fade([this] { fadeIsDone_ = true; }, 100);
            case FadeAndWait:
                player_->Fade([this] { fadeIsDone_ = true; }, 0.1F);
                return Render_(0.2);
            case CancelFade:
                return player_->CancelFade();
            case Continue:
                return player_->Continue();
            case FlowControlExit:
                return player_->FlowControlExit();
            case UserRequestedStop:
                return player_->UserRequestedStop();
            case HaltOutput:
                return player_->HaltOutput();
            case PrepareForExit:
                return player_->PrepareForExit();
            case Shutdown:
                return player_->Shutdown();
            case Seek:
                return player_->Seek(3 * TestShow::BarTicks);
            case SeekIntoCut:
                return player_->Seek(6 * TestShow::BarTicks + 480);
            case SeekLeft:
                return player_->SeekLeft();
            case SeekRight:
                return player_->SeekRight();
            case LoadSong:
                return player_->LoadSong("2");
            case LoadUnknownSong:
                EXPECT_THROW(player_->LoadSong("99"), std::out_of_range);
                return;
            case NextSong:
                EXPECT_FALSE(player_->NextSong());
                return;
            case PrevSong:
                return player_->PrevSong();
            case LoadNewChangeLog:
                return player_->LoadNewChangeLog([](unsigned int tick) { return tick; });
            case NotifyNewChangeLog:
                return player_->NotifyNewChangeLog();
            case ReachCaesura:
                return PlayTo_(4 * TestShow::BarTicks);
            case ReachCanceledCaesura:
                PutAt_(4 * TestShow::BarTicks - 480);
                player_->GetShowControl().FlowControlExit();
                return Render_(0.7);
            case ReachEndOfShow:
                ActiveChangeLogExclusive()->GetSongLog("2").SetAttacca(CL::AttaccaSkip);
                return PlayTo_(8 * TestShow::BarTicks);
            case ReachAttacca:
                ActiveChangeLogExclusive()->GetSongLog("1").SetAttacca(CL::AttaccaNext);
                [[fallthrough]];
            case ReachEndOfSong:
                return PlayTo_(8 * TestShow::BarTicks);
            case Operation::Count:
                FAIL() << "no operation";
        }
    }

    TestShow show_;
    std::unique_ptr<stage::StagePlayer> player_;
    stage::SteppedFeed* feed_ = nullptr;
    bool fadeIsDone_ = false;
};

TEST(StagePlayerTransitions, AreThoseOfTheTable) {
    for (const PlayerState state : AllStates) {
        for (int i = 0; i < static_cast<int>(Operation::Count); ++i) {
            const auto operation = static_cast<Operation>(i);
            Rig rig;
            rig.PutIntoState(state);
            ASSERT_EQ(state, rig.GetState());
            const std::string effects = rig.EffectsOf(operation);
            const std::string actual = std::string("{") + NameOf(state) + ", " + OperationNames[i] + ", " +
                                       NameOf(rig.GetState()) + ", \"" + effects + "\"},";
            const auto isOfPair = [&](const Transition& row) {
                return row.state == state && row.operation == operation;
            };
            const auto row = std::ranges::find_if(transitions, isOfPair);
            if (std::ranges::count_if(transitions, isOfPair) != 1) {
                ADD_FAILURE() << "not one row for what is " << actual;
                continue;
            }
            EXPECT_TRUE(row->effects == effects && row->next == rig.GetState())
                << actual << " and should be " << NameOf(row->next) << ", " << row->effects;
        }
    }
}

}  // namespace
