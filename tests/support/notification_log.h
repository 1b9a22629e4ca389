#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "tavo_core/gui_dispatcher.h"

namespace test_support {

/// "BarBeat '12:3'", "Marker 960 'Verse'", "StatusFlowControl 'Vamp' 2", "VampOn".
inline std::string AsLine(const notify::GuiNotification& notification) {
    using enum notify::GuiNotificationType;
    const std::string name = notify::GuiNotificationName(notification.type);
    switch (notification.type) {
        case Playhead:
        case StatusClickResolution:
        case Transposition:
        case StatusTargetTempo:
        case PageNum:
            return name + " " + std::to_string(notification.number);
        case Marker:
            return name + " " + std::to_string(notification.tick) + " '" + notification.text + "'";
        case SongTitle:
        case BarBeat:
        case Meter:
        case Key:
        case Tempo:
        case TempoScale:
            return name + " '" + notification.text + "'";
        case StatusFlowControl:
            return name + " '" + notification.text + "' " + std::to_string(notification.number);
        case Caesura:
            return name + " " + std::to_string(notification.tick);
        case VampOn:
        case VampOff:
        case PlaybackStarted:
        case PlaybackStopped:
        case NoNextSong:
            return name;
    }
    return name;
}

/// Hears what the process's display dispatcher sends for as long as it lives, as lines of text in order.
class NotificationLog {
public:
    using Lines = std::vector<std::string>;

    NotificationLog() {
        notify::guiDispatcher.Drain();
        id_ = notify::guiDispatcher.AddHandler([this](const notify::GuiNotification& notification) {
            const std::lock_guard lock(mutex_);
            lines_.push_back(AsLine(notification));
            changed_.notify_all();
        });
    }
    ~NotificationLog() { notify::guiDispatcher.RemoveHandler(id_); }
    NotificationLog(const NotificationLog&) = delete;
    NotificationLog& operator=(const NotificationLog&) = delete;

    /// All that was sent since the last call, once it has arrived.
    Lines Take() {
        notify::guiDispatcher.Drain();
        const std::lock_guard lock(mutex_);
        return std::exchange(lines_, {});
    }

    /// The same, only the lines that begin with `name`.
    Lines TakeOnly(const std::string& name) {
        Lines lines = Take();
        std::erase_if(lines, [&name](const std::string& line) { return !line.starts_with(name); });
        return lines;
    }

    /// Waits until `line` has been heard since the last Take; false if it does not come.
    [[nodiscard]] bool WaitFor(const std::string& line) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, std::chrono::seconds(30),
                                 [&] { return std::ranges::find(lines_, line) != lines_.end(); });
    }

private:
    notify::GuiDispatcher::HandlerId id_ = 0;
    std::mutex mutex_;
    std::condition_variable changed_;
    // Guarded by mutex_:
    Lines lines_;
};

}  // namespace test_support
