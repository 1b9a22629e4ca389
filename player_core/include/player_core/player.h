#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>

#include "player_core/active_song_number.h"
#include "tavo_audio/player_output_interface.h"
#include "tavo_audio/volume_type.h"
#include "tavo_midi/user_controls.h"

class ShowControl;

/// Single bits, so that a set of states can be tested at once.
enum class PlayerState : std::uint8_t {
    Stopped = 1,  ///< nothing plays and no place is held; so it is at first
    Playing = 2,  ///< running at full level
    Paused = 4,   ///< held where playback was, by the operator or at a caesura
    Faded = 8,    ///< running at a level that a fade has lowered; it counts as playing
};

/// The transport. It keeps the playback state, the active song's number and the user's controls, and does what is the
/// same for every player; a concrete player supplies what touches audio. Every change of state but one (FlowControlExit
/// ends a fade) is made by the concrete player through SetPlayerState. Positions are tick indices.
///
/// Thread-safe as far as it goes: called by the host, by MIDI callbacks, by the display feed and by the audio engine.
/// No lock is held while a concrete player, flow control or a dispatcher is called.
class Player : public virtual tavo_audio::PlayerOutputInterface {
public:
    /// Registers with notify::callbackDispatcher for `internal_cut` (JumpToInternalCut) and `stopped_at_end_of_song`
    /// (NextSong). `directory` is not used here. What registering throws passes through, and then neither is
    /// registered.
    explicit Player(const std::string& directory);
    /// Removes the callbacks first. A concrete player whose engine may still raise them removes them at the start of
    /// its own destructor as well; removing twice is fine.
    virtual ~Player();
    Player(const Player&) = delete;
    Player& operator=(const Player&) = delete;

    // The virtual operations; their order is part of the interface.

    /// Signals the display feed unless playback runs, when it keeps itself current.
    virtual void EnsureGuiIsCurrent();
    /// Seconds.
    virtual double GetElapsedTime() = 0;
    /// The flow control that the player obeys: the same one for the player's whole life. Asked on any thread.
    virtual ShowControl& GetShowControl() = 0;
    /// Whether the audio output is open and running.
    virtual bool IsOutputRunning() = 0;
    /// Stops the audio; true when it was running and has now stopped.
    virtual bool StopIfPlaying() = 0;
    /// Makes the song the active one and loads it, stopped at its start. An unknown one throws and changes nothing.
    virtual void LoadSong(const std::string& songNumber) = 0;
    /// Goes to the following song; true when there was none.
    virtual bool NextSong() = 0;
    /// Stops where playback is. `flag` is the façade's; its meaning is the concrete player's.
    virtual void Pause(bool flag) = 0;
    /// Lowers the level to silence and then calls `onDone`. Here it throws std::logic_error "Fade not implemented in
    /// this player." and `onDone` is never called.
    virtual void Fade(std::function<void()> onDone, float seconds);
    /// Goes to the song before.
    virtual void PrevSong() = 0;
    /// Sets the master volume; true when it was taken over.
    virtual bool SetVolume(double volume);
    /// Here nothing has a volume: changes nothing and returns false.
    virtual bool SetVolume(double volume, tavo_audio::VolumeType type);
    /// The master volume.
    virtual double GetVolume();
    /// Here 1.0 for every type.
    virtual double GetVolume(tavo_audio::VolumeType type);
    /// Moves the playhead, whether playback runs or not.
    virtual void Seek(unsigned int tickIndex) = 0;
    /// Seeks to the previous marker.
    virtual void SeekLeft() = 0;
    /// Seeks to the next marker.
    virtual void SeekRight() = 0;
    /// Does nothing at the song's first bar.
    virtual void SeekToPreviousMeasure();
    /// Does nothing at the song's last bar.
    virtual void SeekToNextMeasure();
    /// Writes how a song follows on into the active change log.
    virtual void SetAttaccaState(const std::string& songNumber, unsigned char attacca);
    /// A factor on every tempo, as UserControls takes it: 0.5 to 2, the nearest end for what lies outside. Does not
    /// block.
    virtual void SetTempoScale(double scale);
    /// Likewise: -24 to 24. Does not block.
    virtual void SetTransposition(int semitones);
    /// The process exits without destroying the player: stops the output and waits for nothing.
    virtual void PrepareForExit() = 0;
    /// The player is destroyed next: ends its threads and waits for them.
    virtual void Shutdown() = 0;
    /// Stops all output, before the change log is reloaded or the system shuts down.
    virtual void HaltOutput() = 0;
    /// Stops the audio. Where the playhead then is, is the concrete player's.
    virtual void Stop() = 0;
    /// Leaves a vamp, fermata or caesura, and plays on unless playback runs already.
    virtual void FlowControlExit();
    /// FlowControlExit, and the display goes on.
    virtual void Continue();
    /// One beat of the conductor.
    virtual void ConductBeat() = 0;
    /// Whether beats come from the conductor from now on.
    virtual void SetConductorMode(bool on) = 0;
    /// Here it does nothing.
    virtual void CancelFade();
    /// The answer to a position inside a cut: moves playback to `tickIndex`, the cut's end. May be called on any thread
    /// and from inside itself.
    virtual void JumpToInternalCut(unsigned int tickIndex) = 0;

protected:
    /// Brings flow control back to the song's start; the audio buffers are the concrete player's concern.
    virtual void ResetPlayerNoFillBuffers();

public:
    // Questions of the audio engine, answered by flow control.
    bool HasPendingCaesura() override;
    bool CurrentSongIsAttacca() override;
    void GUINotifyCaesura() override;
    bool GetJump() override;
    /// The engine has followed the jump. It reads the tick and clears the mark in one turn of the seek lock
    /// (ShowControl::GetSeekLock), or a seek in between is lost.
    void ClearJump() override;
    bool GetJumpForVampRepeatOrCut() override;
    bool GetFermataCanceledCaesura() override;

