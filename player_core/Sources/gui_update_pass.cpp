#include "player_core/gui_update.h"

#include <utility>

#include "tavo_core/callback_dispatcher.h"
#include "tavo_core/gui_dispatcher.h"

// What a pass of the display feed posts. A pass calls back for the target tempo and never posts it as a status, a full
// refresh the reverse.

namespace gui {

void GuiUpdate::RunOnePass_() {
    const unsigned int tickIndex = AdvanceToCurrentPosition();
    Batch batch(std::in_place);
    {
        std::unique_lock lock(mutex_);
        SendPlayheadMarkerAndTitle_(tickIndex);
        SendBarMeterAndClick_();
        const bool resetDisplay = std::exchange(resetDisplay_, false);
        SendTranspositionAndKey_(resetDisplay);
        SendTempo_(resetDisplay, lock, batch);
        SendMarkerAndPage_(resetDisplay, tickIndex);
    }
    futureUpdates_.SendUntil(tickIndex);
}

void GuiUpdate::SendPlayheadMarkerAndTitle_(unsigned int tickIndex) {
    notify::guiDispatcher.SendPlayhead(static_cast<int>(tickIndex));
    if (!howToPlay_.GetSendMarkerAndSongTitle()) return;
    SendMarkerOrNone_(tickIndex);
    notify::guiDispatcher.SendSongTitle(howToPlay_.GetSongTitle());
}

void GuiUpdate::SendBarMeterAndClick_() {
    if (howToPlay_.UpdateBar()) notify::guiDispatcher.SendBarBeat(howToPlay_.GetBarString());
    const bool meterChanged = howToPlay_.UpdateMeter();
    const bool clickChanged = howToPlay_.UpdateClick();
    if (meterChanged) notify::guiDispatcher.SendMeter(howToPlay_.GetMeterString());
    if (meterChanged || clickChanged) {
        notify::guiDispatcher.SendStatusClickResolution(howToPlay_.GetNotated32PerClick());
    }
}

void GuiUpdate::SendTranspositionAndKey_(bool resetDisplay) {
    if (howToPlay_.UpdateTransposition()) {
        notify::guiDispatcher.SendTransposition(howToPlay_.GetTranspositionValue());
        notify::guiDispatcher.SendKey(howToPlay_.GetKeyString());
        return;
    }
    if (howToPlay_.UpdateKey()) notify::guiDispatcher.SendKey(howToPlay_.GetKeyString());
    // The neutral value, even where a transposition is in force that the tracker has already reported.
    if (resetDisplay) notify::guiDispatcher.SendTransposition(0);
}

void GuiUpdate::SendTempo_(bool resetDisplay, std::unique_lock<std::recursive_mutex>& lock, Batch& batch) {
    if (howToPlay_.UpdateTempoScale()) {
        notify::guiDispatcher.SendTempoScale(howToPlay_.GetTempoScaleString());
        notify::guiDispatcher.SendTempo(howToPlay_.GetTempoString());
        NotifyTargetTempo_(lock, batch);
        return;
    }
    if (howToPlay_.UpdateTempo()) {
        notify::guiDispatcher.SendTempo(howToPlay_.GetTempoString());
        NotifyTargetTempo_(lock, batch);
    }
    if (resetDisplay) notify::guiDispatcher.SendTempoScale("100%");
}

void GuiUpdate::NotifyTargetTempo_(std::unique_lock<std::recursive_mutex>& lock, Batch& batch) {
    double targetTempo = howToPlay_.GetTempoDouble();
    // The callback belongs to the host and may call anything, and may wait for what was posted before it: no lock is
    // held and no batch is open meanwhile. A seek, a reset or new data may come in between; the pass goes on with what
    // is there then.
    lock.unlock();
    batch.reset();
    notify::callbackDispatcher.Notify(notify::names::reportTargetTempo, &targetTempo);
    batch.emplace();
    lock.lock();
}

void GuiUpdate::SendMarkerAndPage_(bool resetDisplay, unsigned int tickIndex) {
    if (howToPlay_.UpdateMarker()) {
        SendMarker_();
    } else if (resetDisplay) {
        notify::guiDispatcher.SendMarker(tickIndex, "");
    }
    if (howToPlay_.UpdatePageNumber()) notify::guiDispatcher.SendPageNum(howToPlay_.GetPageNumberValue());
}

void GuiUpdate::SendMarkerOrNone_(unsigned int tickIndex) {
    if (howToPlay_.UpdateMarker()) {
        SendMarker_();
    } else {
        notify::guiDispatcher.SendMarker(tickIndex, "");
    }
}

void GuiUpdate::SendMarker_() {
    notify::guiDispatcher.SendMarker(howToPlay_.GetMarkerTickIndex(), howToPlay_.GetMarkerString());
}

void GuiUpdate::UpdateAll() {
    const unsigned int tickIndex = AdvanceToCurrentPosition();
    {
        const std::lock_guard lock(mutex_);
        auto& display = notify::guiDispatcher;
        display.SendPlayhead(static_cast<int>(tickIndex));
        howToPlay_.SetMarkerUpdated(false);
        SendMarkerOrNone_(tickIndex);
        display.SendSongTitle(howToPlay_.GetSongTitle());
        display.SendBarBeat(howToPlay_.GetBarString());
        display.SendMeter(howToPlay_.GetMeterString());
        display.SendStatusClickResolution(howToPlay_.GetNotated32PerClick());
        display.SendKey(howToPlay_.GetKeyString());
        display.SendTransposition(howToPlay_.GetTranspositionValue());
        display.SendTempo(howToPlay_.GetTempoString());
        display.SendTempoScale(howToPlay_.GetTempoScaleString());
        display.SendStatusTargetTempo(howToPlay_.GetTempoInteger());
        display.SendPageNum(howToPlay_.GetPageNumberValue());
    }
    futureUpdates_.SendUntil(tickIndex);
}

}  // namespace gui
