// Flow control as a value: taken, put back, and kept over a reload.

#include <algorithm>
#include <iterator>
#include <stdexcept>

#include "flow_state_check.h"
#include "player_core/gui_update.h"
#include "player_core/show_control.h"
#include "tavo_core/event_codes.h"
#include "tavo_core/gui_dispatcher.h"

namespace {

FlowState::Loop AsState(const LoopEvent& loop) {
    return {loop.type, loop.start, loop.end, loop.maxCount, loop.count, loop.canceled};
}

LoopEvent AsLoopEvent(const FlowState::Loop& state) {
    LoopEvent loop;
    loop.start = state.start;
    loop.end = state.end;
    loop.maxCount = state.limit;
    loop.count = state.pass;
    loop.type = state.type;
    loop.canceled = state.canceled;
    return loop;
}

FlowState::Spent AsSpent(const cmn::TavoEvent& event) {
    return {event.code(), event.start(), event.end(), event.int_value()};
}

std::vector<unsigned int> CountdownOf(const CountdownCaesura& caesura) {
    return {caesura.GetCountdownTickIndices().begin(), caesura.GetCountdownTickIndices().end()};
}

std::string RangeText(unsigned char type, unsigned int start, unsigned int end) {
    return std::string(flow_state::KindName(type)) + " from " + std::to_string(start) + " to " + std::to_string(end);
}

[[noreturn]] void RefuseMissing(const std::string& edit, const std::string& song) {
    throw std::invalid_argument("the flow state has a " + edit + ", which the edits of song \"" + song +
                                "\" do not have: load the change log that it was taken with");
}

}  // namespace

FlowState ShowControl::Snapshot() {
    const SeekLock serialLock(seekSerialMutex_);
    const SeekLock seekLock(seekMutex_);
    return CopyState_();
}

FlowState ShowControl::CopyState_() {
    if (songData_ == nullptr) throw std::logic_error("no song is loaded whose flow could be taken");
    const UserControls& controls = GetHowToPlay().GetUserControls();
    FlowState state;
    state.song = songData_->GetSongNumber();
    state.tick = tickIndex_;
    state.trackerTick = GetHowToPlay().GetTickIndex();
    state.attacca = attacca_;
    for (const LoopEvent& loop : loopEvents_.GetEvents())
        state.loops.push_back(AsState(loop));
    if (fermata_) state.fermata = FlowState::Range{fermataEvent_->start(), fermataEvent_->end()};
    state.fermataCanceledCaesura = fermataCanceledCaesura_;
    for (const cmn::TavoEvent* event : spentEvents_)
        state.spent.push_back(AsSpent(*event));
    CopyCaesuras_(state);
    state.jump = jump_;
    state.jumpForVampRepeatOrCut = jumpForVampRepeatOrCut_;
    state.preJumpTick = preJumpTickIndex_;
    state.jumpTargetTick = lastJumpTargetTickIndex_;
    state.lastSeekTick = lastSeekTickIndex_;
    state.seekIsOwn = seekIsOwn_;
    state.ownCutEnd = ownCutEnd_;
    state.result = {result_.loopStartsHere, result_.stopBeforeEnd, result_.caesuraHere, result_.cutHere,
                    result_.tickIndex};
    state.tempoScale = controls.GetTempoScale();
    state.transposition = controls.GetTransposition();
    state.vampLamp = vampLampIsOn_;
    state.display = GetGuiUpdate().Snapshot();
    return state;
}

void ShowControl::CopyCaesuras_(FlowState& state) const {
    for (const CountdownCaesura& caesura : caesuraStack_) {
        state.caesuras.push_back({caesura.GetTickIndex(), CountdownOf(caesura), caesura.GetZeroCountHasBeenReported()});
    }
    state.atCaesura = atCaesura_;
    state.caesuraPost = caesuraPost_;
    state.caesuraTick = caesuraTickIndex_;
    if (caesuraDisplayPending_) state.caesuraShownTick = caesuraDisplayTickIndex_;
}

