// Transport, state, MIDI, and the end of the façade's life: nearly all of it one step on to whoever does it.

#include <stdexcept>

#include "kit/format.h"
#include "kit/sleep.h"
#include "player_core/gui_update.h"
#include "player_core/interface.h"
#include "player_core/player.h"
#include "tavo_core/active_change_log.h"
#include "tavo_core/callback_dispatcher.h"
#include "tavo_core/editor.h"
#include "tavo_core/gui_dispatcher.h"

void Interface::Play() {
    GetPlayer()->Play();
}

void Interface::Pause(bool flag) {
    Player* player = GetPlayer();
    if (player->HasPendingCaesura() && player->GetPlayerState() != PlayerState::Faded) {
        player->UserCancelCaesura();
        return;
    }
    player->Pause(flag);
    // Whatever the flag means to the player: the display holds.
    GetGuiUpdate().Pause();
}

void Interface::Stop() {
    GetPlayer()->UserRequestedStop();
}

void Interface::Continue() {
    GetPlayer()->Continue();
}

void Interface::FlowControlExit() {
    GetPlayer()->FlowControlExit();
}

void Interface::Seek(unsigned int tickIndex) {
    GetPlayer()->Seek(tickIndex);
}

void Interface::SeekLeft() {
    GetPlayer()->SeekLeft();
}

void Interface::SeekRight() {
    GetPlayer()->SeekRight();
}

void Interface::SeekToNextMeasure() {
    GetPlayer()->SeekToNextMeasure();
}

void Interface::SeekToPreviousMeasure() {
    GetPlayer()->SeekToPreviousMeasure();
}

void Interface::NextSong() {
    GetPlayer()->NextSong();
}

void Interface::PrevSong() {
    GetPlayer()->PrevSong();
}

void Interface::LoadSong(std::string songNumber) {
    Player* player = GetPlayer();
    if (player->StopIfPlaying()) {
        GetGuiUpdate().Pause();
        notify::guiDispatcher.SendPlaybackStopped();
    }
    player->LoadSong(songNumber);
}

void Interface::LoadSongAtTime(std::string songNumber, unsigned int tickIndex) {
    // Unlike GetIsPlaying, a faded player counts as playing here: it plays on after the load.
    const bool wasPlaying = GetPlayer()->IsPlaying();
    LoadSong(std::move(songNumber));
    GetPlayer()->Seek(tickIndex);
    if (wasPlaying) Play();
}

void Interface::Fade(std::function<void()> onDone, float seconds) {
    GetPlayer()->Fade(std::move(onDone), seconds);
}

void Interface::CancelFade() {
    GetPlayer()->CancelFade();
}

void Interface::SetTempoScale(double scale) {
    GetPlayer()->SetTempoScale(scale);
}

void Interface::SetTransposition(int semitones) {
    GetPlayer()->SetTransposition(semitones);
}

bool Interface::SetVolume(double volume) {
    return SetVolume(volume, tavo_audio::Master);
}

bool Interface::SetVolume(double volume, tavo_audio::VolumeType type) {
    return GetPlayer()->SetVolume(volume, type);
}

double Interface::GetVolume() {
    return GetVolume(tavo_audio::Master);
}

double Interface::GetVolume(tavo_audio::VolumeType type) {
    return GetPlayer()->GetVolume(type);
}

void Interface::MovePlayheadOutOfCut(unsigned int start, unsigned int end) {
    GetPlayer()->MovePlayheadOutOfCut(start, end, [this](unsigned int tick) {
        return changeLogEditor_->GetTickIndexNotBoundedByCutAndOneBeatBefore(tick);
    });
}

void Interface::LoadNewChangeLog() {
    GetPlayer()->LoadNewChangeLog(
        [this](unsigned int tick) { return changeLogEditor_->GetTickIndexNotBoundedByExistingCut(tick); });
}

void Interface::UpdateOnce() {
    GetGuiUpdate().UpdateOnce();
    GetGuiUpdate().UpdateAll();
}

unsigned char Interface::GetAttacca(std::string songNumber) {
    const ActiveChangeLogShared changeLog;
    return changeLog->GetSongLog(songNumber).GetAttacca();
}

void Interface::SetAttacca(std::string songNumber, unsigned char attacca) {
    {
        const ActiveChangeLogExclusive changeLog;
        changeLog->GetSongLog(songNumber).SetAttacca(attacca);
    }
    GetPlayer()->SetAttaccaState(songNumber, attacca);
    // Last, for a journal that cannot be written throws.
    if (changeLogEditor_ != nullptr) changeLogEditor_->NoteChangedInPlace();
}

// State.

unsigned char Interface::GetState() {
    return static_cast<unsigned char>(GetPlayer()->GetPlayerState());
}

bool Interface::GetIsStopped() {
    return GetPlayer()->GetPlayerState() == PlayerState::Stopped;
}

bool Interface::GetIsPlaying() {
    // A faded player does not count here, although Player::IsPlaying counts it: hosts show the fade as a state.
    return GetPlayer()->GetPlayerState() == PlayerState::Playing;
}

