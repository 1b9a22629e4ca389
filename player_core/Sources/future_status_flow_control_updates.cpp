#include "player_core/future_status_flow_control_updates.h"

#include "tavo_core/gui_dispatcher.h"

namespace gui {

void StatusFlowControl::Send() const {
    notify::guiDispatcher.SendStatusFlowControl(type_, count_);
}

void FutureStatusFlowControlUpdates::AddFutureStatusFlowControl(const std::string& type, int count,
                                                                unsigned int tickIndex) {
    const kit::MutexLock lock(mutex_);
    const auto place = updates_.lower_bound(tickIndex);
    if (place == updates_.end() || place->first != tickIndex) {
        const auto filed = updates_.emplace_hint(place, std::piecewise_construct, std::forward_as_tuple(tickIndex),
                                                 std::forward_as_tuple(type, count));
        if (place == next_ && tickIndex > sentUntilTickIndex_) next_ = filed;
        return;
    }
    if (place->second.IsCaesuraZero()) {
        caesuraZeroPending_ = true;
        caesuraZeroTickIndex_ = tickIndex;
    }
    place->second = StatusFlowControl(type, count);
}

void FutureStatusFlowControlUpdates::SendUntil(unsigned int tickIndex) {
    const kit::MutexLock lock(mutex_);
    if (tickIndex < sentUntilTickIndex_) {
        sentUntilTickIndex_ = 0;
        next_ = updates_.upper_bound(0);
    }
    if (caesuraZeroPending_ && tickIndex == caesuraZeroTickIndex_) {
        // The display shows the zero for as long as playback stands at the caesura: nothing else is sent, nothing
        // counts as sent, and the zero stays pending.
        Send_(tickIndex, StatusFlowControl("Caesura", 0));
        return;
    }
    // Statuses at or before the last playhead stay filed; those at tick 0 forever.
    auto last = next_;
    for (; last != updates_.end() && last->first <= tickIndex; ++last)
        Send_(last->first, last->second);
    next_ = updates_.erase(next_, last);
    sentUntilTickIndex_ = tickIndex;
}

void FutureStatusFlowControlUpdates::Send_(unsigned int tickIndex, const StatusFlowControl& status) {
    status.Send();
    shown_ = DisplayState::Status{tickIndex, status.GetType(), status.GetCount()};
}

void FutureStatusFlowControlUpdates::ClearCaesura(unsigned int tickIndex) {
    const kit::MutexLock lock(mutex_);
    caesuraZeroPending_ = false;
    if (tickIndex == 0) return;
    const auto found = updates_.find(tickIndex);
    if (found == updates_.end() || !found->second.IsCaesuraZero()) return;
    const bool wasNext = found == next_;
    const auto after = updates_.erase(found);
    if (wasNext) next_ = after;
}

void FutureStatusFlowControlUpdates::ClearFutureUpdates() {
    const kit::MutexLock lock(mutex_);
    updates_.clear();
    next_ = updates_.end();
    sentUntilTickIndex_ = 0;
}

void FutureStatusFlowControlUpdates::CopyTo(DisplayState& state) {
    const kit::MutexLock lock(mutex_);
    state.filed.clear();
    state.filed.reserve(updates_.size());
    for (const auto& [tickIndex, status] : updates_)
        state.filed.push_back({tickIndex, status.GetType(), status.GetCount()});
    state.sentUntilTick = sentUntilTickIndex_;
    state.zeroTick = caesuraZeroPending_ ? std::optional(caesuraZeroTickIndex_) : std::nullopt;
    state.shown = shown_;
}

void FutureStatusFlowControlUpdates::TakeFrom(const DisplayState& state) {
    const kit::MutexLock lock(mutex_);
    updates_.clear();
    for (const DisplayState::Status& status : state.filed)
        updates_.emplace_hint(updates_.end(), status.tick, StatusFlowControl(status.type, status.count));
    sentUntilTickIndex_ = state.sentUntilTick;
    next_ = updates_.upper_bound(sentUntilTickIndex_);
    caesuraZeroPending_ = state.zeroTick.has_value();
    caesuraZeroTickIndex_ = state.zeroTick.value_or(0);
    shown_ = state.shown;
}

}  // namespace gui
