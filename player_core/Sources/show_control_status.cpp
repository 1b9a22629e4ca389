// What the display is told of the flow, and the operator's exit.

#include <climits>

#include "player_core/gui_update.h"
#include "player_core/show_control.h"
#include "tavo_core/event_codes.h"
#include "tavo_core/gui_dispatcher.h"

namespace {

// The words of the future statuses. Never destroyed: threads may still file them while the process ends.
const auto& statusVamp = *new std::string("Vamp");
const auto& statusRepeat = *new std::string("Repeat");
const auto& statusSkip = *new std::string("Skip");
const auto& statusCaesura = *new std::string("Caesura");
const auto& statusEndOfSong = *new std::string("EndOfSong");
const auto& statusAdvanceAttacca = *new std::string("AdvanceAttacca");
const auto& statusNone = *new std::string;

constexpr int NoCount = -1;
constexpr int ClicksWithoutEndOfSong = 5;  // the end of the song is announced below this

void FileStatus(const std::string& type, int count, unsigned int tickIndex) {
    GetGuiUpdate().AddFutureStatusFlowControl(type, count, tickIndex);
}

void FileLoopStatus(const LoopEvent& loop, unsigned int tickIndex) {
    switch (loop.type) {
        case codes::Vamp:
            return FileStatus(statusVamp, loop.count, tickIndex);
        case codes::Repeat:
            return FileStatus(statusRepeat, loop.count, tickIndex);
        // A fermata shows as a skip: what the operator does next skips the rest of it.
        case codes::Fermata:
            return FileStatus(statusSkip, 0, tickIndex);
        default:
            return FileStatus(statusNone, 0, tickIndex);
    }
}

}  // namespace

void ShowControl::CheckForRemainingVampRepeatOrFermata() {
    const SeekLock lock(seekMutex_);
    PostVampLamp_(loopEvents_.GetHasVampOrFermata());
    {
        // Tick and loops may be others afterwards: the status below is made of what is there then.
        const kit::ScopedUnlock unlock(lock);
        if (SendCounts()) return;
    }
    const unsigned int tickIndex = tickIndex_;
    if (loopEvents_.IsEmpty()) {
        lock.Unlock();
        FileStatus(statusNone, 0, tickIndex);
        return;
    }
    // A copy: the loop may be gone when its status is filed.
    const LoopEvent loop = loopEvents_.GetFirstLoopEvent();
    lock.Unlock();
    FileLoopStatus(loop, tickIndex);
}

void ShowControl::PostVampLamp_(bool isOn) {
    vampLampIsOn_ = isOn;
    if (isOn) {
        notify::guiDispatcher.SendVampOn();
    } else {
        notify::guiDispatcher.SendVampOff();
    }
}

bool ShowControl::SendCounts() {
    if (SendCaesuraCount()) return true;
    int clicks = 0;
    unsigned int tickIndex = 0;
    bool attacca = false;
    {
        const SeekLock lock(seekMutex_);
        clicks = GetHowToPlay().GetClicksToSongEnd();
        tickIndex = tickIndex_;
        attacca = attacca_;
    }
    if (clicks >= ClicksWithoutEndOfSong) return false;
    FileStatus(attacca ? statusAdvanceAttacca : statusEndOfSong, clicks, tickIndex);
    return true;
}

bool ShowControl::SendCaesuraCount() {
    const SeekLock lock(seekMutex_);
    const unsigned int tickIndex = tickIndex_;
    // Filed for the tick that was read, wherever playback is by then.
    const auto file = [&lock, tickIndex](int count) {
        lock.Unlock();
        FileStatus(statusCaesura, count, tickIndex);
        return true;
    };
    if (caesuraDisplayPending_) {
        if (caesuraDisplayTickIndex_ == tickIndex) return file(0);
        caesuraDisplayPending_ = false;
    }
    if (caesuraStack_.empty()) return false;
    CountdownCaesura& front = caesuraStack_.front();
    if (front.WithinCountdownRange(tickIndex)) {
        if (!loopEvents_.IsEmpty()) {
            const LoopEvent& loop = loopEvents_.GetFirstLoopEvent();
            const bool isInLoop = loop.start < front.GetTickIndex() && front.GetTickIndex() < loop.end;
            // Behind the loop that is being played it does not count down yet.
            if (loop.type != codes::Fermata && !isInLoop) return false;
        }
        const int count = GetCaesuraCountdown();
        return count == NoCount || file(count);
    }
    if (front.GetTickIndex() != tickIndex) return false;
    if (front.GetZeroCountHasBeenReported()) return true;
    front.SetZeroCountHasBeenReported();
    return file(0);
}

