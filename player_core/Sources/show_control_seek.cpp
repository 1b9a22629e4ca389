// Seeks: putting the playhead somewhere as if playback had arrived there.

#include <algorithm>
#include <utility>

#include "player_core/gui_update.h"
#include "player_core/show_control.h"
#include "player_core/tavo_ext.h"
#include "tavo_core/active_change_log.h"
#include "tavo_core/callback_dispatcher.h"
#include "tavo_core/event_codes.h"

namespace {

// This soon after a marker or a bar line, a step to the left goes to the one before it.
constexpr unsigned int StepBackThresholdTicks = 960;

constexpr std::pair<bool, unsigned int> NotInCut{false, 0U};

}  // namespace

std::pair<bool, unsigned int> ShowControl::FindNextControlEventOnSeek(unsigned int tickIndex, bool skipCaesura) {
    const SeekLock lock(seekMutex_);
    std::pair<bool, unsigned int> answer = NotInCut;
    pairedEventMap_.VisitCovering(tickIndex, [&](const cmn::TavoEvent& event) {
        switch (event.code()) {
            case codes::Cut:
                answer = {true, event.end()};
                return false;
            case codes::Caesura:
                PushCaesuraIfNew_(static_cast<const CountdownCaesura&>(event));
                break;
            case codes::Fermata:
                if (!fermata_) InsertLoopEvent_(event, tickIndex);
                break;
            default:
                InsertLoopEvent_(event, tickIndex);
                break;
        }
        return true;
    });
    if (!answer.first && !skipCaesura && caesuraCounter_.HasCaesuraAtTickIndex(tickIndex)) {
        StandAtOrLeaveCaesura_(tickIndex);
    }
    return answer;
}

void ShowControl::StandAtOrLeaveCaesura_(unsigned int tickIndex) {
    const CountdownCaesura& caesura = caesuraCounter_.GetCountdownCaesuraAtTickIndex(tickIndex);
    const bool isFront = !caesuraStack_.empty() && caesuraStack_.front() == caesura;
    if (!caesuraPost_) {
        if (!isFront) caesuraStack_.push_front(caesura);
        atCaesura_ = true;
        caesuraTickIndex_ = tickIndex;
        return;
    }
    atCaesura_ = false;
    SetCaesuraPost_(false);
    if (!isFront) return;
    caesuraDisplayPending_ = true;
    caesuraDisplayTickIndex_ = tickIndex;
    caesuraStack_.pop_front();
}

bool ShowControl::Seek(unsigned int tickIndex) {
    const SeekLock serialLock(seekSerialMutex_, std::defer_lock);
    const SeekLock seekLock(seekMutex_, std::defer_lock);
    const kit::LockCollection locks(serialLock, seekLock);
    locks.Lock();
    if (!caesuraPost_) {
        atCaesura_ = false;
        SetCaesuraPost_(false);
    }
    const bool isOwn = std::exchange(seekIsOwn_, false) || ownCutEnd_ == tickIndex;
    ownCutEnd_.reset();
    tickIndex = std::max(tickIndex, GetStartTickIndex());
    lastSeekTickIndex_ = tickIndex;
    // A seek of flow control's own gives nothing a second turn, or a song could go round forever by itself.
    if (!isOwn) spentEvents_.clear();
    if (fermata_) {
        // It posts. The serial lock keeps other seeks out; the engine may have moved on, or an exit released something:
        // what follows looks at the loops anew.
        const kit::ScopedUnlock unlock(seekLock);
        DoExpireFermata();
    }
    loopEvents_.RemoveCanceledEvents();
    loopEvents_.RemoveInactiveEvents(tickIndex);
    ExpireOutOfRangeCaesuras(tickIndex);
    std::pair<bool, unsigned int> cut = FindNextControlEventOnSeek(tickIndex, false);
    if (cut.first) {
        // Whoever owns the playhead moves it out of the cut, by a seek on this or on another thread; that is part of
        // this one, and the next seek to anywhere else is not.
        if (isOwn) ownCutEnd_ = cut.second;
        seekLock.Unlock();
        notify::callbackDispatcher.Notify(notify::names::internal_cut, &cut.second);
        return true;
    }
    {
        // Meanwhile the engine may arrive or search at the old place; the jump below overrules where it went. Other
        // seeks wait.
        const kit::ScopedUnlock unlock(seekLock);
        GetGuiUpdate().Seek(tickIndex);
    }
    SetJump(tickIndex, locks, false);
    // The engine may follow the jump before the status is posted, which is then that of where it is.
    seekLock.Unlock();
    CheckForRemainingVampRepeatOrFermata();
    return false;
}

