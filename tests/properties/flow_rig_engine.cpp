// The engine of the rig: at an arrival it sets the tick, lets the loops decide, searches and plays to the result.

#include <algorithm>

#include "tavo_core/event_codes.h"
#include "tests/properties/flow_rig.h"

namespace properties {
namespace {

std::string At(unsigned int tick) {
    return " at " + std::to_string(tick);
}

}  // namespace

void FlowRig::PlayArrivals_(int count, unsigned int blockTicks) {
    for (int i = 0; i < count && player_.IsPlaying() && !isOver_ && !standsAtCaesura_; ++i) {
        Arrive_();
        if (!isOver_) SearchFrom_(blockTicks);
    }
}

void FlowRig::Arrive_() {
    flow_->SetTickIndex(next_);
    flow_->GetHowToPlay().Advance(next_);
    reference_.tickIndex = reference_.howToPlayTick = next_;
    flow_->ClearJump();
    reference_.jump = false;
    flow_->ProcessLoopEventsAtCurrentTickIndex();
    reference_.ProcessLoopEventsAtCurrentTickIndex();
    Agree_("the loops decided");
    if (flow_->GetJump()) CheckJumpTarget_();
    if (flow_->GetTickIndex() != next_) passedCaesura_ = Never;
    next_ = flow_->GetTickIndex();
    isOver_ = next_ >= flow_->GetEndTickIndex();
}

void FlowRig::SearchFrom_(unsigned int blockTicks) {
    const unsigned int from = next_;
    // Every search that does not move has used up a loop, a caesura or an edit without length.
    const std::size_t most = 2 * EditCount_() + 8;
    for (std::size_t searches = 0;; ++searches) {
        Require(searches <= most, "no progress" + At(from));
        ++steps_;
        // Never beyond the end of the first active loop: the search does not stop there by itself.
        const unsigned int to = std::min({from + blockTicks, FirstLoopEndAfter_(from), flow_->GetEndTickIndex()});
        flow_->FindNextControlEventOnAdvance(from, to);
        reference_.FindNextControlEventOnAdvance(from, to);
        Agree_("a search");
        CheckResult_(from, to);
        if (ObeyResult_(from, to)) return;
    }
}

// False when playback has not moved and the search must be made again.
bool FlowRig::ObeyResult_(unsigned int from, unsigned int to) {
    const FindNextControlEventResult result = flow_->GetResult_();
    if (result.caesuraHere) {
        // A caesura whose countdown begins where it stands is met again after its stop.
        if (passedCaesura_ == from) return false;
        StandAtCaesura_(from);
        return true;
    }
    if (result.loopStartsHere) return false;
    if (result.cutHere) {
        flow_->DoSkipAhead(result.tickIndex);
        reference_.DoSkipAhead(result.tickIndex);
        Agree_("a skip");
        next_ = result.tickIndex;
        passedCaesura_ = Never;
        return true;
    }
    // A loop that was registered beside a duplicate ends before what was planned without it.
    const unsigned int target = std::min({result.tickIndex, FirstLoopEndAfter_(from), to});
    // A caesura left behind in the stack answers with its own place: nothing is played.
    if (target <= from) return false;
    AdvanceTo_(from, target);
    return true;
}

void FlowRig::AdvanceTo_(unsigned int from, unsigned int target) {
    for (const CL::Cut& cut : SongLog_().GetCuts()) {
        Require(cut.start() <= from || cut.start() >= target, "the advance passes a cut" + At(cut.start()));
    }
    for (const LoopEvent& loop : ActiveLoops_()) {
        Require(loop.end <= from || loop.end >= target, "the advance passes a loop's end" + At(loop.end));
    }
    const unsigned int caesura = flow_->GetFirstCaesuraStackTickIndex();
    Require(flow_->HasPendingCaesura() || reference_.atCaesura || caesura <= from || caesura >= target,
            "the advance passes a caesura" + At(caesura));
    next_ = target;
    passedCaesura_ = Never;
}

void FlowRig::StandAtCaesura_(unsigned int tick) {
    Require(flow_->HasPendingCaesura(), "no caesura pends" + At(tick));
    Require(flow_->GetCaesuraTickIndex() == tick, "the caesura stands elsewhere");
    Require(flow_->HasCaesuraAtTickIndex(tick), "there is no caesura" + At(tick));
    standsAtCaesura_ = true;
}

// After whatever the operator did: playback goes on where flow control is.
void FlowRig::FollowJump_() {
    if (!flow_->GetJump()) return;
    flow_->ClearJump();
    reference_.jump = false;
    next_ = flow_->GetTickIndex();
    standsAtCaesura_ = false;
    passedCaesura_ = Never;
    isOver_ = next_ >= flow_->GetEndTickIndex();
}

void FlowRig::PlayToTheEnd() {
    // Six counted loops inside one another and their events stay far below this.
    constexpr int MostArrivals = 200000;
    constexpr int MostPresses = 64;
    int presses = 0;
    for (int arrivals = 0; !isOver_; ++arrivals) {
        Require(arrivals < MostArrivals, "the song does not end");
        if (standsAtCaesura_) StopAtCaesura_();
        if (!player_.IsPlaying()) Continue_();
        Arrive_();
        // A used-up vamp, too, releases such a fermata and leads back, and may do so again by itself.
        const bool hasReleasedFermata = flow_->GetJump() && !flow_->GetJumpForVampRepeatOrCut();
        if (hasReleasedFermata && ++presses > MostPresses) return SeekTo_(flow_->GetEndTickIndex());
        // A press consumes a fermata, a caesura before the vamp's end or the vamp: whoever wants to leave presses
        // again. A fermata that a cut skips inside a repeat takes every press at a vamp behind it and leads back into
        // the repeat; the operator then goes to the end by hand.
        while (!isOver_ && flow_->GetLoopEvents_().GetHasVamp()) {
            if (++presses > MostPresses) return SeekTo_(flow_->GetEndTickIndex());
            PressExit_();
        }
        if (!isOver_) SearchFrom_(Never / 2);
    }
    CheckTold_();
}

}  // namespace properties