void ShowControl::Restore(const FlowState& state) {
    const SeekLock serialLock(seekSerialMutex_);
    const SeekLock seekLock(seekMutex_);
    flow_state::RequireSound(state);
    RequireFits_(state);
    PutBack_(state);
    UserControls& controls = GetHowToPlay().GetUserControls();
    controls.SetTempoScale(state.tempoScale);
    controls.SetTransposition(state.transposition);
    GetGuiUpdate().Restore(state.display);
    // The serial lock stays, so that no seek's posts come before these.
    seekLock.Unlock();
    PostLampAndStatus_(state);
}

void ShowControl::PostLampAndStatus_(const FlowState& state) {
    if (state.vampLamp) {
        notify::guiDispatcher.SendVampOn();
    } else {
        notify::guiDispatcher.SendVampOff();
    }
    const auto& shown = state.display.shown;
    if (shown) gui::StatusFlowControl(shown->type, shown->count).Send();
}

void ShowControl::RequireFits_(const FlowState& state) const {
    if (songData_ == nullptr) throw std::logic_error("no song is loaded that a flow state could be put back into");
    const std::string& song = songData_->GetSongNumber();
    if (state.song != song) {
        throw std::invalid_argument("the flow state is of song \"" + state.song + "\", but song \"" + song +
                                    "\" is loaded: load the song that it was taken with");
    }
    for (const FlowState::Loop& loop : state.loops) {
        const auto events = pairedEventMap_.EventsAt(loop.start);
        const bool exists = std::any_of(events.begin(), events.end(), [&loop](const cmn::TavoEvent* event) {
            return event->code() == loop.type && event->end() == loop.end && event->int_value() == loop.limit;
        });
        if (!exists) {
            RefuseMissing(RangeText(loop.type, loop.start, loop.end) + " with limit " + std::to_string(loop.limit),
                          song);
        }
    }
    for (const FlowState::Caesura& caesura : state.caesuras) {
        if (!caesuraCounter_.HasCaesuraAtTickIndex(caesura.tick) ||
            CountdownOf(caesuraCounter_.GetCountdownCaesuraAtTickIndex(caesura.tick)) != caesura.countdown) {
            RefuseMissing("caesura at " + std::to_string(caesura.tick) + " with its countdown", song);
        }
    }
    const std::vector<const cmn::TavoEvent*> spent = FindSpent_(state.spent);
    const auto missing = std::find(spent.begin(), spent.end(), nullptr);
    if (missing != spent.end()) {
        const FlowState::Spent& edit = state.spent[static_cast<std::size_t>(missing - spent.begin())];
        RefuseMissing(RangeText(edit.type, edit.start, edit.end), song);
    }
}

const cmn::TavoEvent* ShowControl::FindEdit_(unsigned char type, unsigned int start, unsigned int end) const {
    const auto events = pairedEventMap_.EventsAt(start);
    const auto found = std::find_if(events.begin(), events.end(), [type, end](const cmn::TavoEvent* event) {
        return event->code() == type && event->end() == end;
    });
    return found == events.end() ? nullptr : *found;
}

// The edit for each, null where there is none. Of edits that are alike the first has its turn first, so that it does
// not matter which of them a state means.
std::vector<const cmn::TavoEvent*> ShowControl::FindSpent_(const std::vector<FlowState::Spent>& spent) const {
    std::vector<const cmn::TavoEvent*> edits;
    std::vector<const cmn::TavoEvent*> taken;
    edits.reserve(spent.size());
    for (const FlowState::Spent& wanted : spent) {
        const auto events = pairedEventMap_.EventsAt(wanted.start);
        const auto found = std::find_if(events.begin(), events.end(), [&](const cmn::TavoEvent* event) {
            return AsSpent(*event) == wanted && std::find(taken.begin(), taken.end(), event) == taken.end();
        });
        edits.push_back(found == events.end() ? nullptr : *found);
        if (edits.back() != nullptr) taken.push_back(edits.back());
    }
    return edits;
}