    /// These lock for one read or write only.
    [[nodiscard]] PlayerState GetPlayerState();
    /// Notifies nobody: the concrete player does, where it is due.
    void SetPlayerState(PlayerState state);
    /// Playing or faded. Reads the state twice, so a change in between may be seen.
    [[nodiscard]] bool IsPlaying();
    /// PlayerState::Stopped only: a paused player is not stopped.
    [[nodiscard]] bool IsStopped();
    /// A mark for the concrete player; nothing here looks at it. False at first.
    [[nodiscard]] bool IsResetting();
    /// Sets that mark and notifies nobody.
    void IsResetting(bool resetting);

    /// The active song's number, empty until one is loaded. It synchronises itself, as do the controls.
    [[nodiscard]] ActiveSongNumber& GetActiveSongNumberRef() { return activeSongNumber_; }
    /// The operator's tempo scale and transposition, for those who play and display by them.
    [[nodiscard]] UserControls& GetUserControls() { return userControls_; }
    /// The playhead as the display shows it.
    [[nodiscard]] unsigned int GetTickIndex();

    /// The user's stop.
    void UserRequestedStop();
    /// Drops the caesura that stands pending, if one does.
    void UserCancelCaesura();
    /// Stops, takes over the change log that was made active and seeks to `mapTick` of the playhead. Playback is not
    /// started again. An empty `mapTick` throws std::bad_function_call after all other steps.
    void LoadNewChangeLog(std::function<unsigned int(unsigned int)> mapTick);
    /// Takes over the change log that was made active while playback goes on. Throws what ShowControl::LoadNewChangeLog
    /// throws.
    void NotifyNewChangeLog();
    /// After a cut [start, end) was added: if the playhead lies in it, seeks to `mapTick(start)`.
    void MovePlayheadOutOfCut(unsigned int start, unsigned int end, std::function<unsigned int(unsigned int)> mapTick);

protected:
    /// The caller holds no lock.
    void SetActiveSongNumber(const std::string& songNumber);
    /// Forgets that the user cancelled a caesura. Does not wait for the state's readers.
    void ResetForRecovery();
    /// The same, for an engine that uses the cancellation up as it passes over a caesura, or leaves it behind by a
    /// jump.
    void ResetForRecoveryAdvance();

    /// The user has cancelled the pending caesura since the last reset.
    [[nodiscard]] bool GetUserCanceledCaesura();
    /// A change log was loaded since this was last cleared; only the concrete player clears it.
    [[nodiscard]] bool GetNewChangeLogLoaded();
    /// The same in one step, and clears it.
    [[nodiscard]] bool TakeNewChangeLogLoaded();

private:
    void StoppedAtEndOfSong();
    void SetUserCanceledCaesura_(bool canceled);

    // Held for one read or write only; nothing else is locked meanwhile.
    std::recursive_mutex stateMutex_;
    // Synchronises itself.
    ActiveSongNumber activeSongNumber_;
    // Guarded by stateMutex_; atomic because FlowControlExit writes it without.
    std::atomic<PlayerState> state_{PlayerState::Stopped};
    // Synchronises itself.
    UserControls userControls_;
    // Guarded by stateMutex_.
    bool isResetting_ = false;
    // Guarded by stateMutex_; atomic because the recovery resets write it without.
    std::atomic<bool> userCanceledCaesura_{false};
    // Atomic because LoadNewChangeLog writes it without stateMutex_; the accessors lock.
    std::atomic<bool> newChangeLogLoaded_{false};
};
