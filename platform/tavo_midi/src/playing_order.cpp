#include "tavo_midi/playing_order.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <utility>

namespace tavo_midi {

namespace {

constexpr unsigned int DigitBits = 8;
constexpr std::size_t Digits = std::size_t{1} << DigitBits;

std::uint64_t OrderOf(const MidiEvent& event) {
    static constexpr std::array<std::uint8_t, 16> Ranks{0, 0, 0, 0, 0, 0, 0, 0, 0, 2, 1, 1, 1, 1, 1, 1};
    return std::uint64_t{event.tick} << 2U | Ranks[event.status >> 4U];
}

std::size_t DigitOf(const MidiEvent& event, unsigned int shift) {
    return OrderOf(event) >> shift & (Digits - 1);
}

// A song has fewer events than 32 bits can count.
using Counts = std::array<std::uint32_t, Digits>;

Counts CountDigits(const std::vector<MidiEvent>& events, unsigned int shift) {
    Counts counts{};
    for (const MidiEvent& event : events)
        ++counts[DigitOf(event, shift)];
    return counts;
}

}  // namespace

// A radix sort: it is stable and takes no decision that depends on the events, which a merge of many tracks does at
// every one of them. Small digits keep all the places that are written to in the first cache; the first look at the
// events counts the three that most songs have.
std::vector<MidiEvent> PutInPlayingOrder(std::vector<MidiEvent> events) {
    std::array<Counts, 3> counts{};
    std::uint64_t highest = 0;
    bool isInOrder = true;
    for (const MidiEvent& event : events) {
        const std::uint64_t order = OrderOf(event);
        isInOrder = isInOrder && order >= highest;
        highest = std::max(highest, order);
        ++counts[0][order & (Digits - 1)];
        ++counts[1][order >> DigitBits & (Digits - 1)];
        ++counts[2][order >> 2 * DigitBits & (Digits - 1)];
    }
    if (isInOrder) return events;
    std::vector<MidiEvent> sorted(events.size());
    for (unsigned int digit = 0; highest >> digit * DigitBits != 0; ++digit) {
        const unsigned int shift = digit * DigitBits;
        Counts places = digit < counts.size() ? counts[digit] : CountDigits(events, shift);
        std::uint32_t next = 0;
        for (std::uint32_t& place : places)
            next += std::exchange(place, next);
        for (const MidiEvent& event : events)
            sorted[places[DigitOf(event, shift)]++] = event;
        std::swap(events, sorted);
    }
    return events;
}

}  // namespace tavo_midi
