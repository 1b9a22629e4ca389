#include "stage/offline/trace.h"

#include <fmt/format.h>

#include <utility>

#include "tavo_core/edit_text.h"

namespace stage {

Trace::Trace(Sink sink, bool showsBeats) : sink_(std::move(sink)), showsBeats_(showsBeats), positions_(TL::Timeline()) {
    notify::guiDispatcher.Drain();
    handler_ = notify::guiDispatcher.AddHandler([this](const notify::GuiNotification& notification) {
        if (notification.type == notify::GuiNotificationType::Playhead) return;
        const std::lock_guard lock(mutex_);
        heard_.push_back(notification);
    });
}

Trace::~Trace() {
    notify::guiDispatcher.RemoveHandler(handler_);
}

void Trace::WriteNotifications(std::int64_t frame, std::uint32_t tick) {
    notify::guiDispatcher.Drain();
    std::vector<notify::GuiNotification> heard;
    {
        const std::lock_guard lock(mutex_);
        heard.swap(heard_);
    }
    for (const notify::GuiNotification& notification : heard)
        WriteNotification_(frame, tick, notification);
}

void Trace::Write(std::int64_t frame, std::uint32_t tick, const std::string& event, const std::string& details) {
    WriteNotifications(frame, tick);
    WriteLine_(frame, tick, event, details);
}

void Trace::WriteLine_(std::int64_t frame, std::uint32_t tick, const std::string& event, const std::string& details) {
    sink_(fmt::format("{}\t{}\t{}\t{}\n", frame, tick, event, details));
}

void Trace::WriteValue_(std::int64_t frame, std::uint32_t tick, const std::string& slot, const std::string& event,
                        const std::string& details) {
    std::string& last = lastBySlot_[slot];
    std::string now = event + details;
    if (last == now) return;
    last = std::move(now);
    WriteLine_(frame, tick, event, details.empty() ? "-" : details);
}

// "12:3": the bar alone when it is another than the last, unless beats are wanted.
void Trace::WriteBar_(std::int64_t frame, std::uint32_t tick, const std::string& text) {
    const std::string bar = showsBeats_ ? text : text.substr(0, text.rfind(':'));
    WriteValue_(frame, tick, "bar", "bar", bar);
}

void Trace::WriteNotification_(std::int64_t frame, std::uint32_t tick, const notify::GuiNotification& notification) {
    using enum notify::GuiNotificationType;
    const auto value = [&](const std::string& event, const std::string& details) {
        WriteValue_(frame, tick, event, event, details);
    };
    switch (notification.type) {
        case Playhead:
            return;
        case Marker:
            return value("marker", notification.text);
        case SongTitle:
            return value("title", notification.text);
        case BarBeat:
            return WriteBar_(frame, tick, notification.text);
        case Meter:
            return value("meter", notification.text);
        case StatusClickResolution:
            return value("click", CL::DescribeNoteLength(notification.number));
        case Transposition:
            return value("transposition", fmt::format("{:+d}", notification.number));
        case Key:
            return value("key", notification.text);
        case Tempo:
            return value("tempo", notification.text);
        case TempoScale:
            return value("tempo-scale", notification.text);
        case StatusTargetTempo:
            return value("target-tempo", fmt::format("{}", notification.number));
        case PageNum:
            return value("page", fmt::format("{}", notification.number));
        case StatusFlowControl:
            return value("status", notification.text.empty()
                                       ? std::string()
                                       : fmt::format("{} {}", notification.text, notification.number));
        case VampOn:
            return WriteValue_(frame, tick, "lamp", "vamp-on", "");
        case VampOff:
            return WriteValue_(frame, tick, "lamp", "vamp-off", "");
        case Caesura:
            return WriteLine_(frame, tick, "caesura", positions_.DescribeTick(notification.tick));
        case PlaybackStarted:
            return WriteValue_(frame, tick, "playback", "start", "");
        case PlaybackStopped:
            return WriteValue_(frame, tick, "playback", "stop", "");
        case NoNextSong:
            return WriteLine_(frame, tick, "no-next-song", "-");
    }
}

}  // namespace stage
