#include "tavo_core/edit_rules.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <map>
#include <memory>
#include <type_traits>
#include <utility>

#include "change_log_format.h"
#include "kit/utf8.h"
#include "kit/words.h"
#include "tavo_core/edit_text.h"

namespace CL {

namespace {

constexpr int FewestPasses = 2;

/// Makes the sentences; the bars are looked up only when there is one to make.
class Speaker {
public:
    explicit Speaker(const TL::Timeline& timeline) : timeline_(timeline) {}

    std::string Name(const cmn::TavoEvent& edit) {
        const bool standsAtPoint = edit.start() == edit.end();
        return fmt::format("{} {} {}", DescribeKind(edit), standsAtPoint ? "at" : "over",
                           DescribePlace(edit, GetPositions()));
    }
    std::string Place(unsigned int tick) { return GetPositions().DescribeTick(tick); }

private:
    const TL::BarPositions& GetPositions() {
        if (positions_ == nullptr) positions_ = std::make_unique<TL::BarPositions>(timeline_);
        return *positions_;
    }

    const TL::Timeline& timeline_;
    std::unique_ptr<TL::BarPositions> positions_;
};

// --- where an edit may stand ---

template <class Edit>
constexpr bool IsRange = std::is_base_of_v<PairedEvent, Edit>;
template <class Edit>
constexpr bool MayBeEmpty = std::is_same_v<Edit, Sfx>;
/// A marker names, and a caesura stops at, the place where the music is over.
template <class Edit>
constexpr bool MayStandAtEnd = std::is_same_v<Edit, Marker> || std::is_same_v<Edit, Caesura>;

template <class Edit>
std::string CheckPlace(const Edit& edit, const TL::Timeline& timeline, Speaker& speaker) {
    const unsigned int start = timeline.GetStartTickIndex();
    const unsigned int end = timeline.GetEndTickIndex();
    if constexpr (IsRange<Edit>) {
        if (edit.end() < edit.start() || (edit.end() == edit.start() && !MayBeEmpty<Edit>))
            return fmt::format("the {}'s end, {}, does not lie after its start, {}", DescribeKind(edit),
                               speaker.Place(edit.end()), speaker.Place(edit.start()));
        if (edit.end() > end)
            return fmt::format("the {} from {} to tick {} ends after the song, whose end is tick {}",
                               DescribeKind(edit), speaker.Place(edit.start()), edit.end(), end);
    }
    const bool liesBehind = edit.start() > end || (edit.start() == end && !MayStandAtEnd<Edit>);
    if (edit.start() < start || liesBehind)
        return fmt::format("the {} at tick {} lies outside the song, whose ticks are {} to {}", DescribeKind(edit),
                           edit.start(), start, end);
    return {};
}

// --- the values of each kind ---

std::string CheckText(const char* what, const std::string& text) {
    if (text.size() > tavo_core::logdata::LongestText)
        return fmt::format("the {} is longer than {} bytes", what, tavo_core::logdata::LongestText);
    if (!kit::IsUtf8(text)) return fmt::format("the {} is not UTF-8", what);
    return {};
}

std::string CheckValue(const Vamp& edit, const TL::Timeline&) {
    constexpr int Highest = tavo_core::logdata::HighestCount;
    if (edit.int_value() >= 0 && edit.int_value() <= Highest) return {};
    return fmt::format("a vamp's maximum of {} passes is not from 0 to {}", edit.int_value(), Highest);
}

std::string CheckValue(const Repeat& edit, const TL::Timeline&) {
    constexpr int Highest = tavo_core::logdata::HighestCount;
    if (edit.int_value() >= FewestPasses && edit.int_value() <= Highest) return {};
    return fmt::format("a repeat of {} passes is not from {} to {}", edit.int_value(), FewestPasses, Highest);
}

std::string CheckValue(const Cut&, const TL::Timeline&) {
    return {};
}

std::string CheckValue(const Fermata&, const TL::Timeline&) {
    return {};
}

std::string CheckValue(const Transposition& edit, const TL::Timeline&) {
    if (edit.int_value() >= Transposition::LowestSemitones && edit.int_value() <= Transposition::HighestSemitones)
        return {};
    return fmt::format("a transposition of {} semitones is not from {} to {}", edit.int_value(),
                       Transposition::LowestSemitones, Transposition::HighestSemitones);
}

std::string CheckValue(const TempoScale& edit, const TL::Timeline&) {
    if (edit.ValueWithinRange()) return {};
    return fmt::format("a tempo scale of {} is not from {:g}% to {:g}%", DescribeValue(edit),
                       TempoScale::LowestPlayable * 100, TempoScale::HighestPlayable * 100);
}

std::string CheckValue(const Click& edit, const TL::Timeline& timeline) {
    const std::vector<int> allowed = timeline.GetAllowedClickValuesAtTickIndex(edit.start());
    if (std::find(allowed.begin(), allowed.end(), edit.int_value()) != allowed.end()) return {};
    std::string lengths;
    for (const int value : allowed)
        lengths += (lengths.empty() ? "" : ", ") + DescribeNoteLength(value);
    return fmt::format("a click {} does not divide the bar, {} do", DescribeValue(edit), lengths);
}

std::string CheckValue(const Caesura& edit, const TL::Timeline&) {
    return CheckText("caesura's text", edit.value());
}

std::string CheckValue(const Marker& edit, const TL::Timeline&) {
    if (edit.value().empty()) return "a marker needs a text";
    return CheckText("marker's text", edit.value());
}

std::string CheckValue(const Sfx& edit, const TL::Timeline&) {
    const std::string& sound = edit.sound();
    if (sound.empty()) return "a sound needs the name of a file";
    const bool leavesShow = sound.front() == '/' || ("/" + sound + "/").find("/../") != std::string::npos;
    if (leavesShow) return fmt::format("the sound {} does not lie in the show directory", kit::Quote(sound));
    constexpr float Lowest = tavo_core::logdata::LowestGainDb;
    constexpr float Highest = tavo_core::logdata::HighestGainDb;
    if (!(edit.gain_db() >= Lowest && edit.gain_db() <= Highest))
        return fmt::format("a gain of {:g} dB is not from {:g} to {:g}", edit.gain_db(), Lowest, Highest);
    return CheckText("sound's name", sound);
}

std::string CheckValue(const Osc& edit, const TL::Timeline&) {
    const std::string& address = edit.address();
    // OSC 1.0 keeps these out of the names of methods; the pattern characters may stand in a message's address.
    if (address.size() < 2 || address.front() != '/' || address.find_first_of(" #\t\n\r") != std::string::npos)
        return fmt::format("{} is not an OSC address: it must begin with / and hold no blank and no #",
                           kit::Quote(address));
    if (edit.arguments().size() > tavo_core::logdata::MostArguments)
        return fmt::format("an OSC message has at most {} arguments", tavo_core::logdata::MostArguments);
    for (const OscArgument& argument : edit.arguments()) {
        const auto* number = std::get_if<float>(&argument);
        if (number != nullptr && !std::isfinite(*number)) return "an OSC argument is not a finite number";
        const auto* text = std::get_if<std::string>(&argument);
        if (text == nullptr) continue;
        if (std::string problem = CheckText("OSC argument", *text); !problem.empty()) return problem;
    }
    if (std::string problem = CheckText("OSC address", address); !problem.empty()) return problem;
    return CheckText("OSC target", edit.target());
}

// --- what two edits may not be to each other ---

template <class Edit>
constexpr bool IsLoop = std::is_same_v<Edit, Vamp> || std::is_same_v<Edit, Repeat>;
template <class Edit>
constexpr bool ExcludesItsKind =
    std::is_same_v<Edit, Cut> || std::is_same_v<Edit, TempoScale> || std::is_same_v<Edit, Transposition> ||
    std::is_same_v<Edit, Click> || std::is_same_v<Edit, Fermata>;

bool Overlap(const PairedEvent& a, const PairedEvent& b) {
    return a.start() < b.end() && b.start() < a.end();
}

bool Cross(const PairedEvent& a, const PairedEvent& b) {
    const bool aHoldsB = a.start() <= b.start() && b.end() <= a.end();
    const bool bHoldsA = b.start() <= a.start() && a.end() <= b.end();
    return Overlap(a, b) && !aHoldsB && !bHoldsA;
}

/// What makes an edit the same as another of its kind; a kind that excludes itself needs none.
using Identity = std::pair<std::pair<unsigned int, unsigned int>, std::string>;
Identity IdentityOf(const PairedEvent& edit) {
    return {{edit.start(), edit.end()}, ""};
}
Identity IdentityOf(const Caesura& edit) {
    return {{edit.abs_time(), 0}, ""};
}
Identity IdentityOf(const Marker& edit) {
    return {{edit.abs_time(), 0}, edit.value()};
}
Identity IdentityOf(const Sfx& edit) {
    return {{edit.start(), 0}, edit.sound()};
}
Identity IdentityOf(const Osc& edit) {
    return {{edit.abs_time(), 0}, edit.target() + '\n' + edit.value()};
}

std::string RefuseSame(const cmn::TavoEvent& edit, Speaker& speaker) {
    return fmt::format("the {} is there already", speaker.Name(edit));
}

std::string RefuseMeeting(const cmn::TavoEvent& edit, const char* verb, const cmn::TavoEvent& other, Speaker& speaker) {
    return fmt::format("the {} {} the {}", speaker.Name(edit), verb, speaker.Name(other));
}

template <class Edit, class Other>
constexpr bool AreCutAndFermata = (std::is_same_v<Edit, Cut> && std::is_same_v<Other, Fermata>) ||
                                  (std::is_same_v<Edit, Fermata> && std::is_same_v<Other, Cut>);

template <class Edit, class Other>
std::string CheckPair(const Edit& edit, const Other& other, Speaker& speaker) {
    // A cut over one end of a fermata would skip the place where it is released, or the one where it begins.
    if constexpr ((IsLoop<Edit> && IsLoop<Other>) || AreCutAndFermata<Edit, Other>) {
        if (Cross(edit, other)) return RefuseMeeting(edit, "crosses", other, speaker);
    }
    if constexpr (std::is_same_v<Edit, Other>) {
        if constexpr (ExcludesItsKind<Edit>) {
            if (Overlap(edit, other)) return RefuseMeeting(edit, "overlaps", other, speaker);
        } else {
            if (IdentityOf(edit) == IdentityOf(other)) return RefuseSame(edit, speaker);
        }
    }
    return {};
}

template <class Edit>
std::string CheckAlone(const Edit& edit, const TL::Timeline& timeline, Speaker& speaker) {
    std::string problem = CheckPlace(edit, timeline, speaker);
    return problem.empty() ? CheckValue(edit, timeline) : problem;
}

// --- whole logs: the pairs that can break a rule are found in one pass over the sorted edits ---

/// Finds the loop that a later one crosses: the open loops lie inside one another, so only the innermost can be.
class OpenLoops {
public:
    template <class Loop>
    void Open(const Loop& loop, std::vector<std::string>& problems, Speaker& speaker) {
        while (!open_.empty() && open_.back()->end() <= loop.start())
            open_.pop_back();
        if (!open_.empty() && Cross(loop, *open_.back())) {
            problems.push_back(RefuseMeeting(loop, "crosses", *open_.back(), speaker));
            return;
        }
        open_.push_back(&loop);
    }

private:
    std::vector<const PairedEvent*> open_;
};

bool IsPlaced(const PairedEvent& edit) {
    return edit.start() < edit.end();
}

void CheckLoops(const SongLog& songLog, std::vector<std::string>& problems, Speaker& speaker) {
    std::vector<const PairedEvent*> loops;
    for (const Vamp& vamp : songLog.GetVamps())
        loops.push_back(&vamp);
    for (const Repeat& repeat : songLog.GetRepeats())
        loops.push_back(&repeat);
    std::erase_if(loops, [](const PairedEvent* loop) { return !IsPlaced(*loop); });
    std::stable_sort(loops.begin(), loops.end(), [](const PairedEvent* a, const PairedEvent* b) {
        return std::pair(a->start(), b->end()) < std::pair(b->start(), a->end());
    });
    OpenLoops open;
    for (const PairedEvent* loop : loops)
        open.Open(*loop, problems, speaker);
}

void CheckCutsAndFermatas(const SongLog& songLog, std::vector<std::string>& problems, Speaker& speaker) {
    const auto& fermatas = songLog.GetFermatas();
    // Fermatas that do not overlap: the one that an end of a cut may lie in is the last that begins before it.
    const auto checkLastBefore = [&](const Cut& cut, unsigned int tick) {
        const auto after = std::partition_point(fermatas.begin(), fermatas.end(),
                                                [tick](const Fermata& fermata) { return fermata.start() < tick; });
        if (after == fermatas.begin()) return false;
        std::string problem = CheckPair(cut, *std::prev(after), speaker);
        if (problem.empty()) return false;
        problems.push_back(std::move(problem));
        return true;
    };
    for (const Cut& cut : songLog.GetCuts()) {
        if (IsPlaced(cut) && !checkLastBefore(cut, cut.start())) checkLastBefore(cut, cut.end());
    }
}

template <class Edit>
void CheckSequence(const ChangeLogSequence<Edit>& sequence, const TL::Timeline& timeline,
                   std::vector<std::string>& problems, Speaker& speaker) {
    std::map<Identity, const Edit*> seen;
    const Edit* furthest = nullptr;
    for (const Edit& edit : sequence) {
        std::string problem = CheckAlone(edit, timeline, speaker);
        if constexpr (ExcludesItsKind<Edit>) {
            if (problem.empty() && furthest != nullptr) problem = CheckPair(edit, *furthest, speaker);
            if (IsPlaced(edit) && (furthest == nullptr || edit.end() > furthest->end())) furthest = &edit;
        } else {
            const auto [same, isNew] = seen.try_emplace(IdentityOf(edit), &edit);
            if (problem.empty() && !isNew) problem = CheckPair(edit, *same->second, speaker);
        }
        if (!problem.empty()) problems.push_back(std::move(problem));
    }
}

}  // namespace

template <class Edit>
std::string CheckEdit(const Edit& edit, const SongLog& songLog, const TL::Timeline& timeline) {
    Speaker speaker(timeline);
    std::string problem = CheckAlone(edit, timeline, speaker);
    songLog.ForEachSequence([&](const auto& sequence) {
        for (const auto& other : sequence) {
            if (!problem.empty()) return;
            const cmn::TavoEvent* otherEvent = &other;
            if (otherEvent != &edit) problem = CheckPair(edit, other, speaker);
        }
    });
    return problem;
}

template std::string CheckEdit(const Vamp&, const SongLog&, const TL::Timeline&);
template std::string CheckEdit(const Repeat&, const SongLog&, const TL::Timeline&);
template std::string CheckEdit(const Cut&, const SongLog&, const TL::Timeline&);
template std::string CheckEdit(const Fermata&, const SongLog&, const TL::Timeline&);
template std::string CheckEdit(const Transposition&, const SongLog&, const TL::Timeline&);
template std::string CheckEdit(const TempoScale&, const SongLog&, const TL::Timeline&);
template std::string CheckEdit(const Click&, const SongLog&, const TL::Timeline&);
template std::string CheckEdit(const Caesura&, const SongLog&, const TL::Timeline&);
template std::string CheckEdit(const Marker&, const SongLog&, const TL::Timeline&);
template std::string CheckEdit(const Sfx&, const SongLog&, const TL::Timeline&);
template std::string CheckEdit(const SfxAmbient&, const SongLog&, const TL::Timeline&);
template std::string CheckEdit(const Osc&, const SongLog&, const TL::Timeline&);

std::vector<std::string> CheckSongLog(const SongLog& songLog, const TL::Timeline& timeline) {
    std::vector<std::string> problems;
    Speaker speaker(timeline);
    songLog.ForEachSequence([&](const auto& sequence) { CheckSequence(sequence, timeline, problems, speaker); });
    CheckLoops(songLog, problems, speaker);
    CheckCutsAndFermatas(songLog, problems, speaker);
    return problems;
}

}  // namespace CL
