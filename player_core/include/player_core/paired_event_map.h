#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "tavo_core/tavo_event.h"

/// The control events of a song, keyed by the tick index where flow control must meet them: an ordered map from key to
/// a list of events sorted by their end. Built in one piece and then only read, so it is kept flat. It refers to the
/// events and does not own them. Not thread-safe: flow control guards its map with the seek lock.
class PairedEventMap {
public:
    /// An event and the tick index under which it is found. It must outlive the map.
    struct Entry {
        /// Not always where the event stands: a caesura is met where its countdown begins.
        unsigned int key = 0;
        /// Never null.
        const cmn::TavoEvent* event = nullptr;
    };

    PairedEventMap() = default;
    /// Events with one key and equal ends keep the order in which they are given. Costs one stable sort.
    explicit PairedEventMap(const std::vector<Entry>& entries);

    /// Forgets all events; spans that EventsAt answered are void.
    void Clear();
    /// Whether there are no events.
    [[nodiscard]] bool IsEmpty() const { return keys_.empty(); }

    /// The first key that is not less than `tickIndex`. Asking for ticks that go up a little each time, as playback
    /// does, costs a few nanoseconds whatever the number of keys.
    [[nodiscard]] std::optional<unsigned int> FindFirstKeyFrom(unsigned int tickIndex) const;
    /// The first key that is greater than `key`.
    [[nodiscard]] std::optional<unsigned int> FindFirstKeyAfter(unsigned int key) const;
    /// The events at exactly `key`; none where there is no such key. Valid until the map is rebuilt.
    [[nodiscard]] std::span<const cmn::TavoEvent* const> EventsAt(unsigned int key) const;

    /// Calls `visit(event)` for every event whose key is not greater than `tickIndex` and whose end is, in ascending
    /// order of keys and list order within a key, until one call returns false. Passes over the others without
    /// touching them: the cost is logarithmic in the number of events for each visit.
    template <class Visitor>
    void VisitCovering(unsigned int tickIndex, Visitor&& visit) const {
        const std::size_t count = CountEventsUpToKey_(tickIndex);
        for (std::size_t i = FindEndingAfter_(0, count, tickIndex); i < count;
             i = FindEndingAfter_(i + 1, count, tickIndex)) {
            if (!visit(*events_[i])) return;
        }
    }

private:
    // A block of this many ends shares one maximum; blocks of maxima share one again, up to the top.
    static constexpr std::size_t BlockSize = 16;

    [[nodiscard]] std::size_t FindKeyIndex_(unsigned int tickIndex) const;
    [[nodiscard]] std::size_t CountEventsUpToKey_(unsigned int tickIndex) const;
    /// Index of the first event in [from, count) that ends after `tickIndex`; `count` if there is none.
    [[nodiscard]] std::size_t FindEndingAfter_(std::size_t from, std::size_t count, unsigned int tickIndex) const;
    void BuildMaxima_();

    std::vector<unsigned int> keys_;         // ascending, each once
    std::vector<std::uint32_t> firstEvent_;  // index of a key's first event; one more at the end
    std::vector<const cmn::TavoEvent*> events_;
    std::vector<std::vector<unsigned int>>
        maxima_;                      // level 0: the events' ends; level n: maxima of level n - 1's blocks
    mutable std::size_t cursor_ = 0;  // index of the key found last
};
