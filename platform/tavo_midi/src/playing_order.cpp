#include "playing_order.h"

#include <algorithm>
#include <cstdint>
#include <utility>

namespace tavo_midi {

namespace {

using Events = std::vector<MidiEvent>;

std::uint64_t OrderOf(const MidiEvent& event) {
    const unsigned int kind = event.status >> 4U;
    const std::uint64_t rank = kind == 8 ? 0 : kind == 9 ? 2 : 1;
    return std::uint64_t{event.tick} << 2U | rank;
}

bool IsBefore(const MidiEvent& left, const MidiEvent& right) {
    return OrderOf(left) < OrderOf(right);
}

/// Orders the events of each tick; the ticks ascend already.
void SortWithinTicks(Events::iterator begin, Events::iterator end) {
    while (begin != end) {
        const auto fallsBack = std::adjacent_find(
            begin, end, [](const MidiEvent& left, const MidiEvent& right) { return IsBefore(right, left); });
        if (fallsBack == end) return;
        const std::uint32_t tick = fallsBack->tick;
        auto first = fallsBack;
        while (first != begin && std::prev(first)->tick == tick)
            --first;
        const auto last = std::find_if(fallsBack, end, [&](const MidiEvent& event) { return event.tick != tick; });
        std::stable_sort(first, last, IsBefore);
        begin = last;
    }
}

/// Merges [left, middle) and [middle, right) to `out` without a branch that the order of the events decides.
MidiEvent* Merge(const MidiEvent* left, const MidiEvent* middle, const MidiEvent* right, MidiEvent* out) {
    const MidiEvent* leftEnd = middle;
    while (left != leftEnd && middle != right) {
        const bool takeRight = IsBefore(*middle, *left);
        *out++ = takeRight ? *middle : *left;
        middle += takeRight ? 1 : 0;
        left += takeRight ? 0 : 1;
    }
    out = std::copy(left, leftEnd, out);
    return std::copy(middle, right, out);
}

}  // namespace

std::vector<MidiEvent> PutInPlayingOrder(std::vector<MidiEvent> events, std::vector<std::size_t> runs) {
    for (std::size_t run = 0; run < runs.size(); ++run) {
        const std::size_t end = run + 1 < runs.size() ? runs[run + 1] : events.size();
        SortWithinTicks(events.begin() + static_cast<std::ptrdiff_t>(runs[run]),
                        events.begin() + static_cast<std::ptrdiff_t>(end));
    }
    Events merged;
    if (runs.size() > 1) merged.resize(events.size());
    while (runs.size() > 1) {
        std::vector<std::size_t> longerRuns;
        longerRuns.reserve(runs.size() / 2 + 1);
        for (std::size_t run = 0; run < runs.size(); run += 2) {
            const std::size_t middle = run + 1 < runs.size() ? runs[run + 1] : events.size();
            const std::size_t end = run + 2 < runs.size() ? runs[run + 2] : events.size();
            Merge(events.data() + runs[run], events.data() + middle, events.data() + end, merged.data() + runs[run]);
            longerRuns.push_back(runs[run]);
        }
        std::swap(events, merged);
        runs = std::move(longerRuns);
    }
    return events;
}

}  // namespace tavo_midi
