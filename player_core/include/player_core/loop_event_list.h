#pragma once

#include <cstdint>
#include <list>

#include "kit/cout_buffer.h"
#include "tavo_core/tavo_event.h"

/// A loop that playback is inside of. A plain value.
struct LoopEvent {
    LoopEvent() = default;
    /// The loop that `event` describes, in its first pass. `event` is a vamp, a repeat or a fermata.
    explicit LoopEvent(const cmn::TavoEvent& event);

    unsigned int start = 0;  ///< tick index where the loop begins, and where a pass jumps back to
    unsigned int end = 0;    ///< tick index where the loop ends, and where it is decided what follows
    int maxCount = 0;        ///< number of passes; 0 is unlimited
    int count = 1;           ///< passes begun so far
    unsigned char type = 0;  ///< code of the edit: vamp, repeat or fermata
    bool canceled = false;   ///< exited: invisible to the queries for active events until swept out

    /// Two loops are the same loop when start, end and type agree, whatever their counts.
    bool operator==(const LoopEvent& other) const {
        return start == other.start && end == other.end && type == other.type;
    }
    /// The loop that ends sooner comes first; of two that end together the one that starts later, the inner one.
    bool operator<(const LoopEvent& other) const {
        if (end != other.end) return end < other.end;
        if (start != other.start) return start > other.start;
        return type < other.type;
    }
};

/// One line of text, line end included.
kit::CoutBuffer& operator<<(kit::CoutBuffer& out, const LoopEvent& event);

/// The loops that playback is inside of, sorted so that the first is the one that ends soonest. An event is active
/// until it is marked canceled. Copies copy the events. Not thread-safe: flow control guards its list with the seek
/// lock.
class LoopEventList {
public:
    /// Adds `event` at its place and returns true; an equal event in the list, canceled or not, makes it return false
    /// and change nothing. Costs one walk over the list.
    bool InsertLoopEvent(const LoopEvent& event);

    /// The first active event; throws std::logic_error "LoopEventList is empty" if there is none. The reference is good
    /// until the event is removed.
    LoopEvent& GetFirstLoopEvent();
    /// The first active vamp; throws std::logic_error "LoopEventList does not have a vamp.".
    LoopEvent& GetFirstVampLoopEvent();
    /// The first active vamp or repeat; throws std::logic_error "LoopEventList does not have a vamp or repeat.".
    LoopEvent& GetFirstVampOrRepeat();

    /// Whether there is an active vamp.
    [[nodiscard]] bool GetHasVamp() const;
    /// Whether there is an active vamp or fermata, something that a press leaves: the vamp lamp is lit.
    [[nodiscard]] bool GetHasVampOrFermata() const;
    /// Whether there is an active vamp or repeat, something that jumps back.
    [[nodiscard]] bool HasVampOrRepeat() const;
    /// Whether there is a repeat, canceled or not.
    [[nodiscard]] bool GetHasRepeat() const;
    /// Whether there is no active event.
    [[nodiscard]] bool IsEmpty() const;
    /// All of them in order, canceled ones included.
    [[nodiscard]] const std::list<LoopEvent>& GetEvents() const { return events_; }
    /// Number of active events.
    [[nodiscard]] std::uint64_t GetSize() const;

    /// Marks the first active vamp canceled, if there is one.
    void CancelVamp();
    /// Removes the canceled vamps, then every event equal to the first vamp left.
    void RemoveVamp();
    /// Removes every event equal to the first fermata, canceled or not.
    void RemoveFermata();
    /// Removes the first element, whatever its state. The list must have one.
    void RemoveFirstLoopEvent();
    /// Removes elements from the front, active or not, until one is met that contains `tickIndex`.
    void RemoveInactiveEvents(unsigned int tickIndex);
    /// Sweeps out the canceled events; active ones stay, here and in the next three.
    void RemoveCanceledEvents();
    /// Sweeps out the canceled events whose end is at `tickIndex` or before it.
    void RemoveCanceledEventsEndingOnOrBefore(unsigned int tickIndex);
    /// Sweeps out the canceled events whose start is after `tickIndex`; one that starts there stays.
    void RemoveCanceledEventsStartingAfter(unsigned int tickIndex);
    /// Sweeps out the canceled vamps, wherever they lie.
    void RemoveCanceledVamps();
    /// Removes everything, canceled or not.
    void Clear();

    /// Writes the whole list, canceled events included, to the buffered console.
    void print_loops() const;

private:
    std::list<LoopEvent> events_;
};

/// The list's own print_loops.
void print_loops(const LoopEventList& list);
