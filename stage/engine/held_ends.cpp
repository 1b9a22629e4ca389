#include "stage/engine/held_ends.h"

#include <algorithm>
#include <limits>
#include <map>
#include <optional>
#include <set>
#include <utility>

#include "stage/engine/channel_state.h"

namespace stage {

namespace {

using tavo_midi::MidiEvent;

// What most programs let a note without a sign sound of its written length: 19 of 20 parts.
constexpr std::uint64_t SoundingParts = 19;

constexpr std::uint32_t Never = std::numeric_limits<std::uint32_t>::max();
// Instead of an index.
constexpr std::size_t Open = std::numeric_limits<std::size_t>::max();

struct Note {
    std::size_t channel = 0;
    std::uint32_t begin = 0;
    std::uint32_t end = Never;
    std::size_t endIndex = Open;
    std::uint32_t nextStrike = Never;  ///< of its key
};

/// Whether what goes on from `begin` to `end` goes on for at least nine tenths of the way to `goal`.
bool ReachesNearly(std::uint32_t begin, std::uint32_t end, std::uint32_t goal) {
    return std::uint64_t{end - begin} * 10 >= std::uint64_t{goal - begin} * 9;
}

/// Where the note is written to end if it sounds as long as one without a sign.
std::uint64_t WrittenEnd(const Note& note) {
    return note.end + (note.end - note.begin) / SoundingParts;
}

class HeldEndFinder {
public:
    explicit HeldEndFinder(const std::vector<MidiEvent>& events) : events_(events) {
        for (std::size_t index = 0; index < events.size(); ++index)
            if (events[index].status < 0xF0) Take_(index);
        for (const Note& note : notes_) {
            if (note.endIndex == Open) {
                firstOpen_ = std::min(firstOpen_, note.begin);
            } else {
                longest_ = std::max(longest_, note.end - note.begin);
            }
        }
        for (std::size_t note = 0; note < notes_.size(); ++note)
            byEnd_.push_back(note);
        std::sort(byEnd_.begin(), byEnd_.end(), [this](std::size_t a, std::size_t b) {
            return notes_[a].end != notes_[b].end ? notes_[a].end < notes_[b].end : a < b;
        });
    }

    void HoldUnder(std::uint32_t from, std::uint32_t to) {
        const std::size_t heldBefore = held_.size();
        // Before here no note ends that could be meant to reach the fermata's end.
        const auto reach = std::max<std::uint64_t>(to - from, longest_ / SoundingParts + 1);
        const auto earliest = static_cast<std::uint32_t>(to - std::min<std::uint64_t>(to, reach));
        for (auto note = FirstEndingAtOrAfter_(earliest); note != byEnd_.end() && notes_[*note].end < to; ++note)
            if (IsMeantToReach_(notes_[*note], from, to)) Hold_(notes_[*note].endIndex, to);
        if (held_.size() == heldBefore && !SoundsAt_(to)) HoldLastStruck_(from, to);
        HoldPedals_(from, to);
    }

    [[nodiscard]] std::vector<HeldEnd> Finish() {
        std::vector<HeldEnd> ends;
        for (const auto& [index, until] : held_)
            ends.push_back({index, events_[index].tick, until});
        return ends;
    }

private:
    static constexpr std::size_t KeyCount = 128;

    struct Key {
        std::size_t lastStruck = Open;
        std::vector<std::size_t> sounding;
    };

    void Take_(std::size_t index) {
        const MidiEvent& event = events_[index];
        const std::size_t channel = ChannelOf(event);
        const std::uint8_t kind = event.status & 0xF0U;
        if (kind == 0xB0) controllers_.push_back(index);
        if (kind != 0x90 && kind != 0x80) return;
        if (strikesByChannel_.size() <= channel) {
            strikesByChannel_.resize(channel + 1);
            keys_.resize((channel + 1) * KeyCount);
        }
        Key& key = keys_[channel * KeyCount + (event.data1 & 0x7FU)];
        if (kind == 0x90 && event.data2 > 0) {
            if (key.lastStruck != Open) notes_[key.lastStruck].nextStrike = event.tick;
            key.lastStruck = notes_.size();
            key.sounding.push_back(notes_.size());
            strikesByChannel_[channel].push_back(event.tick);
            notes_.push_back({channel, event.tick, Never, Open, Never});
        } else if (!key.sounding.empty()) {
            Note& note = notes_[key.sounding.front()];
            note.end = event.tick;
            note.endIndex = index;
            key.sounding.erase(key.sounding.begin());
        }
    }

    [[nodiscard]] std::vector<std::size_t>::const_iterator FirstEndingAtOrAfter_(std::uint32_t tick) const {
        return std::partition_point(byEnd_.begin(), byEnd_.end(),
                                    [&](std::size_t note) { return notes_[note].end < tick; });
    }

    [[nodiscard]] bool IsMeantToReach_(const Note& note, std::uint32_t from, std::uint32_t to) const {
        if (note.nextStrike < to || !ReachesNearly(note.begin, note.end, to)) return false;
        // One that ends before the fermata begins has to be long enough to be meant all the same.
        if (note.end <= from && WrittenEnd(note) + 1 < to) return false;
        return !IsFollowedAt_(note, note.end, to) && !IsFollowedAt_(note, WrittenEnd(note), to);
    }

