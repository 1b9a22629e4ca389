#include "playing_order.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <utility>

namespace tavo_midi {

namespace {

constexpr unsigned int kDigitBits = 11;
constexpr std::size_t kDigits = std::size_t{1} << kDigitBits;

std::uint64_t OrderOf(const MidiEvent& event) {
    static constexpr std::array<std::uint8_t, 16> ranks{0, 0, 0, 0, 0, 0, 0, 0, 0, 2, 1, 1, 1, 1, 1, 1};
    return std::uint64_t{event.tick} << 2U | ranks[event.status >> 4U];
}

std::size_t DigitOf(const MidiEvent& event, unsigned int shift) {
    return OrderOf(event) >> shift & (kDigits - 1);
}

}  // namespace

// A radix sort: it is stable and takes no decision that depends on the events, which a merge of many tracks does at
// every one of them.
std::vector<MidiEvent> PutInPlayingOrder(std::vector<MidiEvent> events) {
    std::uint64_t highest = 0;
    bool isInOrder = true;
    for (const MidiEvent& event : events) {
        const std::uint64_t order = OrderOf(event);
        isInOrder = isInOrder && order >= highest;
        highest = std::max(highest, order);
    }
    if (isInOrder) return events;
    std::vector<MidiEvent> sorted(events.size());
    std::vector<std::size_t> places(kDigits);
    for (unsigned int shift = 0; highest >> shift != 0; shift += kDigitBits) {
        std::fill(places.begin(), places.end(), 0);
        for (const MidiEvent& event : events)
            ++places[DigitOf(event, shift)];
        std::size_t next = 0;
        for (std::size_t& place : places)
            next += std::exchange(place, next);
        for (const MidiEvent& event : events)
            sorted[places[DigitOf(event, shift)]++] = event;
        std::swap(events, sorted);
    }
    return events;
}

}  // namespace tavo_midi
