#include "event_queue.h"

#include <utility>

namespace tavo_c {

namespace {

tavo_event AsEvent(const EventQueue::Event& event) {
    return {event.kind, event.tick, event.frame, event.fromTick, event.number, event.song, event.text.c_str()};
}

}  // namespace

void EventQueue::Push(Event event) {
    const std::lock_guard lock(mutex_);
    events_.push_back(std::move(event));
    if (events_.size() <= MostEvents) return;
    // The event that counts what was lost takes the place of the first of them.
    const std::int32_t lost = events_.front().kind == TAVO_EVENT_LOST ? events_.front().number : 1;
    events_.pop_front();
    events_.front() = {
        TAVO_EVENT_LOST, events_.front().tick, events_.front().frame, 0, lost + 1, events_.front().song, {}};
}

bool EventQueue::Take_(Event& event) {
    if (events_.empty()) return false;
    event = std::move(events_.front());
    events_.pop_front();
    return true;
}

bool EventQueue::Fetch(tavo_event& event) {
    const std::lock_guard lock(mutex_);
    if (!Take_(fetched_)) return false;
    event = AsEvent(fetched_);
    return true;
}

void EventQueue::SetCallback(tavo_event_callback callback, void* user) {
    {
        const std::lock_guard lock(mutex_);
        callback_ = callback;
        user_ = user;
    }
    if (deliverer_ == std::this_thread::get_id()) return;
    const std::lock_guard running(delivery_);
}

bool EventQueue::IsToDeliver_() {
    const std::lock_guard lock(mutex_);
    return callback_ != nullptr && !events_.empty();
}

void EventQueue::Deliver() {
    // What is pushed while another thread gives up the delivery is not left lying: looked at again after it.
    while (IsToDeliver_()) {
        if (deliverer_ == std::this_thread::get_id()) return;
        const std::unique_lock running(delivery_, std::try_to_lock);
        if (!running) return;
        deliverer_ = std::this_thread::get_id();
        for (Event event;;) {
            tavo_event_callback callback = nullptr;
            void* user = nullptr;
            {
                const std::lock_guard lock(mutex_);
                callback = callback_;
                user = user_;
                if (callback == nullptr || !Take_(event)) break;
            }
            const tavo_event given = AsEvent(event);
            callback(&given, user);
        }
        deliverer_ = std::thread::id();
    }
}

}  // namespace tavo_c
