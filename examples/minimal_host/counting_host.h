#pragma once

#include <algorithm>
#include <mutex>
#include <optional>
#include <string>

#include "player_core/gui_update.h"
#include "player_core/player.h"
#include "player_core/show_control.h"
#include "player_core/tavo_ext.h"
#include "tavo_core/active_change_log.h"
#include "tavo_core/callback_dispatcher.h"
#include "tavo_core/event_codes.h"
#include "tavo_core/gui_dispatcher.h"

// A whole host without sound: its clock counts ticks, and one thread does everything. Where an engine plays on a thread
// of its own, the player needs a lock as well.

inline constexpr unsigned int TicksPerBeat = 480;
inline constexpr double TicksPerSecond = 2 * TicksPerBeat;

/// Flow control, with the few questions that an engine asks at an arrival.
class CountingFlow : public ShowControl {
public:
    CountingFlow(ActiveSongNumber& song, const tavo_midi::ShowData& show, UserControls& controls)
        : ShowControl(song, show), howToPlay_(controls) {}
    HowToPlay& GetHowToPlay() override { return howToPlay_; }

    /// Where a loop or a seek has put the playhead since the last call.
    std::optional<unsigned int> TakeJump() {
        const std::lock_guard lock(GetSeekLock());
        if (!GetJump()) return std::nullopt;
        ClearJump();
        return GetTickIndex();
    }
    /// Flow control only marks a fermata: waiting short of its end is the engine's part. A press ends it by a seek.
    bool IsHeldAt(unsigned int tick) {
        const std::lock_guard lock(GetSeekLock());
        return GetFermata() && GetLoopEnd_() == tick && GetLoopEvents_().GetFirstLoopEvent().type == codes::Fermata;
    }
    void ArriveAt(unsigned int tick) {
        const std::lock_guard lock(GetSeekLock());
        SetTickIndex(tick);
        howToPlay_.Advance(tick);
    }
    FindNextControlEventResult Search(unsigned int fromTick, unsigned int toTick) {
        FindNextControlEventOnAdvance(fromTick, toTick);
        const std::lock_guard lock(GetSeekLock());
        FindNextControlEventResult result = GetResult_();
        if (result.loopStartsHere || result.cutHere || result.caesuraHere) return result;
        // The search passes over the ends of loops.
        const std::optional<unsigned int> loopEnd = GetLoopEnd_();
        if (loopEnd > fromTick) result.tickIndex = std::min(result.tickIndex, *loopEnd);
        return result;
    }
    void SkipTo(unsigned int tick) {
        const std::lock_guard lock(GetSeekLock());
        DoSkipAhead(tick);
    }

private:
    std::optional<unsigned int> GetLoopEnd_() {
        LoopEventList& loops = GetLoopEvents_();
        return loops.IsEmpty() ? std::nullopt : std::optional(loops.GetFirstLoopEvent().end);
    }

    HowToPlay howToPlay_;
};

/// The transport. What it does to its own playhead it does through flow control, and follows at its next block.
class CountingPlayer : public Player {
public:
    explicit CountingPlayer(const tavo_midi::ShowData& show)
        : Player(""), flow_(GetActiveSongNumberRef(), show, GetUserControls()) {}
    ~CountingPlayer() override { notify::callbackDispatcher.RemoveCallbacksForTarget(static_cast<Player*>(this)); }

    /// The clock goes on by `ticks`, and so does playback unless it is stopped or held. An engine with sound would end
    /// its notes wherever the playhead jumps or stops, and send program, controllers and tempo of the new place.
    void PlayBlock(unsigned int ticks) {
        if (IsPlaying()) playedTicks_ += ticks;
        while (ticks > 0 && IsPlaying()) {
            const std::optional<unsigned int> end = Arrive_(ticks);
            if (!end) return;
            // Here the music of [tick_, *end) sounds.
            ticks -= *end - tick_;
            tick_ = *end;
            position_ = tick_ - 1;
        }
    }
    /// What a display shows: the last tick that has begun, or where playback is about to go on.
    bool ReportPosition(unsigned int* tickIndex) {
        *tickIndex = flow_.GetJump() ? flow_.GetTickIndex() : position_;
        return true;
    }

