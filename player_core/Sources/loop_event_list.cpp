#include "player_core/loop_event_list.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>

#include "tavo_core/event_codes.h"

namespace {

bool IsActive(const LoopEvent& event) {
    return !event.canceled;
}
bool IsActiveVamp(const LoopEvent& event) {
    return IsActive(event) && event.type == codes::Vamp;
}
bool IsActiveVampOrRepeat(const LoopEvent& event) {
    return IsActive(event) && codes::IsVampOrRepeat(event.type);
}

template <class Predicate>
LoopEvent& FirstOrThrow(std::list<LoopEvent>& events, Predicate predicate, const char* message) {
    const auto found = std::find_if(events.begin(), events.end(), predicate);
    if (found == events.end()) throw std::logic_error(message);
    return *found;
}

void RemoveEventsEqualToFirstOfType(std::list<LoopEvent>& events, unsigned char type) {
    const auto found =
        std::find_if(events.begin(), events.end(), [type](const LoopEvent& event) { return event.type == type; });
    if (found == events.end()) return;
    const LoopEvent first = *found;
    events.remove(first);
}

}  // namespace

LoopEvent::LoopEvent(const cmn::TavoEvent& event)
    : start(event.start()), end(event.end()), maxCount(event.int_value()), type(event.code()) {}

kit::CoutBuffer& operator<<(kit::CoutBuffer& out, const LoopEvent& event) {
    // Mixed separators: readers of the dumps know the line in exactly this form.
    out << "type: " << codes::EditName(event.type) << ", start: " << event.start << ", end: " << event.end
        << ", maxCount = " << event.maxCount << ", count = " << event.count << ", canceled = " << event.canceled
        << kit::endl;
    return out;
}

bool LoopEventList::InsertLoopEvent(const LoopEvent& event) {
    auto place = events_.end();
    bool isSorted = true;
    for (auto it = events_.begin(); it != events_.end(); ++it) {
        if (*it == event) return false;
        if (place == events_.end() && event < *it) place = it;
        if (it != events_.begin() && *it < *std::prev(it)) isSorted = false;
    }
    // Behind the last event that is not greater is where a stable sort of a sorted list would move an appended one.
    events_.insert(place, event);
    // A caller may have moved an event's end through a reference: then the whole list is out of order.
    if (!isSorted) {
        events_.remove(event);
        events_.push_back(event);
        events_.sort();
    }
    return true;
}

LoopEvent& LoopEventList::GetFirstLoopEvent() {
    return FirstOrThrow(events_, IsActive, "LoopEventList is empty");
}

LoopEvent& LoopEventList::GetFirstVampLoopEvent() {
    return FirstOrThrow(events_, IsActiveVamp, "LoopEventList does not have a vamp.");
}

LoopEvent& LoopEventList::GetFirstVampOrRepeat() {
    return FirstOrThrow(events_, IsActiveVampOrRepeat, "LoopEventList does not have a vamp or repeat.");
}

bool LoopEventList::GetHasVamp() const {
    return std::any_of(events_.begin(), events_.end(), IsActiveVamp);
}

bool LoopEventList::GetHasVampOrFermata() const {
    return std::any_of(events_.begin(), events_.end(), [](const LoopEvent& event) {
        return IsActive(event) && (event.type == codes::Vamp || event.type == codes::Fermata);
    });
}

bool LoopEventList::HasVampOrRepeat() const {
    return std::any_of(events_.begin(), events_.end(), IsActiveVampOrRepeat);
}

bool LoopEventList::GetHasRepeat() const {
    // Alone of the queries it counts a canceled event: a repeat that was exited still occupies the list.
    return std::any_of(events_.begin(), events_.end(),
                       [](const LoopEvent& event) { return event.type == codes::Repeat; });
}

bool LoopEventList::IsEmpty() const {
    return std::none_of(events_.begin(), events_.end(), IsActive);
}

std::uint64_t LoopEventList::GetSize() const {
    return static_cast<std::uint64_t>(std::count_if(events_.begin(), events_.end(), IsActive));
}

void LoopEventList::CancelVamp() {
    const auto found = std::find_if(events_.begin(), events_.end(), IsActiveVamp);
    if (found != events_.end()) found->canceled = true;
}

void LoopEventList::RemoveVamp() {
    RemoveCanceledVamps();
    RemoveEventsEqualToFirstOfType(events_, codes::Vamp);
}

void LoopEventList::RemoveFermata() {
    RemoveEventsEqualToFirstOfType(events_, codes::Fermata);
}

void LoopEventList::RemoveFirstLoopEvent() {
    events_.pop_front();
}

void LoopEventList::RemoveInactiveEvents(unsigned int tickIndex) {
    while (!events_.empty() && !(events_.front().start <= tickIndex && tickIndex < events_.front().end)) {
        events_.pop_front();
    }
}

void LoopEventList::RemoveCanceledEvents() {
    events_.remove_if([](const LoopEvent& event) { return event.canceled; });
}

void LoopEventList::RemoveCanceledEventsEndingOnOrBefore(unsigned int tickIndex) {
    events_.remove_if([tickIndex](const LoopEvent& event) { return event.canceled && event.end <= tickIndex; });
}

void LoopEventList::RemoveCanceledEventsStartingAfter(unsigned int tickIndex) {
    events_.remove_if([tickIndex](const LoopEvent& event) { return event.canceled && event.start > tickIndex; });
}

void LoopEventList::RemoveCanceledVamps() {
    events_.remove_if([](const LoopEvent& event) { return event.canceled && event.type == codes::Vamp; });
}

void LoopEventList::Clear() {
    events_.clear();
}

void LoopEventList::print_loops() const {
    kit::CoutBuffer out;
    out << "Loops: size=" << events_.size();
    for (const LoopEvent& event : events_)
        out << "\n  " << event;
    out << "\n\n" << kit::endl;
}

void print_loops(const LoopEventList& list) {
    list.print_loops();
}
