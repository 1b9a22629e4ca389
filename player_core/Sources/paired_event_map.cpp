#include "player_core/paired_event_map.h"

#include <algorithm>
#include <utility>

namespace {

struct SortableEntry {
    std::uint64_t keyAndEnd;  // key in the upper half, end in the lower
    std::uint32_t index;      // place among the entries given, which keeps the order of equals
};

bool operator<(const SortableEntry& a, const SortableEntry& b) {
    return a.keyAndEnd != b.keyAndEnd ? a.keyAndEnd < b.keyAndEnd : a.index < b.index;
}

}  // namespace

PairedEventMap::PairedEventMap(const std::vector<Entry>& entries) {
    std::vector<SortableEntry> sorted;
    sorted.reserve(entries.size());
    for (const Entry& entry : entries) {
        sorted.push_back({static_cast<std::uint64_t>(entry.key) << 32U | entry.event->end(),
                          static_cast<std::uint32_t>(sorted.size())});
    }
    std::sort(sorted.begin(), sorted.end());

    events_.reserve(sorted.size());
    std::vector<unsigned int> ends;
    ends.reserve(sorted.size());
    for (const SortableEntry& place : sorted) {
        const Entry& entry = entries[place.index];
        if (keys_.empty() || keys_.back() != entry.key) {
            keys_.push_back(entry.key);
            firstEvent_.push_back(static_cast<std::uint32_t>(events_.size()));
        }
        events_.push_back(entry.event);
        ends.push_back(static_cast<unsigned int>(place.keyAndEnd));
    }
    firstEvent_.push_back(static_cast<std::uint32_t>(events_.size()));
    maxima_.push_back(std::move(ends));
    BuildMaxima_();
}

void PairedEventMap::BuildMaxima_() {
    while (maxima_.back().size() > BlockSize) {
        const std::vector<unsigned int>& below = maxima_.back();
        std::vector<unsigned int> level;
        level.reserve(below.size() / BlockSize + 1);
        for (std::size_t i = 0; i < below.size(); i += BlockSize) {
            const auto first = below.begin() + static_cast<std::ptrdiff_t>(i);
            const auto last = below.begin() + static_cast<std::ptrdiff_t>(std::min(i + BlockSize, below.size()));
            level.push_back(*std::max_element(first, last));
        }
        maxima_.push_back(std::move(level));
    }
}

void PairedEventMap::Clear() {
    *this = PairedEventMap();
}

std::size_t PairedEventMap::FindKeyIndex_(unsigned int tickIndex) const {
    const auto isFirstFrom = [this, tickIndex](std::size_t i) {
        return (i == keys_.size() || keys_[i] >= tickIndex) && (i == 0 || keys_[i - 1] < tickIndex);
    };
    for (std::size_t i = cursor_; i <= std::min(cursor_ + 1, keys_.size()); ++i) {
        if (isFirstFrom(i)) return cursor_ = i;
    }
    return cursor_ = static_cast<std::size_t>(std::lower_bound(keys_.begin(), keys_.end(), tickIndex) - keys_.begin());
}

std::optional<unsigned int> PairedEventMap::FindFirstKeyFrom(unsigned int tickIndex) const {
    const std::size_t index = FindKeyIndex_(tickIndex);
    if (index == keys_.size()) return std::nullopt;
    return keys_[index];
}

std::optional<unsigned int> PairedEventMap::FindFirstKeyAfter(unsigned int key) const {
    if (key == ~0U) return std::nullopt;
    return FindFirstKeyFrom(key + 1);
}

std::span<const cmn::TavoEvent* const> PairedEventMap::EventsAt(unsigned int key) const {
    const std::size_t index = FindKeyIndex_(key);
    if (index == keys_.size() || keys_[index] != key) return {};
    return std::span(events_).subspan(firstEvent_[index], firstEvent_[index + 1] - firstEvent_[index]);
}

std::size_t PairedEventMap::CountEventsUpToKey_(unsigned int tickIndex) const {
    if (keys_.empty()) return 0;
    const auto after = std::upper_bound(keys_.begin(), keys_.end(), tickIndex);
    return firstEvent_[static_cast<std::size_t>(after - keys_.begin())];
}

std::size_t PairedEventMap::FindEndingAfter_(std::size_t from, std::size_t count, unsigned int tickIndex) const {
    if (from >= count) return count;
    std::size_t level = 0;
    std::size_t index = from;
    // Up and to the right until a block is met that holds a greater end, then down into the first such block below.
    for (;;) {
        const std::vector<unsigned int>& ends = maxima_[level];
        const std::size_t blockEnd = std::min((index / BlockSize + 1) * BlockSize, ends.size());
        while (index < blockEnd && ends[index] <= tickIndex)
            ++index;
        if (index < blockEnd) {
            if (level == 0) return std::min(index, count);
            --level;
            index *= BlockSize;
        } else {
            if (blockEnd == ends.size()) return count;
            ++level;
            index = blockEnd / BlockSize;
        }
    }
}