unsigned int ShowControl::RecoverySeek(unsigned int tickIndex) {
    const SeekLock serialLock(seekSerialMutex_, std::defer_lock);
    const SeekLock seekLock(seekMutex_, std::defer_lock);
    const kit::LockCollection locks(serialLock, seekLock);
    locks.Lock();
    // Unlike a seek it leaves a holding fermata and the loop list as they are: playback goes on where it broke off.
    tickIndex = FindFirstNonCut_(std::max(tickIndex, GetStartTickIndex()));
    lastSeekTickIndex_ = tickIndex;
    {
        // As in a seek: the engine may move meanwhile, and the jump overrules it.
        const kit::ScopedUnlock unlock(seekLock);
        GetGuiUpdate().Seek(tickIndex);
    }
    SetJump(tickIndex, seekLock, false);
    // As in a seek.
    seekLock.Unlock();
    CheckForRemainingVampRepeatOrFermata();
    return tickIndex;
}

void ShowControl::SeekLeft() {
    Seek(GetSeekLeft());
}

void ShowControl::SeekRight() {
    try {
        Seek(GetSeekRight());
    } catch (const tavo_ext::NoNextMarker&) {
        // No marker ahead: the playhead stays.
    }
}

// find(position, songLog), with what it reads guarded.
template <class FindMarker>
unsigned int ShowControl::FindMarkerFromPosition_(FindMarker&& find) {
    const std::lock_guard guiLock(GetGuiUpdate().GetMutex());
    const unsigned int position = GetGuiUpdate().GetTickIndex();
    const std::shared_lock songGuard(activeSongNumber_);
    const ActiveChangeLogShared changeLog;
    return find(position, changeLog->GetSongLog(activeSongNumber_.Peek()));
}

unsigned int ShowControl::GetSeekLeft() {
    return FindMarkerFromPosition_([](unsigned int position, const CL::SongLog& songLog) {
        const unsigned int marker = tavo_ext::get_previous_marker_time(position, songLog);
        if (position - marker >= StepBackThresholdTicks) return marker;
        // Near the song's start this asks before tick 0, wraps, and so answers with the song's last marker.
        return tavo_ext::get_previous_marker_time(marker - 1, songLog);
    });
}

unsigned int ShowControl::GetSeekRight() {
    return FindMarkerFromPosition_([](unsigned int position, const CL::SongLog& songLog) {
        return tavo_ext::get_next_marker_time(position, songLog);
    });
}

unsigned int ShowControl::GetPreviousMeasureTickIndex() {
    const SeekLock lock(seekMutex_);
    const std::lock_guard guiLock(GetGuiUpdate().GetMutex());
    const unsigned int position = GetGuiUpdate().GetTickIndex();
    const unsigned int measure = GetHowToPlay().GetPreviousMeasureTickIndex(position);
    if (position - measure >= StepBackThresholdTicks) return measure;
    return GetHowToPlay().GetPreviousMeasureTickIndex(measure - 1);
}

unsigned int ShowControl::GetNextMeasureTickIndex() {
    const SeekLock lock(seekMutex_);
    const std::lock_guard guiLock(GetGuiUpdate().GetMutex());
    return GetHowToPlay().GetNextMeasureTickIndex(GetGuiUpdate().GetTickIndex());
}

void ShowControl::ResetControlVariables() {
    const SeekLock lock(seekMutex_);
    // Standing at a caesura and being attacca outlive it: the one ends with the next seek, the other with the song.
    caesuraTickIndex_ = 0;
    caesuraStack_.clear();
    SetCaesuraPost_(false);
    caesuraDisplayPending_ = false;
    caesuraDisplayTickIndex_ = 0;
    tickIndex_ = GetStartTickIndex();
    lastSeekTickIndex_ = 0;
    preJumpTickIndex_ = 0;
    lastJumpTargetTickIndex_ = 0;
    fermata_ = false;
    fermataCanceledCaesura_ = false;
    jump_ = false;
    jumpForVampRepeatOrCut_ = false;
    loopEvents_.Clear();
    spentEvents_.clear();
    seekIsOwn_ = false;
    ownCutEnd_.reset();
}

bool ShowControl::FullReset() {
    ResetControlVariables();
    const bool isInCut = Seek(GetStartTickIndex());
    ResetGuiUpdate();
    return isInCut;
}

void ShowControl::ResetGuiUpdate() {
    GetGuiUpdate().ResetAndSeekToTickIndex(GetTickIndex());
}
