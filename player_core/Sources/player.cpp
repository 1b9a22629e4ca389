#include "player_core/player.h"

#include <stdexcept>

#include "player_core/gui_update.h"
#include "player_core/show_control.h"
#include "tavo_core/callback_dispatcher.h"
#include "tavo_core/gui_dispatcher.h"
#include "tavo_midi/how_to_play.h"

Player::Player(const std::string& /*directory*/) {
    notify::callbackDispatcher.AddCallback(this, notify::names::internal_cut, [this](void* payload) {
        JumpToInternalCut(*static_cast<const unsigned int*>(payload));
    });
    try {
        notify::callbackDispatcher.AddCallback(this, notify::names::stopped_at_end_of_song,
                                               [this](void*) { StoppedAtEndOfSong(); });
    } catch (...) {
        // No destructor runs for what was never whole.
        notify::callbackDispatcher.RemoveCallbacksForTarget(this);
        throw;
    }
}

Player::~Player() {
    notify::callbackDispatcher.RemoveCallbacksForTarget(this);
}

// State.

PlayerState Player::GetPlayerState() {
    const std::lock_guard lock(stateMutex_);
    return state_;
}

void Player::SetPlayerState(PlayerState state) {
    const std::lock_guard lock(stateMutex_);
    state_ = state;
}

bool Player::IsPlaying() {
    return GetPlayerState() == PlayerState::Playing || GetPlayerState() == PlayerState::Faded;
}

bool Player::IsStopped() {
    return GetPlayerState() == PlayerState::Stopped;
}

bool Player::IsResetting() {
    const std::lock_guard lock(stateMutex_);
    return isResetting_;
}

void Player::IsResetting(bool resetting) {
    const std::lock_guard lock(stateMutex_);
    isResetting_ = resetting;
}

bool Player::GetUserCanceledCaesura() {
    const std::lock_guard lock(stateMutex_);
    return userCanceledCaesura_;
}

void Player::SetUserCanceledCaesura_(bool canceled) {
    const std::lock_guard lock(stateMutex_);
    userCanceledCaesura_ = canceled;
}

bool Player::GetNewChangeLogLoaded() {
    const std::lock_guard lock(stateMutex_);
    return newChangeLogLoaded_;
}

bool Player::TakeNewChangeLogLoaded() {
    const std::lock_guard lock(stateMutex_);
    return newChangeLogLoaded_.exchange(false);
}

void Player::SetActiveSongNumber(const std::string& songNumber) {
    activeSongNumber_.Set(songNumber);
}

unsigned int Player::GetTickIndex() {
    return GetGuiUpdate().GetTickIndex();
}

// Questions of the audio engine.

bool Player::HasPendingCaesura() {
    return GetShowControl().HasPendingCaesura();
}

bool Player::CurrentSongIsAttacca() {
    return GetShowControl().SongIsAttacca(activeSongNumber_.Get());
}

void Player::GUINotifyCaesura() {
    notify::guiDispatcher.SendCaesura(GetShowControl().GetCaesuraTickIndex());
}

bool Player::GetJump() {
    return GetShowControl().GetJump();
}

void Player::ClearJump() {
    GetShowControl().ClearJump();
}

bool Player::GetJumpForVampRepeatOrCut() {
    return GetShowControl().GetJumpForVampRepeatOrCut();
}

bool Player::GetFermataCanceledCaesura() {
    return GetShowControl().GetFermataCanceledCaesura();
}

// User controls, volume, fade.

void Player::SetAttaccaState(const std::string& songNumber, unsigned char attacca) {
    GetShowControl().SetAttaccaState(songNumber, attacca);
}

void Player::SetTempoScale(double scale) {
    userControls_.SetTempoScale(scale);
}

void Player::SetTransposition(int semitones) {
    userControls_.SetTransposition(semitones);
}

double Player::GetVolume() {
    return GetVolume(tavo_audio::Master);
}

double Player::GetVolume(tavo_audio::VolumeType /*type*/) {
    return 1.0;
}

bool Player::SetVolume(double volume) {
    return SetVolume(volume, tavo_audio::Master);
}

bool Player::SetVolume(double /*volume*/, tavo_audio::VolumeType /*type*/) {
    return false;
}

void Player::Fade(std::function<void()> /*onDone*/, float /*seconds*/) {
    throw std::logic_error("Fade not implemented in this player.");
}

void Player::CancelFade() {}

// Transport.

void Player::EnsureGuiIsCurrent() {
    if (!IsPlaying()) GetGuiUpdate().UpdateOnce();
}

void Player::Continue() {
    FlowControlExit();
    notify::guiDispatcher.SendPlaybackStarted();
    GetGuiUpdate().Unpause();
}

void Player::FlowControlExit() {
    if (GetPlayerState() == PlayerState::Playing) {
        GetShowControl().FlowControlExit();
        return;
    }
    if (GetPlayerState() == PlayerState::Faded) {
        CancelFade();
        // Deliberately without stateMutex_: the fade is over, whatever another thread is reading just now.
        state_ = PlayerState::Playing;
        GetShowControl().FlowControlExit();
    } else {
        GetShowControl().CheckForRemainingVampRepeatOrFermata();
    }
    Play();
}

void Player::UserRequestedStop() {
    Stop();
    notify::guiDispatcher.SendPlaybackStopped();
    GetGuiUpdate().Pause();
    GetGuiUpdate().UpdateOnce();
}

void Player::StoppedAtEndOfSong() {
    notify::guiDispatcher.SendPlaybackStopped();
    GetGuiUpdate().Pause();
    if (NextSong()) notify::guiDispatcher.SendNoNextSong();
}

void Player::UserCancelCaesura() {
    if (GetShowControl().HasPendingCaesura()) SetUserCanceledCaesura_(true);
}

void Player::ResetPlayerNoFillBuffers() {
    SetUserCanceledCaesura_(false);
    GetShowControl().FullReset();
}

// Both recoveries run on the engine's thread and do not wait for the state's readers.
void Player::ResetForRecovery() {
    userCanceledCaesura_ = false;
}

void Player::ResetForRecoveryAdvance() {
    userCanceledCaesura_ = false;
}

void Player::LoadNewChangeLog(std::function<unsigned int(unsigned int)> mapTick) {
    const unsigned int tickIndex = GetGuiUpdate().GetTickIndex();
    if (StopIfPlaying()) {
        GetGuiUpdate().Pause();
        notify::guiDispatcher.SendPlaybackStopped();
    }
    newChangeLogLoaded_ = true;
    HaltOutput();
    GetShowControl().LoadNewChangeLog();
    ResetPlayerNoFillBuffers();
    Seek(mapTick(tickIndex));
}

void Player::NotifyNewChangeLog() {
    GetShowControl().LoadNewChangeLog();
    OnNewChangeLog();
}

void Player::MovePlayheadOutOfCut(unsigned int start, unsigned int end,
                                  std::function<unsigned int(unsigned int)> mapTick) {
    const unsigned int tickIndex = GetGuiUpdate().GetTickIndex();
    // The cut's start is mapped, not the playhead: everything inside the cut leaves to one place.
    if (start <= tickIndex && tickIndex < end) Seek(mapTick(start));
}

void Player::SeekToNextMeasure() {
    try {
        Seek(GetShowControl().GetNextMeasureTickIndex());
    } catch (const HowToPlay::SongEnd&) {
        // There is no later bar: the playhead stays.
    }
}

void Player::SeekToPreviousMeasure() {
    try {
        Seek(GetShowControl().GetPreviousMeasureTickIndex());
    } catch (const HowToPlay::SongBegin&) {
        // There is no earlier bar: the playhead stays.
    }
}
