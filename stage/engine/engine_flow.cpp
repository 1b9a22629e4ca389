// The engine's part towards flow control: arrivals, jumps, holds and stops.

#include <algorithm>

#include "stage/engine/engine.h"

namespace stage {

namespace {

// Edits may lead from one to the next at one tick; beyond this many, playback goes on by a tick whatever they say.
constexpr int MaxTriesAtOneMoment = 512;

}  // namespace

// The playhead, the speed or the edits may have been changed by others since the last look.
void Engine::FollowOutside_() {
    looksOutside_ = false;
    FollowTempo_();
    const bool isArrivalDue = from_ == to_ && !isHolding_;
    if (isArrivalDue || !flow_.GetWaitingJump()) return;
    UpdatePosition_();
    now_ = {frame_, 0};
    ArriveAt_(isHolding_ ? to_ : position_.load());
}

void Engine::FollowTempo_() {
    const int transposition = flow_.GetTransposition();
    transposition_ = transposition;
    if (controls_.GetTempoScale() == userScale_) return;
    userScale_ = controls_.GetTempoScale();
    if (from_ == to_) return;  // the arrival that is due applies it
    clock_.Rescale(frame_, AsMillionths(flow_.GetTempoScale()));
    toTime_ = clock_.TimeOfTick(to_);
    FindNextEventFrame_();
}

void Engine::ArriveAt_(std::uint32_t tick) {
    position_ = tick;
    const std::optional<std::uint32_t> resumedFrom = leftCaesura_;
    Step step = Step::Again;
    for (int tries = 0; step == Step::Again && tries < MaxTriesAtOneMoment; ++tries)
        step = TryToAdvance_(tick);
    if (step == Step::Again) BeginAdvance_(tick, tick + 1);
    if (leftCaesura_ != tick) leftCaesura_.reset();
    if (listener_ == nullptr) return;
    // Whoever listens may have pressed something.
    looksOutside_ = true;
    if (step == Step::Elsewhere || resumedFrom == tick) return;
    UpdatePosition_();
    listener_->OnArrival(tick);
}

// One turn of the engine's obligations at an arrival. Elsewhere when playback stands short of the tick, or the song is
// over.
Engine::Step Engine::TryToAdvance_(std::uint32_t& tick) {
    const StageShowControl::Arrival arrival = flow_.ArriveAt(tick);
    if (arrival.hasJumped) {
        TakeJump_(tick, arrival);
        tick = arrival.tick;
        return Step::Again;
    }
    if (arrival.isHeld) return Hold_(tick), Step::Elsewhere;
    ApplyScale_(tick, arrival.tempoScale);
    transposition_ = arrival.transposition;
    if (arrival.loopEnd == tick) {
        flow_.ProcessLoopEventsAtCurrentTickIndex();
        if (flow_.GetJump()) return Step::Again;
    }
    if (tick >= plan_->GetEndTick()) return EndSong_(), Step::Elsewhere;

    const FindNextControlEventResult result = flow_.Search(tick, PlanEnd_(tick, arrival.loopEnd));
    if (result.caesuraHere) {
        // A caesura whose countdown begins on its own tick is met once more when playback goes on from there.
        if (leftCaesura_ == tick || host_.TakeCaesuraCancellation()) return Step::Again;
        return StopAtCaesura_(tick), Step::Arrived;
    }
    if (result.cutHere) {
        const std::uint32_t cutFrom = tick;
        tick = result.tickIndex;
        flow_.SkipTo(tick);
        synth_.EndAllNotes();
        MoveTo_(tick);
        TellMove_(PlayheadMove::Loops, now_.Rounded(), cutFrom, tick);
        if (listener_ != nullptr) listener_->OnJump(cutFrom, tick, EngineListener::JumpReason::Cut);
        return Step::Again;
    }
    // Loops were registered, or a caesura met, right here: what it means is found by looking again.
    if (result.loopStartsHere || result.tickIndex <= tick) return Step::Again;
    BeginAdvance_(tick, result.tickIndex);
    return Step::Arrived;
}

void Engine::TakeJump_(std::uint32_t fromTick, const StageShowControl::Arrival& jump) {
    const bool isReleased = isHolding_ && jump.tick == to_;
    const bool stays = jump.tick == fromTick && from_ == to_;
    const std::uint32_t toTick = jump.tick;
    if (isReleased) {
        // Time goes on where it stood: what sounds over the fermata's end sounds on.
        clock_.Anchor(toTick, now_, clock_.GetScaleMillionths());
        from_ = to_;
        isHolding_ = false;
        host_.TakeCaesuraCancellation();
        TellMove_(PlayheadMove::Starts, now_.Rounded(), toTick, toTick);
        if (listener_ != nullptr) listener_->OnRelease(toTick);
        return;
    }
    // A caesura that was cancelled on the way is not the next one.
    host_.TakeCaesuraCancellation();
    synth_.EndAllNotes();
    const bool wasHolding = isHolding_;
    MoveTo_(toTick);
    if (wasHolding) {
        TellMove_(PlayheadMove::Starts, now_.Rounded(), toTick, toTick);
    } else if (!stays) {
        TellMove_(jump.isForLoop ? PlayheadMove::Loops : PlayheadMove::IsPut, now_.Rounded(), fromTick, toTick);
    }
    if (listener_ == nullptr || stays) return;
    using enum EngineListener::JumpReason;
    listener_->OnJump(fromTick, toTick, jump.isForLoop ? Loop : Seek);
}

// Puts everything that is looked up by tick at `tick`, at the moment of the arrival.
void Engine::MoveTo_(std::uint32_t tick) {
    from_ = to_ = tick;
    isHolding_ = false;
    nextEvent_ = plan_->FindEvent(tick);
    nextCue_ = plan_->FindCue(tick);
    nextStop_ = 0;
    clock_.Anchor(tick, now_, clock_.GetScaleMillionths());
    toTime_ = now_;
    nextEventFrame_ = now_.Rounded();
    position_ = tick;
    plan_->GetChannelHistory().FindStateBefore(tick, chaseStates_);
    synth_.ApplyStates(chaseStates_);
}

void Engine::ApplyScale_(std::uint32_t tick, double scale) {
    userScale_ = controls_.GetTempoScale();
    const std::uint32_t millionths = AsMillionths(scale);
    if (millionths != clock_.GetScaleMillionths()) clock_.Anchor(tick, now_, millionths);
}

std::uint32_t Engine::PlanEnd_(std::uint32_t tick, std::optional<std::uint32_t> loopEnd) {
    const std::vector<std::uint32_t>& stops = plan_->GetStops();
    if (nextStop_ > 0 && stops[nextStop_ - 1] > tick) nextStop_ = 0;
    if (nextStop_ == 0 && !stops.empty() && stops.front() <= tick) {
        nextStop_ = static_cast<std::size_t>(std::upper_bound(stops.begin(), stops.end(), tick) - stops.begin());
    }
    while (nextStop_ < stops.size() && stops[nextStop_] <= tick)
        ++nextStop_;
    const std::uint32_t ticksLeft = plan_->GetEndTick() - tick;
    std::uint32_t end = tick + std::min(ticksLeft, clock_.CountTicks(tick, advanceFrames_));
    if (nextStop_ < stops.size()) end = std::min(end, stops[nextStop_]);
    if (wantedTick_ && *wantedTick_ > tick) end = std::min(end, *wantedTick_);
    if (loopEnd && *loopEnd > tick) end = std::min(end, *loopEnd);
    return end;
}

void Engine::BeginAdvance_(std::uint32_t fromTick, std::uint32_t toTick) {
    from_ = fromTick;
    to_ = toTick;
    toTime_ = clock_.TimeOfTick(toTick);
    FindNextEventFrame_();
    SendCues_(fromTick);
}

void Engine::SendCues_(std::uint32_t tick) {
    const std::vector<Cue>& cues = plan_->GetCues();
    for (; nextCue_ < cues.size() && cues[nextCue_].tick <= tick; ++nextCue_) {
        const Cue& cue = cues[nextCue_];
        if (cue.tick < tick) continue;
        if (const auto* message = std::get_if<CL::Osc>(&cue.edit)) flow_.SendOsc(*message);
        if (listener_ != nullptr) listener_->OnCue(cue);
    }
}

void Engine::Hold_(std::uint32_t tick) {
    if (isHolding_) return;
    to_ = tick;
    isHolding_ = true;
    TellMove_(PlayheadMove::Stops, now_.Rounded(), tick, tick);
    if (listener_ != nullptr) listener_->OnHold(tick);
}

void Engine::StopAtCaesura_(std::uint32_t tick) {
    leftCaesura_ = tick;
    from_ = to_ = tick;
    toTime_ = now_;
    nextEventFrame_ = now_.Rounded();
    position_ = tick;
    isRolling_ = false;
    stoodSince_ = frame_;
    synth_.EndAllNotes();
    TellMove_(PlayheadMove::Stops, now_.Rounded(), tick, tick);
    host_.OnCaesuraReached();
}

void Engine::EndSong_() {
    from_ = to_;
    position_ = to_;
    const std::shared_ptr<const SongPlan> ended = plan_;
    host_.OnEndOfSong();
    // Nothing follows and nobody stopped: the song's end is no place to play on from.
    if (plan_ == ended && isRolling_) Stop();
    looksOutside_ = true;
}

}  // namespace stage