int ShowControl::GetCaesuraCountdown() {
    const SeekLock lock(seekMutex_);
    return caesuraStack_.empty() ? NoCount : caesuraStack_.front().GetCountdownAtTickIndex(tickIndex_);
}

unsigned int ShowControl::GetFirstCaesuraStackTickIndex() {
    const SeekLock lock(seekMutex_);
    return caesuraStack_.empty() ? UINT_MAX : caesuraStack_.front().GetTickIndex();
}

unsigned int ShowControl::GetCaesuraTickIndexAlignedWithClock(unsigned int tickIndex) {
    return tickIndex;
}

void ShowControl::FlowControlExit() {
    if (GetFermata()) {
        DoFlowControlExit_();
        return;
    }
    const SeekLock lock(seekMutex_);
    const bool isCaesuraNext =
        !caesuraStack_.empty() &&
        (!loopEvents_.GetHasVamp() || caesuraStack_.front().GetTickIndex() < loopEvents_.GetFirstVampLoopEvent().end);
    if (isCaesuraNext) {
        caesuraStack_.pop_front();
    } else {
        loopEvents_.CancelVamp();
    }
    // Nothing is read afterwards.
    const kit::ScopedUnlock unlock(lock);
    CheckForRemainingVampRepeatOrFermata();
}

void ShowControl::DoFlowControlExit_() {
    const SeekLock lock(seekMutex_);
    const std::optional<unsigned int> seekTarget = DecideFlowControlExit_();
    // What was decided is carried out even if another seek comes in between: the later one stands.
    lock.Unlock();
    FinishFlowControlExit_(seekTarget);
}

// The decision, under the seek lock: where to seek when a fermata is released, or nothing when a vamp is left.
std::optional<unsigned int> ShowControl::DecideFlowControlExit_() {
    if (!fermata_) {
        loopEvents_.RemoveCanceledEventsEndingOnOrBefore(tickIndex_);
        loopEvents_.RemoveVamp();
        return std::nullopt;
    }
    if (HasPendingCaesura()) {
        fermataCanceledCaesura_ = true;
        atCaesura_ = false;
        SetCaesuraPost_(false);
    }
    fermata_ = false;
    seekIsOwn_ = true;
    PostVampLamp_(false);
    return GetCaesuraTickIndexAlignedWithClock(fermataEvent_->end());
}

// The rest of it, without the seek lock.
void ShowControl::FinishFlowControlExit_(std::optional<unsigned int> seekTarget) {
    if (seekTarget) {
        Seek(*seekTarget);
    } else {
        CheckForRemainingVampRepeatOrFermata();
    }
}

bool ShowControl::HasPendingCaesura() {
    const SeekLock lock(seekMutex_);
    return atCaesura_ && !caesuraPost_;
}

bool ShowControl::HasCaesuraAtTickIndex(unsigned int tickIndex) {
    const SeekLock lock(seekMutex_);
    return caesuraCounter_.HasCaesuraAtTickIndex(tickIndex);
}

void ShowControl::SetCaesuraPost_(bool post) {
    const SeekLock lock(seekMutex_);
    caesuraPost_ = post;
}

void ShowControl::OnCaesuraStop() {
    {
        const SeekLock lock(seekMutex_);
        SetCaesuraPost_(true);
        seekIsOwn_ = true;
    }
    Seek(caesuraTickIndex_);
    ResetGuiUpdate();
}

void ShowControl::LeaveCaesura_() {
    const SeekLock lock(seekMutex_);
    atCaesura_ = false;
    caesuraPost_ = false;
}

void ShowControl::ResetCaesuraState(unsigned int tickIndex) {
    const SeekLock lock(seekMutex_);
    atCaesura_ = false;
    caesuraStack_.clear();
    fermataCanceledCaesura_ = false;
    if (tickIndex != caesuraDisplayTickIndex_) caesuraDisplayPending_ = false;
}
