#include "tests/properties/reference_flow.h"

#include <algorithm>
#include <limits>

#include "tavo_core/beat_ticks.h"
#include "tavo_core/event_codes.h"

namespace properties {
namespace {

bool AreEqual(const ReferenceFlow::Loop& a, const ReferenceFlow::Loop& b) {
    return a.start == b.start && a.end == b.end && a.type == b.type;
}

bool IsBefore(const ReferenceFlow::Loop& a, const ReferenceFlow::Loop& b) {
    if (a.end != b.end) return a.end < b.end;
    if (a.start != b.start) return a.start > b.start;
    return a.type < b.type;
}

}  // namespace

// Statuses.

void ReferenceStatuses::File(const std::string& type, int count, unsigned int tick) {
    const auto found = statuses_.find(tick);
    if (found != statuses_.end() && found->second == Status("Caesura", 0)) pendingZero_ = tick;
    statuses_[tick] = {type, count};
}

void ReferenceStatuses::SendUntil(unsigned int tick, const std::function<void(const Status&)>& send) {
    if (tick < sentUntil_) sentUntil_ = 0;
    if (pendingZero_ == tick) {
        send({"Caesura", 0});
        return;
    }
    std::vector<unsigned int> sent;
    for (const auto& [at, status] : statuses_) {
        if (at <= sentUntil_ || at > tick) continue;
        send(status);
        sent.push_back(at);
    }
    for (const unsigned int at : sent)
        statuses_.erase(at);
    sentUntil_ = tick;
}

void ReferenceStatuses::ClearCaesura() {
    pendingZero_.reset();
}

void ReferenceStatuses::ClearAll() {
    statuses_.clear();
    sentUntil_ = 0;
}

// Loading.

int ReferenceFlow::Caesura::CountAt(unsigned int t) const {
    for (std::size_t i = 0; i < countdown.size(); ++i) {
        if (countdown[i] == t) return static_cast<int>(countdown.size() - 1 - i);
    }
    return -1;
}

void ReferenceFlow::LoadSong(const CL::SongLog& songLog, const TL::Timeline& timeline, unsigned int ticksPerQuarter) {
    startTick = timeline.GetStartTickIndex();
    endTick = timeline.GetEndTickIndex();
    LoadNewChangeLog(songLog, timeline, ticksPerQuarter);
}

void ReferenceFlow::LoadNewChangeLog(const CL::SongLog& songLog, const TL::Timeline& timeline,
                                     unsigned int ticksPerQuarter) {
    const auto beats =
        CreateBeatTicks(timeline.GetBarsBeats(), songLog.GetClicks(), timeline.GetMeters(), endTick, ticksPerQuarter);
    beats_.assign(beats.begin(), beats.end());
    howToPlayTick = 0;
    jump = false;
    jumpForVampRepeatOrCut = false;
    loops.clear();
    pairedEventMap_.clear();
    caesuraStack.clear();
    BuildCaesuras_(songLog);
    for (const Caesura& caesura : caesuraCounter_) {
        pairedEventMap_[caesura.First()].push_back({codes::Caesura, caesura.tick, caesura.tick, 0, caesura});
    }
    const auto add = [this](const auto& events) {
        for (const auto& event : events) {
            pairedEventMap_[event.abs_time()].push_back(
                {event.code(), event.start(), event.end(), event.int_value(), {}});
        }
    };
    add(songLog.GetVamps());
    add(songLog.GetRepeats());
    add(songLog.GetCuts());
    add(songLog.GetFermatas());
    for (auto& [key, events] : pairedEventMap_) {
        events.sort([](const Event& a, const Event& b) { return a.end < b.end; });
    }
    attacca = songLog.GetAttacca() == CL::AttaccaNext;
}

void ReferenceFlow::BuildCaesuras_(const CL::SongLog& songLog) {
    caesuraCounter_.clear();
    for (const CL::Caesura& written : songLog.GetCaesuras()) {
        if (written.VersionTarget() == CL::GetCaesuraIgnoredVersionTarget()) continue;
        Caesura caesura{written.abs_time(), {}, false};
        std::size_t anchor = 0;
        while (anchor < beats_.size() && beats_[anchor] < caesura.tick)
            ++anchor;
        for (; !beats_.empty() && anchor > 0 && caesura.countdown.size() < 5; --anchor) {
            const unsigned int beat = anchor < beats_.size() ? beats_[anchor] : caesura.tick;
            caesura.countdown.insert(caesura.countdown.begin(), beat);
        }
        caesuraCounter_.push_back(caesura);
    }
}

// The list of loops.

ReferenceFlow::Loop* ReferenceFlow::FirstActive_() {
    for (Loop& loop : loops) {
        if (!loop.canceled) return &loop;
    }
    return nullptr;
}

std::vector<ReferenceFlow::Loop> ReferenceFlow::ActiveLoops() const {
    std::vector<Loop> active;
    std::copy_if(loops.begin(), loops.end(), std::back_inserter(active),
                 [](const Loop& loop) { return !loop.canceled; });
    return active;
}

void ReferenceFlow::RemoveInactive_(unsigned int tick) {
    while (!loops.empty() && !(loops.front().start <= tick && tick < loops.front().end))
        loops.pop_front();
}

void ReferenceFlow::DropFirstOfTypeAndEquals_(unsigned char type) {
    for (const Loop& loop : loops) {
        if (loop.type != type) continue;
        const Loop first = loop;
        loops.remove_if([&first](const Loop& other) { return AreEqual(first, other); });
        return;
    }
}

bool ReferenceFlow::Insert_(const Event& event) {
    const Loop loop{event.start, event.end, event.value, 1, event.code, false};
    for (const Loop& other : loops) {
        if (AreEqual(other, loop)) return false;
    }
    loops.push_back(loop);
    loops.sort(IsBefore);
    if (event.code == codes::Fermata) {
        fermata = true;
        fermataEnd_ = event.end;
    }
    return true;
}

bool ReferenceFlow::IsSpent_(const Event& event) {
    return event.start >= event.end && std::exchange(event.spent, true);
}

void ReferenceFlow::ForgetSpent_() {
    for (const auto& [key, events] : pairedEventMap_)
        for (const Event& event : events)
            event.spent = false;
}

void ReferenceFlow::Push_(const Caesura& caesura) {
    for (const Caesura& other : caesuraStack) {
        if (other.tick == caesura.tick) return;
    }
    caesuraStack.push_back(caesura);
}

// The advance.

void ReferenceFlow::FindNextControlEventOnAdvance(unsigned int fromTick, unsigned int toTick) {
    DoFind_(fromTick, toTick);
    CheckForRemainingVampRepeatOrFermata();
}

void ReferenceFlow::DoFind_(unsigned int from, unsigned int to) {
    RemoveInactive_(from);
    result.Reset();
    if (Detect_(from)) return;
    auto next = pairedEventMap_.lower_bound(from);
    if (next != pairedEventMap_.end() && next->first == from) {
        for (const Event& event : next->second) {
            if (event.code == codes::Cut && !IsSpent_(event)) {
                result.cutHere = true;
                result.tickIndex = event.end;
                return;
            }
            if (event.code == codes::Caesura) {
                if (event.caesura.tick >= from) Push_(event.caesura);
                SendCounts_();
            }
        }
        bool last = false;
        for (const Event& event : next->second) {
            if (event.code == codes::Caesura || event.code == codes::Cut) continue;
            if (event.code == codes::Fermata && fermata) continue;
            if (!IsSpent_(event)) last = Insert_(event);
        }
        if (last) {
            result.loopStartsHere = true;
            result.tickIndex = from;
            return;
        }
        ++next;
    }
    if (AdvanceToCaesura_(to, next == pairedEventMap_.end() ? -1 : static_cast<long long>(next->first))) return;
    if (next != pairedEventMap_.end() && next->first < to) {
        result.stopBeforeEnd = true;
        result.tickIndex = next->first;
    } else {
        result.tickIndex = to;
    }
}

bool ReferenceFlow::AdvanceToCaesura_(unsigned int to, long long limit) {
    if (caesuraStack.empty() || atCaesura) return false;
    const long long bound = limit < 0 ? to : std::min<long long>(limit, to);
    if (caesuraStack.front().tick >= bound) return false;
    result.stopBeforeEnd = true;
    result.tickIndex = caesuraStack.front().tick;
    return true;
}

bool ReferenceFlow::Detect_(unsigned int tick) {
    if (caesuraStack.empty()) return false;
    const unsigned int caesura = caesuraStack.front().tick;
    if (caesura == tick) {
        if (atCaesura) return false;
        atCaesura = true;
        caesuraPost = false;
        caesuraTickIndex = tick;
        result.caesuraHere = true;
        SendCounts_();
        return true;
    }
    if (tick > caesura) {
        caesuraStack.pop_front();
        caesuraPost = false;
        atCaesura = false;
        return false;
    }
    SendCounts_();
    return false;
}

void ReferenceFlow::ProcessLoopEventsAtCurrentTickIndex() {
    for (;;) {
        Loop* loop = FirstActive_();
        if (loop == nullptr || tickIndex != loop->end) return;
        if (loop->type == codes::Fermata) {
            DoExpireFermata_();
        } else if (loop->maxCount != 0 && loop->count >= loop->maxCount) {
            if (loop->type == codes::Vamp) {
                DoFlowControlExit_();
            } else {
                DoRepeatOff_();
            }
        } else {
            const unsigned int start = loop->start;
            ++loop->count;
            if (start >= loop->end) loop->canceled = true;
            FindOnSeek_(start, true);
            SetJump_(start, true);
        }
    }
}

void ReferenceFlow::SetJump_(unsigned int tick, bool forVampRepeatOrCut) {
    preJumpTickIndex = tickIndex;
    jump = true;
    jumpForVampRepeatOrCut = forVampRepeatOrCut;
    lastJumpTargetTickIndex = tick;
    DoSkipAhead(tick);
}

void ReferenceFlow::DoSkipAhead(unsigned int tick) {
    tickIndex = tick;
    howToPlayTick = tick;
    loops.remove_if([tick](const Loop& loop) { return loop.canceled && loop.start > tick; });
    ExpireCaesuras_(tick);
}

void ReferenceFlow::ExpireCaesuras_(unsigned int tick) {
    std::erase_if(caesuraStack,
                  [tick](const Caesura& caesura) { return !caesura.IsWithin(tick) && caesura.tick != tick; });
}

void ReferenceFlow::DoRepeatOff_() {
    loops.remove_if([this](const Loop& loop) { return loop.canceled && loop.end <= tickIndex; });
    if (FirstActive_() != nullptr) loops.pop_front();
    CheckForRemainingVampRepeatOrFermata();
}

void ReferenceFlow::DoExpireFermata_() {
    fermata = false;
    DropFirstOfTypeAndEquals_(codes::Fermata);
    CheckForRemainingVampRepeatOrFermata();
}

// The exit.

void ReferenceFlow::FlowControlExit() {
    if (fermata) {
        DoFlowControlExit_();
        return;
    }
    const auto vamp = std::find_if(loops.begin(), loops.end(),
                                   [](const Loop& loop) { return !loop.canceled && loop.type == codes::Vamp; });
    if (caesuraStack.empty()) {
        if (vamp != loops.end()) vamp->canceled = true;
    } else if (vamp == loops.end() || caesuraStack.front().tick < vamp->end) {
        caesuraStack.pop_front();
    } else {
        vamp->canceled = true;
    }
    CheckForRemainingVampRepeatOrFermata();
}

void ReferenceFlow::DoFlowControlExit_() {
    if (fermata) {
        if (HasPendingCaesura()) {
            fermataCanceledCaesura = true;
            atCaesura = false;
            caesuraPost = false;
        }
        fermata = false;
        SendLamp_(false);
        seekIsOwn_ = true;
        Seek(fermataEnd_);
        return;
    }
    loops.remove_if([this](const Loop& loop) { return loop.canceled && loop.end <= tickIndex; });
    loops.remove_if([](const Loop& loop) { return loop.canceled && loop.type == codes::Vamp; });
    DropFirstOfTypeAndEquals_(codes::Vamp);
    CheckForRemainingVampRepeatOrFermata();
}

// Seeks.

std::pair<bool, unsigned int> ReferenceFlow::FindOnSeek_(unsigned int tick, bool skipCaesura) {
    for (const auto& [key, events] : pairedEventMap_) {
        if (key > tick) break;
        for (const Event& event : events) {
            if (event.end <= tick) continue;
            if (event.code == codes::Cut) return {true, event.end};
            if (event.code == codes::Caesura) {
                Push_(event.caesura);
            } else if (event.code != codes::Fermata || !fermata) {
                Insert_(event);
            }
        }
    }
    if (skipCaesura) return {false, 0};
    const auto found = std::find_if(caesuraCounter_.begin(), caesuraCounter_.end(),
                                    [tick](const Caesura& caesura) { return caesura.tick == tick; });
    if (found == caesuraCounter_.end()) return {false, 0};
    const Caesura caesura = *found;
    const bool isFront = !caesuraStack.empty() && caesuraStack.front().tick == caesura.tick;
    if (!caesuraPost) {
        if (!isFront) caesuraStack.push_front(caesura);
        atCaesura = true;
        caesuraTickIndex = tick;
        return {false, 0};
    }
    atCaesura = false;
    caesuraPost = false;
    if (isFront) {
        caesuraDisplayPending_ = true;
        caesuraDisplayTickIndex_ = tick;
        caesuraStack.pop_front();
    }
    return {false, 0};
}

bool ReferenceFlow::Seek(unsigned int tick) {
    if (!caesuraPost) atCaesura = false;
    tick = std::max(tick, startTick);
    lastSeekTickIndex = tick;
    if (!seekIsOwn_) ForgetSpent_();
    if (fermata) DoExpireFermata_();
    loops.remove_if([](const Loop& loop) { return loop.canceled; });
    RemoveInactive_(tick);
    ExpireCaesuras_(tick);
    const auto [isInCut, cutEnd] = FindOnSeek_(tick, false);
    if (isInCut) {
        // The player answers with a seek to the cut's end.
        Seek(cutEnd);
        return true;
    }
    seekIsOwn_ = false;
    statuses_.ClearAll();
    SetJump_(tick, false);
    CheckForRemainingVampRepeatOrFermata();
    return false;
}

unsigned int ReferenceFlow::RecoverySeek(unsigned int tick) {
    tick = std::max(tick, startTick);
    for (auto answer = FindOnSeek_(tick, false); answer.first; answer = FindOnSeek_(tick, false))
        tick = answer.second;
    lastSeekTickIndex = tick;
    statuses_.ClearAll();
    SetJump_(tick, false);
    CheckForRemainingVampRepeatOrFermata();
    return tick;
}

void ReferenceFlow::OnCaesuraStop() {
    caesuraPost = true;
    seekIsOwn_ = true;
    Seek(caesuraTickIndex);
    SendStatusesUntil_(tickIndex);
    statuses_.ClearCaesura();
}

void ReferenceFlow::FullReset() {
    caesuraTickIndex = 0;
    caesuraStack.clear();
    caesuraPost = false;
    caesuraDisplayPending_ = false;
    caesuraDisplayTickIndex_ = 0;
    tickIndex = startTick;
    lastSeekTickIndex = preJumpTickIndex = lastJumpTargetTickIndex = 0;
    fermata = fermataCanceledCaesura = jump = jumpForVampRepeatOrCut = false;
    loops.clear();
    ForgetSpent_();
    Seek(startTick);
    SendStatusesUntil_(tickIndex);
    statuses_.ClearCaesura();
}

void ReferenceFlow::ResetCaesuraState(unsigned int tick) {
    atCaesura = false;
    caesuraStack.clear();
    fermataCanceledCaesura = false;
    if (tick != caesuraDisplayTickIndex_) caesuraDisplayPending_ = false;
}

// The display.

void ReferenceFlow::CheckForRemainingVampRepeatOrFermata() {
    SendLamp_(std::any_of(loops.begin(), loops.end(), [](const Loop& loop) {
        return !loop.canceled && (loop.type == codes::Vamp || loop.type == codes::Fermata);
    }));
    if (SendCounts_()) return;
    const Loop* loop = FirstActive_();
    if (loop == nullptr) {
        statuses_.File("", 0, tickIndex);
    } else if (loop->type == codes::Vamp) {
        statuses_.File("Vamp", loop->count, tickIndex);
    } else if (loop->type == codes::Repeat) {
        statuses_.File("Repeat", loop->count, tickIndex);
    } else {
        statuses_.File("Skip", 0, tickIndex);
    }
}

bool ReferenceFlow::SendCounts_() {
    if (SendCaesuraCount_()) return true;
    const int clicks = ClicksToSongEnd_();
    if (clicks >= 5) return false;
    statuses_.File(attacca ? "AdvanceAttacca" : "EndOfSong", clicks, tickIndex);
    return true;
}

bool ReferenceFlow::SendCaesuraCount_() {
    if (caesuraDisplayPending_) {
        if (caesuraDisplayTickIndex_ == tickIndex) {
            statuses_.File("Caesura", 0, tickIndex);
            return true;
        }
        caesuraDisplayPending_ = false;
    }
    if (caesuraStack.empty()) return false;
    Caesura& front = caesuraStack.front();
    if (front.IsWithin(tickIndex)) {
        const Loop* loop = FirstActive_();
        if (loop != nullptr && loop->type != codes::Fermata && !(loop->start < front.tick && front.tick < loop->end)) {
            return false;
        }
        const int count = front.CountAt(tickIndex);
        if (count != -1) statuses_.File("Caesura", count, tickIndex);
        return true;
    }
    if (front.tick != tickIndex) return false;
    if (front.zeroReported) return true;
    front.zeroReported = true;
    statuses_.File("Caesura", 0, tickIndex);
    return true;
}

int ReferenceFlow::ClicksToSongEnd_() const {
    if (howToPlayTick >= endTick) return 0;
    return 1 + static_cast<int>(std::count_if(beats_.begin(), beats_.end(), [this](unsigned int beat) {
               return beat > howToPlayTick && beat < endTick;
           }));
}

void ReferenceFlow::SendLamp_(bool on) {
    // The display is told of changes only.
    if (on == lampIsOn) return;
    lampIsOn = on;
    told.push_back(on ? "VampOn" : "VampOff");
}

void ReferenceFlow::SendStatusesUntil_(unsigned int tick) {
    statuses_.SendUntil(tick, [this](const ReferenceStatuses::Status& status) {
        told.push_back("StatusFlowControl '" + status.first + "' " + std::to_string(status.second));
    });
}

}  // namespace properties
