#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "tavo_core/bar_positions.h"
#include "tavo_core/gui_dispatcher.h"

namespace stage {

/// Writes what playback and its display do as lines of text, `frame<TAB>tick<TAB>event<TAB>details`; docs/trace.md
/// lists the events. While one lives the process's display notifications are heard. One thread calls it, the one that
/// renders; the notifications come on the dispatcher's thread and get the moment that is given with the next call, so
/// that the text is the same in every run.
class Trace {
public:
    using Sink = std::function<void(const std::string& line)>;

    /// `sink` hears each line, line end included. With `showsBeats` every beat is a line, otherwise every bar.
    Trace(Sink sink, bool showsBeats);
    ~Trace();
    Trace(const Trace&) = delete;
    Trace& operator=(const Trace&) = delete;

    /// The places of the song that plays from now on.
    void SetPositions(TL::BarPositions positions) { positions_ = std::move(positions); }
    [[nodiscard]] const TL::BarPositions& GetPositions() const { return positions_; }

    /// Writes what the display was sent up to now; it was sent at this moment.
    void WriteNotifications(std::int64_t frame, std::uint32_t tick);
    /// The same, then a line of the caller's.
    void Write(std::int64_t frame, std::uint32_t tick, const std::string& event, const std::string& details);

private:
    void WriteNotification_(std::int64_t frame, std::uint32_t tick, const notify::GuiNotification& notification);
    /// A display's value: written where it is another than the last one of `slot`.
    void WriteValue_(std::int64_t frame, std::uint32_t tick, const std::string& slot, const std::string& event,
                     const std::string& details);
    void WriteLine_(std::int64_t frame, std::uint32_t tick, const std::string& event, const std::string& details);
    void WriteBar_(std::int64_t frame, std::uint32_t tick, const std::string& text);

    // Constant after construction.
    const Sink sink_;
    const bool showsBeats_;
    // Used by the calling thread only.
    TL::BarPositions positions_;
    std::map<std::string, std::string> lastBySlot_;
    // Guarded by mutex_.
    std::mutex mutex_;
    std::vector<notify::GuiNotification> heard_;
    // Constant after construction; last, as it is heard from the moment on that it is set.
    notify::GuiDispatcher::HandlerId handler_ = 0;
};

}  // namespace stage
