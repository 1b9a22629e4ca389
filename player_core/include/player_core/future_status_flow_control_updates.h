#pragma once

#include <map>
#include <optional>
#include <string>
#include <utility>

#include "kit/mutex.h"
#include "player_core/flow_state.h"

namespace gui {

/// What the display says about flow control: a word ("Caesura", "Vamp", "Repeat", "Skip", "EndOfSong",
/// "AdvanceAttacca", or empty) and the count that goes with it. A plain value.
class StatusFlowControl {
public:
    StatusFlowControl() = default;
    /// Any word and any count; neither is checked.
    StatusFlowControl(const std::string& type, int count) : type_(type), count_(count) {}
    /// The same without a copy of the word.
    StatusFlowControl(std::string&& type, int count) : type_(std::move(type)), count_(count) {}

    /// A copy of the word.
    [[nodiscard]] std::string GetType() const { return type_; }
    /// The pass of a vamp or repeat, the beats left before a caesura, the clicks left before the song's end; 0 for the
    /// other words.
    [[nodiscard]] int GetCount() const { return count_; }
    /// The last count before a caesura.
    [[nodiscard]] bool IsCaesuraZero() const { return count_ == 0 && type_ == "Caesura"; }
    /// Posts the status to notify::guiDispatcher.
    void Send() const;

private:
    std::string type_;
    int count_ = 0;
};

/// The statuses that the display must show when the playhead reaches their ticks; at most one a tick. Thread-safe. In
/// the order of locks its mutex comes last; statuses are posted while it is held.
class FutureStatusFlowControlUpdates {
public:
    /// Files a status at `tickIndex` in place of the one that is there. A caesura's zero count that is displaced so is
    /// not lost: it stays pending and is sent while the playhead stands at its tick. A status filed at or before the
    /// last playhead waits until the playhead goes back or the statuses are cleared.
    void AddFutureStatusFlowControl(const std::string& type, int count, unsigned int tickIndex);
    /// Sends and forgets what is due: everything after the last playhead, up to and including `tickIndex`, which
    /// becomes the last playhead. Costs no more than what is sent, however many statuses wait.
    void SendUntil(unsigned int tickIndex);
    /// Forgets a pending zero count, and the zero count filed at `tickIndex` unless that is 0.
    void ClearCaesura(unsigned int tickIndex);
    /// Forgets what is filed and the last playhead; a pending zero count stays.
    void ClearFutureUpdates();

    /// Writes what is filed, what was sent last and how far into `state`, and leaves the rest of it.
    void CopyTo(DisplayState& state);
    /// The reverse. Sends nothing. What is filed must ascend by tick.
    void TakeFrom(const DisplayState& state);

private:
    using Updates = std::map<unsigned int, StatusFlowControl>;

    void Send_(unsigned int tickIndex, const StatusFlowControl& status) KIT_REQUIRES(mutex_);

    kit::Mutex mutex_;
    Updates updates_ KIT_GUARDED_BY(mutex_);
    bool caesuraZeroPending_ KIT_GUARDED_BY(mutex_) = false;
    unsigned int caesuraZeroTickIndex_ KIT_GUARDED_BY(mutex_) = 0;
    unsigned int sentUntilTickIndex_ KIT_GUARDED_BY(mutex_) = 0;
    // The first of updates_ after sentUntilTickIndex_: a pass starts there and never walks over what stays filed.
    Updates::iterator next_ KIT_GUARDED_BY(mutex_) = updates_.end();
    std::optional<DisplayState::Status> shown_ KIT_GUARDED_BY(mutex_);
};

}  // namespace gui
