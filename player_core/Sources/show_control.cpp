#include "player_core/show_control.h"

#include "tavo_core/active_change_log.h"

ShowControl::ShowControl(ActiveSongNumber& activeSongNumber, const tavo_midi::ShowData& showData)
    : activeSongNumber_(activeSongNumber), showData_(showData), timeCodeConverter_(showData) {}

ShowControl::~ShowControl() = default;

bool ShowControl::GetConductorMode() {
    return false;
}

void ShowControl::CancelFade() {}

unsigned int ShowControl::GetStartTickIndex() {
    const SeekLock lock(seekMutex_);
    return startTickIndex_;
}

unsigned int ShowControl::GetEndTickIndex() {
    const SeekLock lock(seekMutex_);
    return endTickIndex_;
}

unsigned int ShowControl::GetTickIndex() {
    const SeekLock lock(seekMutex_);
    return tickIndex_;
}

void ShowControl::SetTickIndex(unsigned int tickIndex) {
    const SeekLock lock(seekMutex_);
    tickIndex_ = tickIndex;
}

unsigned int ShowControl::GetLastSeekTickIndex() {
    const SeekLock lock(seekMutex_);
    return lastSeekTickIndex_;
}

bool ShowControl::GetAttacca() {
    const SeekLock lock(seekMutex_);
    return attacca_;
}

bool ShowControl::GetFermata() {
    const SeekLock lock(seekMutex_);
    return fermata_;
}

bool ShowControl::GetFermataCanceledCaesura() {
    const SeekLock lock(seekMutex_);
    return fermataCanceledCaesura_;
}

void ShowControl::ClearFermataCanceledCaesura() {
    const SeekLock lock(seekMutex_);
    fermataCanceledCaesura_ = false;
}

bool ShowControl::GetJump() {
    const SeekLock lock(seekMutex_);
    return jump_;
}

void ShowControl::ClearJump() {
    const SeekLock lock(seekMutex_);
    jump_ = false;
}

bool ShowControl::GetJumpForVampRepeatOrCut() {
    const SeekLock lock(seekMutex_);
    return jumpForVampRepeatOrCut_;
}

void ShowControl::SetAttaccaState(const std::string& songNumber, unsigned char attacca) {
    {
        const ActiveChangeLogExclusive changeLog;
        changeLog->GetSongLog(songNumber).SetAttacca(attacca);
    }
    if (attacca != CL::AttaccaNext || activeSongNumber_.Get() != songNumber) return;
    // Set here and never cleared: a song that was attacca when it was loaded stays so until it is loaded again.
    const SeekLock lock(seekMutex_);
    attacca_ = true;
}

bool ShowControl::SongIsAttacca(const std::string& songNumber) {
    const ActiveChangeLogShared changeLog;
    return changeLog->GetSongLog(songNumber).GetAttacca() == CL::AttaccaNext;
}

bool ShowControl::SongIsNotSkip(const std::string& songNumber) {
    const ActiveChangeLogShared changeLog;
    return changeLog->GetSongLog(songNumber).GetAttacca() != CL::AttaccaSkip;
}