    ShowControl& GetShowControl() override { return flow_; }
    double GetElapsedTime() override { return playedTicks_ / TicksPerSecond; }
    bool IsOutputRunning() override { return IsPlaying(); }
    void LoadSong(const std::string& songNumber) override {
        if (StopIfPlaying()) {
            GetGuiUpdate().Pause();
            notify::guiDispatcher.SendPlaybackStopped();
        }
        PutIn_(songNumber);
    }
    bool NextSong() override {
        const std::optional<std::string> next = FindNextSong_();
        if (next) LoadSong(*next);
        return !next;
    }
    void PrevSong() override {}
    void Play() override {
        if (IsPlaying()) return;
        ResetForRecoveryAdvance();
        SetPlayerState(PlayerState::Playing);
        notify::guiDispatcher.SendPlaybackStarted();
        GetGuiUpdate().Unpause();
    }
    void Pause(bool /*silence*/) override {
        if (!IsPlaying()) return;
        SetPlayerState(PlayerState::Paused);
        notify::guiDispatcher.SendPlaybackStopped();
    }
    bool StopIfPlaying() override {
        const bool wasPlaying = IsPlaying();
        SetPlayerState(PlayerState::Stopped);
        return wasPlaying;
    }
    void Stop() override {
        StopIfPlaying();
        ResetPlayerNoFillBuffers();
    }
    void Seek(unsigned int tickIndex) override { flow_.Seek(tickIndex); }
    void SeekLeft() override { flow_.SeekLeft(); }
    void SeekRight() override { flow_.SeekRight(); }
    void JumpToInternalCut(unsigned int tickIndex) override { flow_.Seek(tickIndex); }
    void HaltOutput() override { StopIfPlaying(); }
    void PrepareForExit() override { StopIfPlaying(); }
    void Shutdown() override { StopIfPlaying(); }
    void OnNewChangeLog() override {}  // every block asks flow control anew
    void ConductBeat() override {}
    void SetConductorMode(bool /*on*/) override {}

private:
    /// What an engine owes flow control at every arrival. Where the advance that begins at tick_ ends, after `ticks` at
    /// most; none where playback does not go on.
    std::optional<unsigned int> Arrive_(unsigned int ticks) {
        for (int turn = 0; turn < MaxTurnsAtOneArrival; ++turn) {
            if (const std::optional<unsigned int> jump = flow_.TakeJump()) {
                TakeCaesuraCancellation_();  // what was cancelled lies behind
                MoveTo_(*jump);
            }
            if (flow_.IsHeldAt(tick_)) return std::nullopt;
            MoveTo_(tick_);
            flow_.ArriveAt(tick_);
            flow_.ProcessLoopEventsAtCurrentTickIndex();
            if (flow_.GetJump()) continue;
            if (tick_ >= flow_.GetEndTickIndex()) {
                if (EndSong_()) continue;
                return std::nullopt;
            }
            const FindNextControlEventResult result =
                flow_.Search(tick_, std::min(tick_ + ticks, flow_.GetEndTickIndex()));
            if (result.caesuraHere && leftCaesura_ != tick_ && !TakeCaesuraCancellation_()) {
                StopAtCaesura_();
                return std::nullopt;
            }
            if (result.cutHere) {
                flow_.SkipTo(result.tickIndex);
                MoveTo_(result.tickIndex);
            } else if (!result.caesuraHere && !result.loopStartsHere && result.tickIndex > tick_) {
                return result.tickIndex;
            }
            // A loop begins here, or a caesura is passed over: what that means is found by looking again.
        }
        return tick_ + 1;  // edits that lead from one to the next in a ring
    }
    void MoveTo_(unsigned int tick) {
        tick_ = position_ = tick;
        if (leftCaesura_ != tick) leftCaesura_.reset();
    }
    /// The operator's cancellation is good for one caesura.
    bool TakeCaesuraCancellation_() {
        if (!GetUserCanceledCaesura() && !GetFermataCanceledCaesura()) return false;
        ResetForRecoveryAdvance();
        flow_.ClearFermataCanceledCaesura();
        return true;
    }
    void StopAtCaesura_() {
        leftCaesura_ = tick_;
        SetPlayerState(PlayerState::Paused);
        GUINotifyCaesura();
        flow_.OnCaesuraStop();
        GetGuiUpdate().Pause();
        notify::guiDispatcher.SendPlaybackStopped();
    }
    /// True when the next song follows at once.
    bool EndSong_() {
        const std::optional<std::string> next = CurrentSongIsAttacca() ? FindNextSong_() : std::nullopt;
        if (next) {
            PutIn_(*next);
            return true;
        }
        SetPlayerState(PlayerState::Stopped);
        // The base reports it, and loads the next song.
        notify::callbackDispatcher.Notify(notify::names::stopped_at_end_of_song, nullptr);
        return false;
    }
    void PutIn_(const std::string& songNumber) {
        SetActiveSongNumber(songNumber);
        flow_.LoadSong();
        playedTicks_ = 0;
        ResetPlayerNoFillBuffers();
    }
    std::optional<std::string> FindNextSong_() {
        const std::string current = GetActiveSongNumberRef().Get();
        try {
            const ActiveChangeLogShared log;
            return tavo_ext::get_song_after(*log, current);
        } catch (const tavo_ext::EndOfShow&) {
            return std::nullopt;
        }
    }

    static constexpr int MaxTurnsAtOneArrival = 100;

    CountingFlow flow_;
    unsigned int tick_ = 0;      // where playback is: the first tick that has not sounded
    unsigned int position_ = 0;  // the last one that has
    unsigned int playedTicks_ = 0;
    std::optional<unsigned int> leftCaesura_;  // playback stopped here and has not moved since
};

/// The display feed, with passes made by hand instead of by its threads.
class CountingFeed : public gui::GuiUpdate {
public:
    explicit CountingFeed(CountingPlayer& player)
        : GuiUpdate(player, [&player](unsigned int* tickIndex) { return player.ReportPosition(tickIndex); }) {
        // The update thread leaves at its next signal, before it makes a pass.
        SetShouldRun(false);
        SendGuiUpdate();
    }
    ~CountingFeed() override {
        SetShouldRun(true);  // Quit waits for threads that are meant to run only
        Quit();
    }
    using GuiUpdate::RunOnePass_;
};
