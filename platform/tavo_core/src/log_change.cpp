#include "tavo_core/log_change.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <map>
#include <set>
#include <stdexcept>
#include <utility>

#include "edit_variant.h"
#include "song_positions.h"
#include "tavo_core/edit_text.h"

namespace CL {

namespace {

// Whether two edits of one class are alike. Numbers are compared by their bits: what is written to a file is.

bool AreSame(float a, float b) {
    return std::bit_cast<std::uint32_t>(a) == std::bit_cast<std::uint32_t>(b);
}

bool AreSame(const OscArgument& a, const OscArgument& b) {
    const auto* first = std::get_if<float>(&a);
    const auto* second = std::get_if<float>(&b);
    return first != nullptr && second != nullptr ? AreSame(*first, *second) : a == b;
}

template <class Edit>
bool AreSame(const Edit& a, const Edit& b) {
    if (a.start() != b.start() || a.end() != b.end()) return false;
    if constexpr (std::is_same_v<Edit, TempoScale>) {
        return AreSame(a.float_value(), b.float_value());
    } else if constexpr (std::is_base_of_v<Sfx, Edit>) {
        return a.sound() == b.sound() && AreSame(a.gain_db(), b.gain_db());
    } else if constexpr (std::is_same_v<Edit, Caesura>) {
        return a.VersionTarget() == b.VersionTarget() && a.value() == b.value();
    } else if constexpr (std::is_same_v<Edit, Osc>) {
        const auto& mine = a.arguments();
        const auto& others = b.arguments();
        return a.target() == b.target() && a.address() == b.address() &&
               std::equal(mine.begin(), mine.end(), others.begin(), others.end(),
                          [](const OscArgument& x, const OscArgument& y) { return AreSame(x, y); });
    } else if constexpr (std::is_same_v<Edit, Marker>) {
        return a.value() == b.value();
    } else {
        return a.int_value() == b.int_value();
    }
}

// --- comparing ---

/// First index from `from` whose edit stands at another tick.
template <class Edit>
std::size_t EndOfTick(const ChangeLogSequence<Edit>& edits, std::size_t from) {
    std::size_t end = from;
    while (end < edits.size() && edits[end].abs_time() == edits[from].abs_time())
        ++end;
    return end;
}

/// Edits of one tick keep their order in the log, and added ones go to its end: from the first difference on, all are
/// taken out and put in again. So a change gives the same order as its inverse takes back.
template <class Edit>
void CompareSequence(const ChangeLogSequence<Edit>& before, const ChangeLogSequence<Edit>& after, SongChange& change) {
    std::size_t b = 0;
    std::size_t a = 0;
    while (b < before.size() || a < after.size()) {
        const bool takesBefore =
            a == after.size() || (b < before.size() && before[b].abs_time() <= after[a].abs_time());
        const bool takesAfter = b == before.size() || (a < after.size() && after[a].abs_time() <= before[b].abs_time());
        const std::size_t endBefore = takesBefore ? EndOfTick(before, b) : b;
        const std::size_t endAfter = takesAfter ? EndOfTick(after, a) : a;
        while (b < endBefore && a < endAfter && AreSame(before[b], after[a]))
            ++b, ++a;
        for (; b < endBefore; ++b)
            change.removed.emplace_back(before[b]);
        for (; a < endAfter; ++a)
            change.added.emplace_back(after[a]);
    }
}

SongChange CompareSongs(const std::string& songNumber, const SongLog& before, const SongLog& after) {
    SongChange change{songNumber, {}, {}, {}};
    before.ForEachSequence([&](const auto& sequence) {
        using Edit = typename std::remove_cvref_t<decltype(sequence)>::value_type;
        CompareSequence(sequence, SequenceOf<Edit>(after), change);
    });
    if (before.GetAttacca() != after.GetAttacca())
        change.attacca = SongChange::Attacca{before.GetAttacca(), after.GetAttacca()};
    const auto byPlace = [](const AnyEdit& a, const AnyEdit& b) {
        return EventOf(a).abs_time() < EventOf(b).abs_time();
    };
    std::stable_sort(change.removed.begin(), change.removed.end(), byPlace);
    std::stable_sort(change.added.begin(), change.added.end(), byPlace);
    return change;
}

// --- applying ---

/// The edits left in `sequence` once `removed` are taken out, each the last one of its like: a change takes out the
/// hindmost of a tick.
template <class Edit>
void RemoveFrom(ChangeLogSequence<Edit>& sequence, const std::vector<AnyEdit>& removed, const std::string& songNumber) {
    for (auto any = removed.rbegin(); any != removed.rend(); ++any) {
        const Edit* edit = std::get_if<Edit>(&*any);
        if (edit == nullptr) continue;
        auto place = std::upper_bound(sequence.begin(), sequence.end(), edit->abs_time(),
                                      [](unsigned int tick, const Edit& other) { return tick < other.abs_time(); });
        bool isFound = false;
        while (!isFound && place != sequence.begin() && std::prev(place)->abs_time() == edit->abs_time()) {
            --place;
            isFound = AreSame(*place, *edit);
        }
        if (!isFound)
            throw std::invalid_argument(fmt::format("song {}: the {} at tick {} is not there to be removed", songNumber,
                                                    DescribeKind(*edit), edit->abs_time()));
        sequence.RemoveAt(static_cast<std::size_t>(place - sequence.begin()));
    }
}

// --- describing ---

/// Added edits that have not been paired with a removed one yet, found by their kinds and where they start and end.
class Unpaired {
public:
    /// `edits` outlives the object.
    explicit Unpaired(const std::vector<AnyEdit>& edits) : edits_(edits), isTaken_(edits.size(), false) {
        for (std::size_t i = 0; i < edits.size(); ++i) {
            byStart_[StartOf(edits[i])].insert(i);
            byEnd_[EndOf(edits[i])].insert(i);
        }
    }

