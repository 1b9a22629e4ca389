// The engine's part towards flow control: arrivals, jumps, holds and stops.

#include <algorithm>
#include <cmath>

#include "stage/engine/engine.h"

namespace stage {

namespace {

// Edits may lead from one to the next at one tick; beyond this many, playback goes on by a tick whatever they say.
constexpr int MaxTriesAtOneMoment = 512;

}  // namespace

// The playhead, the speed or the edits may have been changed by others since the last look.
void Engine::FollowOutside_(Lock& lock) {
    looksOutside_ = false;
    // Somebody is loading or editing: what is under way goes on until flow control has time.
    const std::optional<StageShowControl::Outside> outside = LookOutside_();
    lookedInVain_ = !outside;
    if (!outside) return;
    FollowTempo_(*outside);
    const bool isArrivalDue = from_ == to_ && !isHolding_ && wait_ == Wait::None;
    if (isArrivalDue || !outside->jump) return;
    UpdatePosition_();
    now_ = {frame_, 0};
    ArriveAt_(lock, isHolding_ ? to_ : position_.load());
}

void Engine::FollowTempo_(const StageShowControl::Outside& outside) {
    transposition_ = outside.transposition;
    if (controls_.GetTempoScale() == userScale_) return;
    userScale_ = controls_.GetTempoScale();
    if (from_ == to_) return;  // the arrival that is due applies it
    clock_.Rescale(frame_, AsMillionths(outside.tempoScale));
    toTime_ = clock_.TimeOfTick(to_);
    FindNextEventFrame_();
}

void Engine::ArriveAt_(Lock& lock, std::uint32_t tick) {
    position_ = tick;
    const std::optional<std::uint32_t> resumedFrom = leftCaesura_;
    const std::uint64_t interruptions = interruptions_;
    Step step = Step::Again;
    for (int tries = 0; step == Step::Again && tries < MaxTriesAtOneMoment; ++tries) {
        step = TryToAdvance_(lock, tick);
        // A jump is reported before flow control decides what follows it.
        if (step == Step::Again && !events_.empty()) CarryOut_(lock);
        if (interruptions_ != interruptions) return;
    }
    if (step == Step::Again) BeginAdvance_(tick, tick + 1);
    if (leftCaesura_ != tick) leftCaesura_.reset();
    if (step == Step::Elsewhere || resumedFrom == tick) return;
    UpdatePosition_();
    Tell_({.kind = EngineEvent::Kind::Arrived, .frame = now_.Rounded(), .fromTick = tick, .tick = tick});
}

// One turn of the engine's obligations at an arrival. Elsewhere when playback stands short of the tick, or the host is
// to say how it goes on.
Engine::Step Engine::TryToAdvance_(Lock& lock, std::uint32_t& tick) {
    const StageShowControl::Arrival arrival = flow_.ArriveAt(tick);
    if (arrival.hasJumped) {
        TakeJump_(tick, arrival);
        tick = arrival.tick;
        return Step::Again;
    }
    if (arrival.isHeld) {
        Hold_(tick);
        return Step::Elsewhere;
    }
    ApplyScale_(tick, arrival.tempoScale);
    transposition_ = arrival.transposition;
    if (arrival.loopEnd == tick && ProcessLoops_(lock)) return Step::Again;
    if (tick >= plan_->GetEndTick()) {
        WaitAtSongEnd_();
        return Step::Elsewhere;
    }
    const FindNextControlEventResult result = flow_.Search(tick, PlanEnd_(tick, arrival.loopEnd));
    if (result.caesuraHere) {
        // A caesura whose countdown begins on its own tick is met once more when playback goes on from there.
        if (leftCaesura_ == tick || host_.TakeCaesuraCancellation()) return Step::Again;
        WaitAtCaesura_(tick);
        return Step::Elsewhere;
    }
    if (result.cutHere) {
        const std::uint32_t cutFrom = tick;
        tick = result.tickIndex;
        flow_.SkipTo(tick);
        Order_({.kind = SoundOrder::Kind::EndNotes});
        MoveTo_(tick);
        TakeSoundsAlong_(tick, false);
        TellJump_(EngineEvent::Reason::Cut, cutFrom, tick, false);
        return Step::Again;
    }
    // Loops were registered, or a caesura met, right here: what it means is found by looking again.
    if (result.loopStartsHere || result.tickIndex <= tick) return Step::Again;
    BeginAdvance_(tick, result.tickIndex);
    return Step::Arrived;
}

// Whether the arrival begins anew: a loop jumped back, or playback was stopped meanwhile.
bool Engine::ProcessLoops_(Lock& lock) {
    const std::uint64_t interruptions = interruptions_;
    // Letting a vamp go may seek, which may call whoever moves the playhead out of cuts: any operation may come.
    lock.unlock();
    flow_.ProcessLoopEventsAtCurrentTickIndex();
    lock.lock();
    return interruptions_ != interruptions || flow_.GetJump();
}

void Engine::TakeJump_(std::uint32_t fromTick, const StageShowControl::Arrival& jump) {
    const bool stays = jump.tick == fromTick && from_ == to_;
    const std::uint32_t toTick = jump.tick;
    // A caesura that was cancelled on the way is not the next one.
    host_.TakeCaesuraCancellation();
    if (isHolding_ && jump.tick == to_) {
        // Time goes on where it stood: what sounds over the fermata's end sounds on.
        clock_.Anchor(toTick, now_, clock_.GetScaleMillionths());
        from_ = to_;
        isHolding_ = false;
        TellMove_(EngineEvent::Kind::Released, now_.Rounded(), toTick, toTick);
        return;
    }
    Order_({.kind = SoundOrder::Kind::EndNotes});
    const bool wasHolding = isHolding_;
    MoveTo_(toTick);
    TakeSoundsAlong_(toTick, !jump.isForLoop && !stays);
    using enum EngineEvent::Reason;
    if (!stays) TellJump_(jump.isForLoop ? Loop : Seek, fromTick, toTick, wasHolding);
}

void Engine::TellJump_(EngineEvent::Reason reason, std::uint32_t fromTick, std::uint32_t toTick, bool wasHolding) {
    toldTick_ = toTick;
    Tell_({.kind = EngineEvent::Kind::Jumped,
           .reason = reason,
           .wasHolding = wasHolding,
           .frame = now_.Rounded(),
           .fromTick = fromTick,
           .tick = toTick});
}

// Puts everything that is looked up by tick at `tick`, at the moment of the arrival.
void Engine::MoveTo_(std::uint32_t tick) {
    from_ = to_ = tick;
    isHolding_ = false;
    wait_ = Wait::None;
    nextEvent_ = plan_->FindEvent(tick);
    nextEventTick_ = tick;
    nextCue_ = plan_->FindCue(tick);
    nextStop_ = 0;
    clock_.Anchor(tick, now_, clock_.GetScaleMillionths());
    toTime_ = now_;
    nextEventFrame_ = now_.Rounded();
    position_ = tick;
    Order_({.kind = SoundOrder::Kind::Chase, .tick = tick, .plan = plan_.get()});
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
    for (const std::optional<std::uint32_t>& wanted : wantedTicks_)
        if (wanted && *wanted > tick) end = std::min(end, *wanted);
    if (loopEnd && *loopEnd > tick) end = std::min(end, *loopEnd);
    return end;
}

void Engine::BeginAdvance_(std::uint32_t fromTick, std::uint32_t toTick) {
    from_ = fromTick;
    to_ = toTick;
    toTime_ = clock_.TimeOfTick(toTick);
    FindNextEventFrame_();
    if (plan_->HasSoundEnd(fromTick)) Order_({.kind = SoundOrder::Kind::EndSoundsBefore, .tick = fromTick});
    SendCues_(fromTick);
    SendClick_(fromTick);
}

// Every beat is a place where an advance begins.
void Engine::SendClick_(std::uint32_t tick) {
    const ClickBeat* beat = plan_->FindClickBeat(tick);
    if (beat != nullptr && (beat->isEdited || clicksEverywhere_))
        Order_({.kind = SoundOrder::Kind::Click, .isAccent = beat->isAccent});
}

void Engine::SendCues_(std::uint32_t tick) {
    const std::vector<Cue>& cues = plan_->GetCues();
    for (; nextCue_ < cues.size() && cues[nextCue_].tick <= tick; ++nextCue_) {
        const Cue& cue = cues[nextCue_];
        if (cue.tick < tick) continue;
        if (cue.sound.sound != nullptr)
            Order_({.kind = SoundOrder::Kind::StartSound, .plan = plan_.get(), .sound = &cue.sound});
        Tell_({.kind = EngineEvent::Kind::Cue,
               .frame = now_.Rounded(),
               .fromTick = cue.tick,
               .tick = cue.tick,
               .cue = &cue});
    }
}

// Effects play out where the music goes round or leaves something out; a seek is for another place, and so for other
// sounds.
void Engine::TakeSoundsAlong_(std::uint32_t tick, bool isSeek) {
    Order_({.kind = isSeek ? SoundOrder::Kind::EndSounds : SoundOrder::Kind::FollowJump, .tick = tick});
    TakeUpAmbiences_(tick, false);
}

// Those that began before the tick and do not sound, at the place where they would be had playback come from there at
// the tempo of the moment. One that begins at the tick begins with its cue, unless that has passed.
void Engine::TakeUpAmbiences_(std::uint32_t tick, bool isCuePassed) {
    const tavo_midi::TempoMap& tempos = plan_->GetHeardTempoMap();
    for (const Cue& cue : plan_->GetCues()) {
        if (cue.tick > tick) break;
        const bool isDue = cue.sound.sound != nullptr && cue.sound.IsAmbience() && cue.sound.Covers(tick);
        if (!isDue || (cue.tick == tick && !isCuePassed)) continue;
        const std::uint64_t place = tempos.GetTickMicroseconds(tick) - tempos.GetTickMicroseconds(cue.tick);
        const double seconds = static_cast<double>(place) / tempos.GetTicksPerQuarter() / 1e6 / userScale_;
        Order_({.kind = SoundOrder::Kind::StartSound,
                .plan = plan_.get(),
                .sound = &cue.sound,
                .offset = static_cast<std::uint64_t>(std::llround(seconds * framesPerSecond_))});
    }
}

void Engine::Hold_(std::uint32_t tick) {
    if (isHolding_) return;
    to_ = tick;
    isHolding_ = true;
    TellMove_(EngineEvent::Kind::Held, now_.Rounded(), tick, tick);
}

void Engine::WaitAtCaesura_(std::uint32_t tick) {
    leftCaesura_ = tick;
    from_ = to_ = tick;
    toTime_ = now_;
    nextEventFrame_ = now_.Rounded();
    position_ = tick;
    wait_ = Wait::AtCaesura;
    isToAsk_ = true;
    Order_({.kind = SoundOrder::Kind::EndNotes});
    Order_({.kind = SoundOrder::Kind::EndSoundsBefore, .tick = tick});
}

void Engine::WaitAtSongEnd_() {
    from_ = to_;
    position_ = to_;
    wait_ = Wait::AtSongEnd;
    isToAsk_ = true;
    Order_({.kind = SoundOrder::Kind::EndSoundsBefore, .tick = to_});
    Tell_({.kind = EngineEvent::Kind::SongEnded, .frame = now_.Rounded(), .fromTick = to_, .tick = to_});
}

}  // namespace stage
