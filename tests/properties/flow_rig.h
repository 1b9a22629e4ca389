#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "player_core/gui_update.h"
#include "player_core/player.h"
#include "tests/properties/random_show.h"
#include "tests/properties/reference_flow.h"
#include "tests/support/notification_log.h"

namespace properties {

/// A tick that no song reaches.
inline constexpr unsigned int Never = 0xFFFFFFFF;

/// Throws std::runtime_error with `what` unless `holds`.
void Require(bool holds, const std::string& what);

class RigShowControl : public ShowControl {
public:
    RigShowControl(Player& player, const tavo_midi::ShowData& showData)
        : ShowControl(player.GetActiveSongNumberRef(), showData), howToPlay_(player.GetUserControls()) {}
    HowToPlay& GetHowToPlay() override { return howToPlay_; }

    using ShowControl::DoSkipAhead;
    using ShowControl::GetLoopEvents_;
    using ShowControl::GetResult_;
    using ShowControl::GetSongData_;
    using ShowControl::HasCutAtTickIndex;
    using ShowControl::RecoverySeek;

private:
    HowToPlay howToPlay_;
};

/// A player without sound; the rig is its engine.
class RigPlayer : public Player {
public:
    RigPlayer() : Player("") {}
    using Player::SetActiveSongNumber;
    void SetShowControl(RigShowControl& showControl) { showControl_ = &showControl; }
    using Player::GetUserCanceledCaesura;
    using Player::ResetForRecovery;

    double GetElapsedTime() override { return 0; }
    ShowControl& GetShowControl() override { return *showControl_; }
    bool IsOutputRunning() override { return IsPlaying(); }
    bool StopIfPlaying() override {
        const bool wasPlaying = IsPlaying();
        Stop();
        return wasPlaying;
    }
    void LoadSong(const std::string& songNumber) override {
        SetActiveSongNumber(songNumber);
        showControl_->LoadSong();
        ResetPlayerNoFillBuffers();
    }
    bool NextSong() override { return true; }
    void Pause(bool) override { SetPlayerState(PlayerState::Paused); }
    void PrevSong() override {}
    void Seek(unsigned int tickIndex) override { showControl_->Seek(tickIndex); }
    void SeekLeft() override { showControl_->SeekLeft(); }
    void SeekRight() override { showControl_->SeekRight(); }
    void PrepareForExit() override {}
    void Shutdown() override {}
    void HaltOutput() override {}
    void Stop() override { SetPlayerState(PlayerState::Stopped); }
    void ConductBeat() override {}
    void SetConductorMode(bool) override {}
    void JumpToInternalCut(unsigned int tickIndex) override { showControl_->Seek(tickIndex); }
    void OnNewChangeLog() override {}
    void Play() override { SetPlayerState(PlayerState::Playing); }

private:
    RigShowControl* showControl_ = nullptr;
};

/// The feed, whose passes the rig makes itself.
class RigFeed : public gui::GuiUpdate {
public:
    using GuiUpdate::GuiUpdate;
    using GuiUpdate::RunOnePass_;
};

/// One thing that the operator does, or a stretch that the engine plays.
struct Action {
    int kind = 0;
    int amount = 0;
};
std::ostream& operator<<(std::ostream& out, const Action& action);
rc::Gen<Action> RandomAction();

/// A show, the real flow control with its display feed, the reference beside it, an engine that plays both and the
/// operator's hands. After every step the two must agree and what must always hold is checked; a violation throws.
class FlowRig {
public:
    /// One moment of a performance: flow control's own value, and beside it what belongs to others.
    struct Moment {
        FlowState flow;
        std::shared_ptr<CL::ChangeLog> changeLog;
        std::size_t version = 0;
        std::size_t song = 0;
        PlayerState playerState = PlayerState::Stopped;
        ReferenceFlow reference;
        unsigned int next = 0;
        bool standsAtCaesura = false;
        bool isOver = false;
        unsigned int passedCaesura = 0;
    };
    /// What a stretch of a performance came to, step by step.
    struct Transcript {
        std::vector<FlowState> states;
        std::vector<std::string> posts;  ///< of flow control and player
    };

    explicit FlowRig(const ShowSpec& show);
    /// Fresh objects, put where the moment was taken. Throws if they are not there then.
    FlowRig(const ShowSpec& show, const Moment& moment);
    ~FlowRig();
    FlowRig(const FlowRig&) = delete;
    FlowRig& operator=(const FlowRig&) = delete;

    void Do(const Action& action);
    /// Plays on, exits every vamp and goes on behind every caesura, until the song is over.
    void PlayToTheEnd();

    [[nodiscard]] Moment TakeMoment();
    /// Does the actions and writes down what comes of every step.
    [[nodiscard]] Transcript Record(std::span<const Action> actions);

    /// Searches made and actions done.
    [[nodiscard]] std::uint64_t GetStepCount() const { return steps_; }

private:
    // Engine.
    void PlayArrivals_(int count, unsigned int blockTicks);
    void Arrive_();
    void SearchFrom_(unsigned int blockTicks);
    bool ObeyResult_(unsigned int from, unsigned int to);
    void AdvanceTo_(unsigned int from, unsigned int target);
    void StandAtCaesura_(unsigned int tick);
    void FollowJump_();

    // Operator.
    void PressExit_();
    void SeekTo_(unsigned int tick);
    void SeekNearEdit_(unsigned int choice);
    void Step_(int direction);
    void StepMeasure_(int direction);
    void StopAtCaesura_();
    void Continue_();
    void CancelCaesura_();
    void ReloadStopped_();
    void ReloadRunning_();
    void ChangeSong_();
    void Reset_();
    void Recover_();
    void MakePass_();

    // What must hold.
    void Agree_(const char* after);
    void AgreeOnLoops_(const char* after);
    void CheckLoops_();
    void CheckFirstLoopContains_(unsigned int tick);
    void CheckResult_(unsigned int from, unsigned int to);
    void CheckJumpTarget_();
    void CheckTold_();
    [[nodiscard]] std::vector<LoopEvent> ActiveLoops_();
    /// The first end among the active loops that lies after `tick`; 0xFFFFFFFF for none.
    [[nodiscard]] unsigned int FirstLoopEndAfter_(unsigned int tick);

    [[nodiscard]] const CL::SongLog& SongLog_() const;
    [[nodiscard]] const tavo_midi::SongData& SongData_() const;
    [[nodiscard]] std::size_t EditCount_() const;
    void ActivateVersion_();
    void Install_();

    const ShowSpec& show_;
    tavo_midi::ShowData showData_;
    std::shared_ptr<CL::ChangeLog> changeLog_;
    std::size_t version_ = 0;
    std::size_t song_ = 0;

    RigPlayer player_;
    std::unique_ptr<RigShowControl> flow_;
    RigFeed* feed_ = nullptr;
    ReferenceFlow reference_;
    std::unique_ptr<test_support::NotificationLog> heard_;

    unsigned int next_ = 0;         // where the engine arrives next
    bool standsAtCaesura_ = false;  // told to stop there, not stopped yet
    bool isOver_ = false;
    unsigned int passedCaesura_ = 0xFFFFFFFF;  // stopped at and continued from, without having moved since
    bool lampIsOn_ = false;                    // as the display heard it
    std::uint64_t steps_ = 0;
    Transcript* transcript_ = nullptr;  // while somebody records
};

}  // namespace properties