bool Interface::GetIsPaused() {
    return GetPlayer()->GetPlayerState() == PlayerState::Paused;
}

bool Interface::GetIsFaded() {
    return GetPlayer()->GetPlayerState() == PlayerState::Faded;
}

bool Interface::IsStopped() {
    return GetPlayer()->IsStopped();
}

std::string Interface::GetCurrentSongNumber() {
    return GetPlayer()->GetActiveSongNumberRef().Get();
}

double Interface::GetElapsedTime() {
    return GetPlayer()->GetElapsedTime();
}

unsigned int Interface::GetTickIndex() {
    // Asked for and not used: a host sees the question in its GetPlayer.
    static_cast<void>(GetPlayer());
    return GetGuiUpdate().GetTickIndex();
}

// MIDI commands.

void Interface::LearnMidiCommand(unsigned char command) {
    midiCommands_.LearnMidiCommandNoAssign(command);
}

bool Interface::IsMidiCommandLearning(unsigned char command) {
    return midiCommands_.IsMidiCommandLearning(command);
}

std::map<unsigned char, midi_commands::LearnedCommand> Interface::GetLearnedCommands() {
    return midiCommands_.GetLearnedCommands();
}

void Interface::SetMidiCommand(unsigned char command, unsigned char status, unsigned char data1, unsigned char data2) {
    midiCommands_.SetMidiCommand(command, status, data1, data2);
}

void Interface::UnsetMidiCommand(unsigned char command) {
    midiCommands_.UnsetMidiCommand(command);
}

std::map<unsigned char, std::string> Interface::GetCommandNames() {
    return midi_commands::commandNames;
}

std::vector<int> Interface::GetAllowedCommandStatuses() {
    return {allowedStatuses.begin(), allowedStatuses.end()};
}

void Interface::SetMidiSource(int index) {
    constexpr int HighestIndex = 255;
    if (index > HighestIndex)
        throw std::out_of_range(kit::format("%d is higher than max allowable source index (255)", index));
    // A negative index is not refused; it stands for the source whose index is its low byte.
    midiCommands_.ConnectSourceByIndex(static_cast<unsigned char>(index));
}

bool Interface::HasMidiSource() {
    return midiMessageDispatcher_.GetIsConnected();
}

unsigned char Interface::GetConnectedSourceIndex() {
    return midiMessageDispatcher_.GetPortIndex();
}

std::vector<MidiEndPoint> Interface::GetMidiSources() {
    return GetNonTavoMidiSources();
}

std::vector<MidiEndPoint> Interface::GetMidiDestinations() {
    return GetNonTavoMidiDestinations();
}

bool Interface::GetHasConductBeat() {
    return HasMidiSource() && midiCommands_.GetHasConductBeat();
}

// MIDI time code.

void Interface::ActivateMidiTimeCode() {
    midiTimeCodeController_.ActivateMidiTimeCode();
}

void Interface::CancelMidiTimeCode() {
    midiTimeCodeController_.CancelMidiTimeCode();
}

bool Interface::GetMidiTimeCodeIsActive() {
    return midiTimeCodeController_.GetIsActive();
}

unsigned char Interface::GetFrameRate() {
    return static_cast<unsigned char>(midiTimeCodeController_.GetFrameRate());
}

void Interface::SetFrameRate(unsigned char frameRate) {
    midiTimeCodeController_.SetFrameRate(static_cast<FrameRate>(frameRate));
}

std::string Interface::GetFrameRateAsString() {
    return ConvertFrameRateToString(midiTimeCodeController_.GetFrameRate());
}

void Interface::SetFrameRateFromString(const std::string& text) {
    midiTimeCodeController_.SetFrameRate(ConvertStringToFrameRate(text));
}

std::vector<std::string> Interface::GetFrameRateStrings() {
    return frameRateStrings;
}

unsigned int Interface::GetMidiTimeCodeOutputPortIndex() {
    return midiTimeCodeController_.GetOutputPortIndex();
}

bool Interface::GetHasMidiTimeCodeOutputPortIndex() {
    return midiTimeCodeController_.GetHasOutputPortIndex();
}

void Interface::SetMidiTimeCodeOutputPortIndex(unsigned int index) {
    midiTimeCodeController_.SetOutputPortIndex(index);
}

// The end.

void Interface::PrepareForExit() {
    constexpr unsigned int MsForThreadsToFinish = 100;
    notify::GuiDispatcherPrepareForExit();
    GetGuiUpdate().PrepareForExit();
    GetPlayer()->PrepareForExit();
    midiMessageDispatcher_.Disconnect();
    midiTimeCodeController_.PrepareForExit();
    kit::Sleep(MsForThreadsToFinish);
}

void Interface::Shutdown() {
    GetPlayer()->HaltOutput();
    GetGuiUpdate().Quit();
    GetPlayer()->Shutdown();
    midiMessageDispatcher_.Disconnect();
    midiTimeCodeController_.Shutdown();
    notify::callbackDispatcher.RemoveCallbacksForTarget(this);
}