    /// Whether one of them is the same edit; it is paired then.
    bool TakeSame(const AnyEdit& edit) {
        const auto found = byStart_.find(StartOf(edit));
        if (found == byStart_.end()) return false;
        const auto same = std::find_if(found->second.begin(), found->second.end(),
                                       [&](std::size_t i) { return IsSameEdit(edits_[i], edit); });
        if (same == found->second.end()) return false;
        Take(*same);
        return true;
    }

    /// The first of the kind that starts or ends where `edit` does, or null; it is paired then.
    const AnyEdit* TakeSharingAnEnd(const AnyEdit& edit) {
        std::size_t first = edits_.size();
        if (const auto found = byStart_.find(StartOf(edit)); found != byStart_.end() && !found->second.empty())
            first = *found->second.begin();
        if (const auto found = byEnd_.find(EndOf(edit)); found != byEnd_.end() && !found->second.empty())
            first = std::min(first, *found->second.begin());
        if (first == edits_.size()) return nullptr;
        Take(first);
        return &edits_[first];
    }

    template <class Visitor>
    void ForEach(Visitor&& visit) const {
        for (std::size_t i = 0; i < edits_.size(); ++i) {
            if (!isTaken_[i]) visit(edits_[i]);
        }
    }

private:
    using Place = std::pair<std::size_t, unsigned int>;  // kind and tick
    using Index = std::map<Place, std::set<std::size_t>>;

    static Place StartOf(const AnyEdit& edit) { return {edit.index(), EventOf(edit).start()}; }
    static Place EndOf(const AnyEdit& edit) { return {edit.index(), EventOf(edit).end()}; }

    void Take(std::size_t index) {
        byStart_[StartOf(edits_[index])].erase(index);
        byEnd_[EndOf(edits_[index])].erase(index);
        isTaken_[index] = true;
    }