    /// Whether another note of the channel begins there, to a tick, and before the fermata's end.
    [[nodiscard]] bool IsFollowedAt_(const Note& note, std::uint64_t tick, std::uint32_t to) const {
        const std::optional<std::uint32_t> next = NextStrike_(note.channel, tick - 1);
        return next && *next > note.begin && *next <= tick + 1 && *next < to;
    }

    [[nodiscard]] std::optional<std::uint32_t> NextStrike_(std::size_t channel, std::uint64_t tick) const {
        if (channel >= strikesByChannel_.size()) return std::nullopt;
        const std::vector<std::uint32_t>& strikes = strikesByChannel_[channel];
        const auto next = std::lower_bound(strikes.begin(), strikes.end(), tick);
        return next == strikes.end() ? std::nullopt : std::optional(*next);
    }

    /// Whether a note sounds beyond the tick as it is written.
    [[nodiscard]] bool SoundsAt_(std::uint32_t tick) const {
        if (firstOpen_ < tick) return true;
        for (auto note = FirstEndingAtOrAfter_(tick); note != byEnd_.end(); ++note) {
            if (notes_[*note].begin < tick) return true;
            if (notes_[*note].end - tick >= longest_) return false;
        }
        return false;
    }

    void HoldLastStruck_(std::uint32_t from, std::uint32_t to) {
        // The notes are in the order in which they begin.
        const auto after =
            std::partition_point(notes_.begin(), notes_.end(), [to](const Note& note) { return note.begin < to; });
        if (after == notes_.begin() || std::prev(after)->begin < from) return;
        const std::uint32_t begin = std::prev(after)->begin;
        for (auto note = after; note != notes_.begin() && std::prev(note)->begin == begin; --note)
            Hold_(std::prev(note)->endIndex, to);
    }

    void HoldPedals_(std::uint32_t from, std::uint32_t to) {
        auto place = std::partition_point(controllers_.begin(), controllers_.end(),
                                          [&](std::size_t index) { return events_[index].tick < to; });
        // Backwards: the pedal that is pressed again before the hold was only changed.
        std::set<std::pair<std::size_t, std::uint8_t>> pressedAgain;
        for (; place != controllers_.begin(); --place) {
            const MidiEvent& event = events_[*std::prev(place)];
            if (event.tick < from || !ReachesNearly(from, event.tick, to)) return;
            const bool isPedal = event.data1 == controller::Sustain || event.data1 == controller::Sostenuto;
            const bool endsAll = event.data1 == controller::AllSoundOff ||
                                 event.data1 == controller::ResetControllers || event.data1 >= controller::AllNotesOff;
            if (isPedal && event.data2 >= 64) {
                pressedAgain.emplace(ChannelOf(event), event.data1);
            } else if (isPedal ? !pressedAgain.contains({ChannelOf(event), event.data1})
                               : endsAll && NextStrike_(ChannelOf(event), event.tick).value_or(to) >= to) {
                Hold_(*std::prev(place), to);
            }
        }
    }

    void Hold_(std::size_t endIndex, std::uint32_t until) {
        if (endIndex != Open) held_.try_emplace(endIndex, until);
    }

    const std::vector<MidiEvent>& events_;
    std::vector<Note> notes_;
    std::vector<std::size_t> byEnd_;
    std::vector<std::size_t> controllers_;
    std::vector<std::vector<std::uint32_t>> strikesByChannel_;
    std::vector<Key> keys_;            // by channel and key
    std::uint32_t longest_ = 0;        // of the notes that end
    std::uint32_t firstOpen_ = Never;  // where the first of the others begins
    std::map<std::size_t, std::uint32_t> held_;
};

}  // namespace

std::vector<HeldEnd> FindHeldEnds(const std::vector<MidiEvent>& events,
                                  const CL::ChangeLogSequence<CL::Fermata>& fermatas) {
    if (fermatas.empty()) return {};
    HeldEndFinder finder(events);
    for (const CL::Fermata& fermata : fermatas)
        if (fermata.start() < fermata.end()) finder.HoldUnder(fermata.start(), fermata.end());
    return finder.Finish();
}

std::vector<MidiEvent> MoveHeldEnds(const std::vector<MidiEvent>& events, const std::vector<HeldEnd>& heldEnds) {
    std::vector<HeldEnd> inOrder = heldEnds;
    std::sort(inOrder.begin(), inOrder.end(), [](const HeldEnd& a, const HeldEnd& b) {
        return a.until != b.until ? a.until < b.until : a.index < b.index;
    });
    std::vector<MidiEvent> held;
    for (const HeldEnd& end : inOrder) {
        held.push_back(events[end.index]);
        held.back().tick = end.until;
    }
    std::vector<MidiEvent> others;
    others.reserve(events.size() - heldEnds.size());
    auto next = heldEnds.begin();
    for (std::size_t index = 0; index < events.size(); ++index) {
        if (next != heldEnds.end() && next->index == index) {
            ++next;
        } else {
            others.push_back(events[index]);
        }
    }
    std::vector<MidiEvent> moved(events.size());
    // Of one tick what was held comes first.
    std::merge(held.begin(), held.end(), others.begin(), others.end(), moved.begin(),
               [](const MidiEvent& a, const MidiEvent& b) { return a.tick < b.tick; });
    return moved;
}

}  // namespace stage
