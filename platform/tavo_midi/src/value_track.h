#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <set>
#include <utility>
#include <vector>

#include "tavo_midi/tick_search.h"

namespace tavo_midi {

/// A value that changes at certain ticks. The ticks lie packed on their own, so that a search touches nothing else.
template <class Value>
class ValueTrack {
public:
    void Reserve(std::size_t size) {
        ticks_.reserve(size);
        values_.reserve(size);
    }
    /// The caller appends in ascending order of tick.
    void Append(std::uint32_t tick, Value value) {
        ticks_.push_back(tick);
        values_.push_back(std::move(value));
    }
    /// Takes the values over, each at its own tick. They are in ascending order.
    void Adopt(std::vector<Value> values) {
        ticks_.clear();
        ticks_.reserve(values.size());
        for (const Value& value : values)
            ticks_.push_back(value.abs_time());
        values_ = std::move(values);
        count_ = 0;
    }
    [[nodiscard]] const std::vector<std::uint32_t>& Ticks() const { return ticks_; }
    [[nodiscard]] const std::vector<Value>& Values() const { return values_; }

    /// Remembers where `tick` lies, so that look-ups there and just after it are cheap.
    void Follow(std::uint32_t tick) { count_ = CountAt(tick); }
    /// The same for a tick that may lie anywhere.
    void Find(std::uint32_t tick) { count_ = CountNotAfter<std::uint32_t>(ticks_, tick); }
    /// How many values began at or before `tick`.
    [[nodiscard]] std::size_t CountAt(std::uint32_t tick) const {
        return CountNotAfter<std::uint32_t>(ticks_, tick, count_);
    }
    /// The value in force; null before the first one.
    [[nodiscard]] const Value* InForceAt(std::uint32_t tick) const {
        const std::size_t count = CountAt(tick);
        return count == 0 ? nullptr : &values_[count - 1];
    }
    /// The value in force, before the first one that one; `other` if there are none.
    [[nodiscard]] const Value& FirstOrInForceAt(std::uint32_t tick, const Value& other) const {
        if (values_.empty()) return other;
        return values_[std::max<std::size_t>(CountAt(tick), 1) - 1];
    }

private:
    std::vector<std::uint32_t> ticks_;
    std::vector<Value> values_;
    std::size_t count_ = 0;
};

/// The track of edits that each cover a range and are given in ascending order of start; where several cover a tick,
/// the one that started last counts, and where none does, `neutral`.
template <class Value, class Edits, class GetValue>
ValueTrack<Value> MakeTrackOfRanges(const Edits& edits, Value neutral, GetValue getValue) {
    struct Boundary {
        std::uint32_t tick;
        bool isStart;
        std::size_t edit;
    };
    std::vector<Boundary> boundaries;
    for (std::size_t index = 0; index < edits.size(); ++index) {
        if (edits[index].end() <= edits[index].start()) continue;
        boundaries.push_back({edits[index].start(), true, index});
        boundaries.push_back({edits[index].end(), false, index});
    }
    std::stable_sort(boundaries.begin(), boundaries.end(),
                     [](const Boundary& left, const Boundary& right) { return left.tick < right.tick; });
    ValueTrack<Value> track;
    std::set<std::size_t> covering;
    for (std::size_t index = 0; index < boundaries.size(); ++index) {
        const Boundary& boundary = boundaries[index];
        if (boundary.isStart)
            covering.insert(boundary.edit);
        else
            covering.erase(boundary.edit);
        const bool isLastAtTick = index + 1 == boundaries.size() || boundaries[index + 1].tick != boundary.tick;
        if (isLastAtTick) track.Append(boundary.tick, covering.empty() ? neutral : getValue(edits[*covering.rbegin()]));
    }
    return track;
}

}  // namespace tavo_midi