    const std::vector<AnyEdit>& edits_;
    std::vector<bool> isTaken_;
    Index byStart_;
    Index byEnd_;
};

std::string DescribeFollowing(unsigned char attacca) {
    constexpr std::string_view Words[] = {"normal", "attacca", "skip"};
    return attacca < std::size(Words) ? std::string(Words[attacca]) : std::to_string(attacca);
}

void DescribeSong(const SongChange& change, const TL::BarPositions& positions, std::vector<std::string>& lines) {
    // What is both removed and added only changed places among its equals.
    Unpaired added(change.added);
    std::vector<const AnyEdit*> removed;
    for (const AnyEdit& edit : change.removed) {
        if (!added.TakeSame(edit)) removed.push_back(&edit);
    }
    const auto describe = [&positions](const AnyEdit& edit) { return DescribeEdit(EventOf(edit), positions); };
    const auto tell = [&](const std::string& what) {
        lines.push_back(fmt::format("song {}: {}", change.songNumber, what));
    };
    if (change.attacca)
        tell(fmt::format("{} changed to {}", DescribeFollowing(change.attacca->before),
                         DescribeFollowing(change.attacca->after)));

    std::multimap<unsigned int, std::string> byPlace;
    for (const AnyEdit* edit : removed) {
        const AnyEdit* successor = added.TakeSharingAnEnd(*edit);
        const std::string fate = successor == nullptr ? "removed" : fmt::format("changed to {}", describe(*successor));
        byPlace.emplace(EventOf(*edit).abs_time(), fmt::format("{} {}", describe(*edit), fate));
    }
    added.ForEach([&](const AnyEdit& edit) {
        byPlace.emplace(EventOf(edit).abs_time(), fmt::format("{} added", describe(edit)));
    });
    for (const auto& [tick, what] : byPlace)
        tell(what);
}

}  // namespace

bool IsSameEdit(const AnyEdit& a, const AnyEdit& b) {
    return std::visit(
        [](const auto& first, const auto& second) {
            if constexpr (std::is_same_v<decltype(first), decltype(second)>)
                return AreSame(first, second);
            else
                return false;
        },
        a, b);
}

const cmn::TavoEvent& EventOf(const AnyEdit& edit) {
    return std::visit([](const auto& event) -> const cmn::TavoEvent& { return event; }, edit);
}

bool IsSameChange(const LogChange& a, const LogChange& b) {
    const auto areSameEdits = [](const std::vector<AnyEdit>& first, const std::vector<AnyEdit>& second) {
        return std::equal(first.begin(), first.end(), second.begin(), second.end(), IsSameEdit);
    };
    return std::equal(a.songs.begin(), a.songs.end(), b.songs.begin(), b.songs.end(),
                      [&](const SongChange& first, const SongChange& second) {
                          return first.songNumber == second.songNumber && first.attacca == second.attacca &&
                                 areSameEdits(first.removed, second.removed) && areSameEdits(first.added, second.added);
                      });
}

LogChange Invert(const LogChange& change) {
    LogChange inverse = change;
    for (SongChange& song : inverse.songs) {
        std::swap(song.removed, song.added);
        if (song.attacca) std::swap(song.attacca->before, song.attacca->after);
    }
    return inverse;
}

LogChange Compare(const ChangeLog& before, const ChangeLog& after) {
    static const SongLog& empty = *new SongLog;
    LogChange change;
    const auto compare = [&change](const std::string& songNumber, const SongLog& old, const SongLog& next) {
        SongChange song = CompareSongs(songNumber, old, next);
        if (!song.removed.empty() || !song.added.empty() || song.attacca) change.songs.push_back(std::move(song));
    };
    const auto& oldSongs = before.GetSongLogs();
    const auto& nextSongs = after.GetSongLogs();
    const auto isBefore = oldSongs.key_comp();
    auto old = oldSongs.begin();
    auto next = nextSongs.begin();
    while (old != oldSongs.end() || next != nextSongs.end()) {
        if (next == nextSongs.end() || (old != oldSongs.end() && isBefore(old->first, next->first))) {
            compare(old->first, old->second, empty);
            ++old;
        } else if (old == oldSongs.end() || isBefore(next->first, old->first)) {
            compare(next->first, empty, next->second);
            ++next;
        } else {
            compare(old->first, old->second, next->second);
            ++old, ++next;
        }
    }
    return change;
}

void Apply(const LogChange& change, ChangeLog& log) {
    // The songs are changed aside, so that a change that does not fit changes nothing.
    std::vector<std::pair<const std::string*, SongLog>> changed;
    for (const SongChange& song : change.songs) {
        const auto known = log.GetSongLogs().find(song.songNumber);
        SongLog next = known == log.GetSongLogs().end() ? SongLog() : known->second;
        next.ForEachSequence([&song](auto& sequence) { RemoveFrom(sequence, song.removed, song.songNumber); });
        for (const AnyEdit& any : song.added) {
            std::visit([&next](const auto& edit) { SequenceOf<std::remove_cvref_t<decltype(edit)>>(next).Add(edit); },
                       any);
        }
        if (song.attacca) next.SetAttacca(song.attacca->after);
        changed.emplace_back(&song.songNumber, std::move(next));
    }
    for (auto& [songNumber, next] : changed)
        log.GetSongLogs()[*songNumber] = std::move(next);
}

std::vector<std::string> DescribeChange(const LogChange& change, const TL::ShowTimelines& timelines) {
    std::vector<std::string> lines;
    for (const SongChange& song : change.songs)
        DescribeSong(song, PositionsOf(song.songNumber, timelines), lines);
    return lines;
}

}  // namespace CL
