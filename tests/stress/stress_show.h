#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>

#include "player_core/gui_update.h"
#include "player_core/player.h"
#include "player_core/show_control.h"
#include "tavo_core/change_log.h"
#include "tavo_midi/show_data.h"

namespace stress {

class StressShowControl : public ShowControl {
public:
    StressShowControl(Player& player, const tavo_midi::ShowData& showData)
        : ShowControl(player.GetActiveSongNumberRef(), showData), howToPlay_(player.GetUserControls()) {}
    HowToPlay& GetHowToPlay() override { return howToPlay_; }

    // The engine's doors; each takes the seek lock.
    FindNextControlEventResult Result();
    unsigned int FirstLoopEnd();
    void Report(unsigned int tick);
    /// False when somebody moved the playhead since `from`.
    bool SkipAhead(unsigned int from, unsigned int target);
    using ShowControl::RecoverySeek;

private:
    HowToPlay howToPlay_;
};

/// A player without sound; the engine's thread plays through it.
class StressPlayer : public Player {
public:
    StressPlayer() : Player("") {}
    void SetShowControl(StressShowControl& showControl) { showControl_ = &showControl; }

    double GetElapsedTime() override { return 0; }
    StressShowControl& GetShowControl() override { return *showControl_; }
    bool IsOutputRunning() override { return IsPlaying(); }
    bool StopIfPlaying() override;
    void LoadSong(const std::string& songNumber) override;
    bool NextSong() override;
    void Pause(bool) override { SetPlayerState(PlayerState::Paused); }
    void PrevSong() override;
    void Seek(unsigned int tickIndex) override { showControl_->Seek(tickIndex); }
    void SeekLeft() override { showControl_->SeekLeft(); }
    void SeekRight() override { showControl_->SeekRight(); }
    void PrepareForExit() override {}
    void Shutdown() override {}
    void HaltOutput() override {}
    void Stop() override { SetPlayerState(PlayerState::Stopped); }
    void CancelFade() override {}
    void ConductBeat() override {}
    void SetConductorMode(bool) override {}
    void JumpToInternalCut(unsigned int tickIndex) override;
    void OnNewChangeLog() override { ++newChangeLogs; }
    void Play() override { SetPlayerState(PlayerState::Playing); }

    using Player::GetUserCanceledCaesura;
    using Player::ResetForRecovery;

    std::atomic<unsigned int> newChangeLogs{0};
    std::atomic<unsigned int> internalCuts{0};

private:
    StressShowControl* showControl_ = nullptr;
    // One song is loaded at a time. Never taken inside a callback of flow control.
    std::mutex loadMutex_;
};

/// Three short songs full of edits, four versions of their change log, a player and its flow control.
class StressShow {
public:
    static constexpr unsigned int EndTick = 16 * 1920;
    static constexpr unsigned int VersionCount = 4;

    StressShow();
    ~StressShow();
    StressShow(const StressShow&) = delete;
    StressShow& operator=(const StressShow&) = delete;

    StressPlayer& GetPlayer() { return player_; }
    StressShowControl& GetFlow() { return *flow_; }
    /// Makes a change log active that nobody has seen yet; flow control must be told.
    static void ActivateVersion(unsigned int version);

private:
    tavo_midi::ShowData showData_;
    StressPlayer player_;
    std::unique_ptr<StressShowControl> flow_;
};

}  // namespace stress
