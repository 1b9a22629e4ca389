// What must hold after every step of the rig.

#include <algorithm>
#include <array>
#include <iterator>
#include <stdexcept>

#include "tavo_core/event_codes.h"
#include "tests/properties/flow_rig.h"

namespace properties {
namespace {

template <class T>
void RequireEqual(T real, T expected, const char* what, const char* after) {
    if (real == expected) return;
    throw std::runtime_error(std::string("after ") + after + ": " + what + " is " +
                             std::to_string(static_cast<long long>(real)) + ", expected " +
                             std::to_string(static_cast<long long>(expected)));
}

// A new display is told anew what the other lines say, and where the playhead is as often as it can take it.
bool IsOfFlowOrPlayer(const std::string& line) {
    constexpr std::array<std::string_view, 5> Names{"StatusFlowControl", "Vamp", "Caesura", "Playback", "NoNextSong"};
    return std::ranges::any_of(Names, [&line](std::string_view name) { return line.starts_with(name); });
}

}  // namespace

void Require(bool holds, const std::string& what) {
    if (!holds) throw std::runtime_error(what);
}

void FlowRig::Agree_(const char* after) {
    const ReferenceFlow& expected = reference_;
    const auto check = [after](auto real, auto wanted, const char* what) { RequireEqual(real, wanted, what, after); };
    check(flow_->GetTickIndex(), expected.tickIndex, "the tick");
    check(flow_->GetHowToPlay().GetTickIndex(), expected.howToPlayTick, "the tracker's tick");
    check(flow_->GetFermata(), expected.fermata, "fermata");
    check(flow_->GetAttacca(), expected.attacca, "attacca");
    check(flow_->GetFermataCanceledCaesura(), expected.fermataCanceledCaesura, "fermataCanceledCaesura");
    check(flow_->GetJump(), expected.jump, "jump");
    check(flow_->GetJumpForVampRepeatOrCut(), expected.jumpForVampRepeatOrCut, "jumpForVampRepeatOrCut");
    check(flow_->GetPreJumpTickIndex(), expected.preJumpTickIndex, "preJumpTickIndex");
    check(flow_->GetLastJumpTargetTickIndex(), expected.lastJumpTargetTickIndex, "lastJumpTargetTickIndex");
    check(flow_->GetLastSeekTickIndex(), expected.lastSeekTickIndex, "lastSeekTickIndex");
    check(flow_->GetCaesuraTickIndex(), expected.caesuraTickIndex, "caesuraTickIndex");
    check(flow_->HasPendingCaesura(), expected.HasPendingCaesura(), "the pending caesura");
    const bool hasCaesura = !expected.caesuraStack.empty();
    check(flow_->GetFirstCaesuraStackTickIndex(), hasCaesura ? expected.caesuraStack.front().tick : 0xFFFFFFFFU,
          "the front caesura");
    check(flow_->GetCaesuraCountdown(), hasCaesura ? expected.caesuraStack.front().CountAt(expected.tickIndex) : -1,
          "the countdown");
    const FindNextControlEventResult& result = flow_->GetResult_();
    check(result.loopStartsHere, expected.result.loopStartsHere, "result.loopStartsHere");
    check(result.stopBeforeEnd, expected.result.stopBeforeEnd, "result.stopBeforeEnd");
    check(result.caesuraHere, expected.result.caesuraHere, "result.caesuraHere");
    check(result.cutHere, expected.result.cutHere, "result.cutHere");
    check(result.tickIndex, expected.result.tickIndex, "result.tickIndex");
    AgreeOnLoops_(after);
    CheckLoops_();
    if (transcript_ != nullptr) transcript_->states.push_back(flow_->Snapshot());
}

void FlowRig::AgreeOnLoops_(const char* after) {
    if (reference_.loops.empty() && flow_->GetLoopEvents_().IsEmpty() && !flow_->GetLoopEvents_().GetHasRepeat())
        return;
    // A last element of no kind tells, on a copy, where the list ends.
    LoopEventList copy = flow_->GetLoopEvents_();
    LoopEvent last;
    last.end = 0xFFFFFFFF;
    last.type = 0xFF;
    copy.InsertLoopEvent(last);
    for (const ReferenceFlow::Loop& expected : reference_.loops) {
        Require(copy.GetSize() > 0 && !(copy.GetFirstLoopEvent() == last && !expected.canceled),
                std::string("after ") + after + ": a loop is missing");
        LoopEvent wanted;
        wanted.start = expected.start;
        wanted.end = expected.end;
        wanted.type = expected.type;
        Require(!copy.InsertLoopEvent(wanted), std::string("after ") + after + ": a loop is missing");
        if (!expected.canceled) {
            const LoopEvent& real = copy.GetFirstLoopEvent();
            Require(real == wanted, std::string("after ") + after + ": another loop is first");
            RequireEqual(real.count, expected.count, "the loop's count", after);
            RequireEqual(real.maxCount, expected.maxCount, "the loop's maximum", after);
        }
        copy.RemoveFirstLoopEvent();
    }
    Require(copy.GetSize() == 1 && copy.GetFirstLoopEvent() == last, std::string("after ") + after + ": a loop leaked");
    copy.RemoveFirstLoopEvent();
    Require(copy.IsEmpty(), std::string("after ") + after + ": a canceled loop leaked");
}

std::vector<LoopEvent> FlowRig::ActiveLoops_() {
    std::vector<LoopEvent> active;
    LoopEventList copy = flow_->GetLoopEvents_();
    while (!copy.IsEmpty()) {
        LoopEvent& first = copy.GetFirstLoopEvent();
        active.push_back(first);
        first.canceled = true;
    }
    return active;
}

unsigned int FlowRig::FirstLoopEndAfter_(unsigned int tick) {
    if (flow_->GetLoopEvents_().IsEmpty()) return 0xFFFFFFFF;
    const LoopEvent& first = flow_->GetLoopEvents_().GetFirstLoopEvent();
    if (first.end > tick) return first.end;
    // A loop that a cut has skipped is in front until the next search, one without length until the one after.
    for (const LoopEvent& loop : ActiveLoops_()) {
        if (loop.end > tick) return loop.end;
    }
    return 0xFFFFFFFF;
}

void FlowRig::CheckLoops_() {
    if (flow_->GetLoopEvents_().IsEmpty()) return;
    int fermatas = 0;
    for (const LoopEvent& loop : ActiveLoops_()) {
        if (loop.type == codes::Fermata) ++fermatas;
        Require(loop.count >= 1, "a loop's count is below its first pass");
    }
    Require(fermatas <= 1, "two fermatas hold");
    // The reverse does not hold: a fermata that a cut has skipped stays to be released.
    Require(fermatas == 0 || flow_->GetFermata(), "a fermata is in the list and does not hold");
}

// After a seek that landed: what does not contain the place is gone, up to the first that does.
void FlowRig::CheckFirstLoopContains_(unsigned int tick) {
    const std::vector<LoopEvent> loops = ActiveLoops_();
    if (loops.empty()) return;
    Require(loops.front().start <= tick && tick < loops.front().end,
            "the first loop does not contain " + std::to_string(tick));
}

void FlowRig::CheckResult_(unsigned int from, unsigned int to) {
    const FindNextControlEventResult& result = flow_->GetResult_();
    const int flags =
        int{result.loopStartsHere} + int{result.stopBeforeEnd} + int{result.caesuraHere} + int{result.cutHere};
    Require(flags <= 1, "two things happen at once at " + std::to_string(from));
    const std::string at = " at " + std::to_string(from);
    if (result.loopStartsHere) Require(result.tickIndex == from, "a loop starts elsewhere than" + at);
    if (result.stopBeforeEnd) {
        Require(result.tickIndex < to, "an early stop is not early" + at);
        Require(result.tickIndex > from || result.tickIndex == flow_->GetFirstCaesuraStackTickIndex(),
                "an early stop lies behind" + at);
    }
    if (result.cutHere) {
        unsigned int cutEnd = 0;
        Require(flow_->HasCutAtTickIndex(from, &cutEnd), "there is no cut" + at);
    }
    if (flags == 0) Require(result.tickIndex == to, "the advance does not go to its end" + at);
    for (const LoopEvent& loop : ActiveLoops_()) {
        Require(loop.end > from || loop.start >= loop.end, "a loop was left behind" + at);
    }
}

void FlowRig::CheckJumpTarget_() {
    if (!flow_->GetJumpForVampRepeatOrCut()) return;
    const unsigned int target = flow_->GetLastJumpTargetTickIndex();
    const auto begins = [target](const auto& loops) {
        return std::any_of(loops.begin(), loops.end(), [target](const auto& loop) { return loop.start() == target; });
    };
    Require(begins(SongLog_().GetVamps()) || begins(SongLog_().GetRepeats()),
            "a jump to " + std::to_string(target) + ", where no loop starts");
}

void FlowRig::CheckTold_() {
    std::vector<std::string> heard = heard_->Take();
    if (transcript_ != nullptr) std::ranges::copy_if(heard, std::back_inserter(transcript_->posts), IsOfFlowOrPlayer);
    std::erase_if(heard, [](const std::string& line) {
        return !line.starts_with("Vamp") && !line.starts_with("StatusFlowControl");
    });
    const std::vector<std::string> expected = std::exchange(reference_.told, {});
    for (std::size_t i = 0; i < std::max(heard.size(), expected.size()); ++i) {
        const std::string real = i < heard.size() ? heard[i] : "nothing";
        const std::string wanted = i < expected.size() ? expected[i] : "nothing";
        Require(real == wanted, "the display was told " + real + ", expected " + wanted);
    }
    for (const std::string& line : heard) {
        Require(line.find(" -") == std::string::npos, "a status counts below zero: " + line);
        if (line.starts_with("Vamp")) lampIsOn_ = line == "VampOn";
    }
}

}  // namespace properties
