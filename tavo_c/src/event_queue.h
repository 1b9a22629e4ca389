#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "tavo/tavo.h"

namespace tavo_c {

/// What a player reports, until it is fetched or given to a callback. Thread-safe.
class EventQueue {
public:
    static constexpr std::size_t MostEvents = 65536;

    struct Event {
        std::uint32_t kind = 0;
        std::uint32_t tick = 0;
        std::int64_t frame = 0;
        std::uint32_t fromTick = 0;
        std::int32_t number = 0;
        std::uint32_t song = TAVO_NO_SONG;
        std::string text;
    };

    /// Beyond MostEvents the oldest is dropped, and counted by an event in its place.
    void Push(Event event);
    /// The text lives until the next call.
    [[nodiscard]] bool Fetch(tavo_event& event);

    /// Waits for a callback that runs, but not for its own thread.
    void SetCallback(tavo_event_callback callback, void* user);
    /// Gives the callback what there is; nothing while another thread, or this one further out, is at that: that one
    /// goes on until nothing is left.
    void Deliver();

private:
    [[nodiscard]] bool Take_(Event& event);
    [[nodiscard]] bool IsToDeliver_();

    std::mutex mutex_;
    // Guarded by mutex_.
    std::deque<Event> events_;
    Event fetched_;
    tavo_event_callback callback_ = nullptr;
    void* user_ = nullptr;
    // Held while the callback runs.
    std::mutex delivery_;
    std::atomic<std::thread::id> deliverer_{};
};

}  // namespace tavo_c
