#include "stage/engine/stage_show_control.h"

#include <algorithm>
#include <mutex>

#include "tavo_core/event_codes.h"

namespace stage {

StageShowControl::StageShowControl(ActiveSongNumber& activeSongNumber, const tavo_midi::ShowData& showData,
                                   UserControls& controls)
    : ShowControl(activeSongNumber, showData), howToPlay_(controls) {}

void StageShowControl::LoadNewChangeLog() {
    std::optional<unsigned int> lostFermataEnd;
    {
        const std::lock_guard lock(GetSeekLock());
        const FlowState before = CopyState_();
        ShowControl::LoadNewChangeLog();
        KeepWhatFits_(before);
        if (GetFermata()) lostFermataEnd = FindLostFermata_(before);
    }
    // Playback waits just short of the end of a hold: beyond it, it goes on.
    if (lostFermataEnd) Seek(*lostFermataEnd);
    CheckForRemainingVampRepeatOrFermata();
}

void StageShowControl::OnCaesuraStop() {
    std::list<LoopEvent> before;
    {
        const std::lock_guard lock(GetSeekLock());
        before = GetLoopEvents_().GetEvents();
    }
    ShowControl::OnCaesuraStop();
    // The seek has reached the caesura, unless a cut begins there and led on to its end.
    if (GetLastSeekTickIndex() != GetCaesuraTickIndex()) LeaveCaesura_();
    if (CancelAgain_(before)) CheckForRemainingVampRepeatOrFermata();
}

/// Whether there is one that was cancelled before, came back and is cancelled now.
bool StageShowControl::CancelAgain_(const std::list<LoopEvent>& before) {
    const std::lock_guard lock(GetSeekLock());
    LoopEventList& loops = GetLoopEvents_();
    std::list<LoopEvent> events = loops.GetEvents();
    bool isAnyCancelled = false;
    for (LoopEvent& event : events) {
        const auto earlier = std::find(before.begin(), before.end(), event);
        if (earlier == before.end() || !earlier->canceled || event.canceled) continue;
        event.canceled = true;
        isAnyCancelled = true;
    }
    if (!isAnyCancelled) return false;
    loops.Clear();
    for (const LoopEvent& event : events)
        loops.InsertLoopEvent(event);
    return true;
}

/// The end of the fermata that playback was in and is in no more.
std::optional<unsigned int> StageShowControl::FindLostFermata_(const FlowState& before) {
    const auto& now = GetLoopEvents_().GetEvents();
    for (const FlowState::Loop& loop : before.loops) {
        const bool isIn = std::any_of(now.begin(), now.end(), [&loop](const LoopEvent& event) {
            return event.type == loop.type && event.start == loop.start && event.end == loop.end;
        });
        if (loop.type == codes::Fermata && !isIn) return loop.end;
    }
    return std::nullopt;
}

StageShowControl::Arrival StageShowControl::ArriveAt(std::uint32_t tick) {
    const std::lock_guard lock(GetSeekLock());
    Arrival arrival;
    if (GetJump()) {
        ClearJump();
        arrival.hasJumped = true;
        arrival.isForLoop = GetJumpForVampRepeatOrCut();
        arrival.tick = GetTickIndex();
        return arrival;
    }
    arrival.tick = tick;
    LoopEventList& loops = GetLoopEvents_();
    if (!loops.IsEmpty()) {
        const LoopEvent& first = loops.GetFirstLoopEvent();
        arrival.loopEnd = first.end;
        arrival.isHeld = first.type == codes::Fermata && first.end == tick && GetFermata();
        if (arrival.isHeld) return arrival;
    }
    SetTickIndex(tick);
    howToPlay_.Advance(tick);
    arrival.tempoScale = howToPlay_.GetTempoScale();
    arrival.transposition = howToPlay_.GetTranspositionValue();
    return arrival;
}

FindNextControlEventResult StageShowControl::Search(std::uint32_t fromTick, std::uint32_t toTick) {
    FindNextControlEventOnAdvance(fromTick, toTick);
    const std::lock_guard lock(GetSeekLock());
    FindNextControlEventResult result = GetResult_();
    if (!result.cutHere && !result.caesuraHere && !result.loopStartsHere && !GetLoopEvents_().IsEmpty()) {
        const std::uint32_t loopEnd = GetLoopEvents_().GetFirstLoopEvent().end;
        if (loopEnd > fromTick) result.tickIndex = std::min<unsigned int>(result.tickIndex, loopEnd);
    }
    return result;
}

void StageShowControl::SkipTo(std::uint32_t tick) {
    const std::lock_guard lock(GetSeekLock());
    DoSkipAhead(tick);
}

std::optional<StageShowControl::Outside> StageShowControl::TryToLook() {
    const std::unique_lock lock(GetSeekLock(), std::try_to_lock);
    if (!lock) return std::nullopt;
    return LookUnderLock_();
}

StageShowControl::Outside StageShowControl::Look() {
    const std::lock_guard lock(GetSeekLock());
    return LookUnderLock_();
}

StageShowControl::Outside StageShowControl::LookUnderLock_() {
    Outside outside;
    if (GetJump()) outside.jump = GetTickIndex();
    outside.tempoScale = howToPlay_.GetTempoScale();
    outside.transposition = howToPlay_.GetTranspositionValue();
    return outside;
}

std::optional<std::uint32_t> StageShowControl::GetWaitingJump() {
    const std::lock_guard lock(GetSeekLock());
    return GetJump() ? std::optional(GetTickIndex()) : std::nullopt;
}

std::vector<LoopEvent> StageShowControl::CopyActiveLoops() {
    LoopEventList copy;
    {
        const std::lock_guard lock(GetSeekLock());
        if (GetLoopEvents_().IsEmpty()) return {};
        copy = GetLoopEvents_();
    }
    std::vector<LoopEvent> loops;
    while (!copy.IsEmpty()) {
        LoopEvent& first = copy.GetFirstLoopEvent();
        loops.push_back(first);
        first.canceled = true;
    }
    return loops;
}

void StageShowControl::SendOsc(const CL::Osc& message) {
    if (GetOscCallback_()) GetOscCallback_()->OnOsc(message);
}

}  // namespace stage