// The state fits.
void ShowControl::PutBack_(const FlowState& state) {
    tickIndex_ = state.tick;
    GetHowToPlay().Seek(state.trackerTick);
    attacca_ = state.attacca;
    loopEvents_.Clear();
    for (const FlowState::Loop& loop : state.loops)
        loopEvents_.InsertLoopEvent(AsLoopEvent(loop));
    fermata_ = state.fermata.has_value();
    if (fermata_) {
        const cmn::TavoEvent* event = FindEdit_(codes::Fermata, state.fermata->start, state.fermata->end);
        if (event != nullptr) {
            fermataEvent_ = {songLogOwner_, static_cast<const CL::Fermata*>(event)};
        } else {
            fermataEvent_ = std::make_shared<const CL::Fermata>(state.fermata->start, state.fermata->end);
        }
    }
    fermataCanceledCaesura_ = state.fermataCanceledCaesura;
    spentEvents_ = FindSpent_(state.spent);
    PutBackCaesuras_(state);
    jump_ = state.jump;
    jumpForVampRepeatOrCut_ = state.jumpForVampRepeatOrCut;
    preJumpTickIndex_ = state.preJumpTick;
    lastJumpTargetTickIndex_ = state.jumpTargetTick;
    lastSeekTickIndex_ = state.lastSeekTick;
    seekIsOwn_ = state.seekIsOwn;
    ownCutEnd_ = state.ownCutEnd;
    result_ = {state.result.loopStartsHere, state.result.stopBeforeEnd, state.result.caesuraHere, state.result.cutHere,
               state.result.tick};
    vampLampIsOn_ = state.vampLamp;
    // A search that has let go of the lock belongs to the flow before.
    ++buildCount_;
}

void ShowControl::PutBackCaesuras_(const FlowState& state) {
    caesuraStack_.clear();
    for (const FlowState::Caesura& caesura : state.caesuras) {
        caesuraStack_.push_back(caesuraCounter_.GetCountdownCaesuraAtTickIndex(caesura.tick));
        if (caesura.zeroShown) caesuraStack_.back().SetZeroCountHasBeenReported();
    }
    atCaesura_ = state.atCaesura;
    caesuraPost_ = state.caesuraPost;
    caesuraTickIndex_ = state.caesuraTick;
    caesuraDisplayPending_ = state.caesuraShownTick.has_value();
    caesuraDisplayTickIndex_ = state.caesuraShownTick.value_or(0);
}

void ShowControl::KeepWhatFits_(FlowState state) {
    DropWhatIsGone_(state);
    PutBack_(state);
    static_cast<void>(FindNextControlEventOnSeek(tickIndex_, true));
    // What is new may come before what was being counted down. A stack is short, and equals keep their order.
    const auto comesBefore = [](const CountdownCaesura& a, const CountdownCaesura& b) {
        return a.GetTickIndex() < b.GetTickIndex();
    };
    for (auto it = caesuraStack_.begin(); it != caesuraStack_.end(); ++it)
        std::rotate(std::upper_bound(caesuraStack_.begin(), it, *it, comesBefore), it, std::next(it));
}

void ShowControl::DropWhatIsGone_(FlowState& state) const {
    std::erase_if(state.loops, [this](const FlowState::Loop& loop) {
        return FindEdit_(loop.type, loop.start, loop.end) == nullptr;
    });
    for (FlowState::Loop& loop : state.loops)
        loop.limit = FindEdit_(loop.type, loop.start, loop.end)->int_value();
    std::erase_if(state.caesuras, [this](const FlowState::Caesura& caesura) {
        return !caesuraCounter_.HasCaesuraAtTickIndex(caesura.tick);
    });
    const std::vector<const cmn::TavoEvent*> edits = FindSpent_(state.spent);
    std::vector<FlowState::Spent> spent;
    for (const cmn::TavoEvent* edit : edits)
        if (edit != nullptr) spent.push_back(AsSpent(*edit));
    state.spent = std::move(spent);
    state.attacca = attacca_;
}
