#include "tavo_core/bar_positions.h"
#include "kit/words.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <limits>
#include <optional>
#include <stdexcept>

namespace TL {

namespace {

constexpr std::string_view Blanks = " \t";

std::string_view Trim(std::string_view text) {
    const std::size_t first = text.find_first_not_of(Blanks);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(Blanks) - first + 1);
}

std::optional<unsigned int> ReadNumber(std::string_view text) {
    unsigned int number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (text.empty() || error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return number;
}

/// The number in "t9600" or "tick 9600".
std::optional<unsigned int> ReadTick(std::string_view text) {
    if (text.starts_with("tick")) {
        text.remove_prefix(4);
    } else if (text.starts_with("t")) {
        text.remove_prefix(1);
    } else {
        return std::nullopt;
    }
    return ReadNumber(Trim(text));
}

[[noreturn]] void RefuseText(std::string_view place) {
    throw std::invalid_argument(fmt::format(
        "{} names no place: write a bar (17), bar and beat (17:3), a tick (t9600), start or end", kit::Quote(place)));
}

}  // namespace

BarPositions::BarPositions(const Timeline& timeline)
    : startTick_(timeline.GetStartTickIndex()), endTick_(timeline.GetEndTickIndex()) {
    for (const BarsBeats& beat : timeline.GetBarsBeats()) {
        if (bars_.empty() || beat.beat() == 1 || beat.bar_number() != bars_.back().label) {
            if (!bars_.empty()) bars_.back().endTick = beat.abs_time();
            barByLabel_.try_emplace(beat.bar_number(), bars_.size());
            bars_.push_back({beat.bar_number(), beat.abs_time(), 0});
        }
        beats_.push_back({beat.abs_time(), beat.beat()});
    }
    if (!bars_.empty()) bars_.back().endTick = std::max(endTick_, bars_.back().startTick);
}

unsigned int BarPositions::FindStartTick(std::string_view place) const {
    return Find(place).tick;
}

unsigned int BarPositions::FindEndTick(std::string_view place) const {
    const Found found = Find(place);
    return found.wholeBar != nullptr ? found.wholeBar->endTick : found.tick;
}

BarPositions::Found BarPositions::Find(std::string_view place) const {
    place = Trim(place);
    if (const Bar* bar = FindBar(place)) return {bar->startTick, bar};
    if (place == "start") return {startTick_};
    if (place == "end") return {endTick_};
    if (const auto tick = ReadTick(place)) return {*tick};
    if (place.empty() || place.size() > 64) RefuseText(place);

    const std::size_t colon = place.rfind(':');
    const std::string_view label = Trim(place.substr(0, colon));
    const Bar* bar = FindBar(label);
    if (bar == nullptr) {
        if (label.empty() || label.find_first_of("0123456789") == std::string_view::npos) RefuseText(place);
        throw std::out_of_range(fmt::format("there is no bar {}, {}", label, DescribeExtent()));
    }
    return {FindBeat(*bar, Trim(place.substr(colon + 1)))};
}

const BarPositions::Bar* BarPositions::FindBar(std::string_view label) const {
    const auto found = barByLabel_.find(std::string(label));
    return found == barByLabel_.end() ? nullptr : &bars_[found->second];
}

unsigned int BarPositions::FindBeat(const Bar& bar, std::string_view beatText) const {
    const std::size_t plus = beatText.find('+');
    const auto number = ReadNumber(Trim(beatText.substr(0, plus)));
    const auto offset = plus == std::string_view::npos ? 0U : ReadNumber(Trim(beatText.substr(plus + 1)));
    if (!number || !offset) RefuseText(fmt::format("{}:{}", bar.label, beatText));

    const auto first = std::lower_bound(beats_.begin(), beats_.end(), bar.startTick,
                                        [](const Beat& beat, unsigned int tick) { return beat.tick < tick; });
    auto last = first;
    for (auto beat = first; beat != beats_.end() && (beat->tick < bar.endTick || beat == first); ++beat) {
        if (beat->number == *number) {
            if (*offset > std::numeric_limits<unsigned int>::max() - beat->tick) RefuseText(beatText);
            return beat->tick + *offset;
        }
        last = beat;
    }
    const std::string beats = first == last ? fmt::format("beat {} only", first->number)
                                            : fmt::format("the beats {} to {}", first->number, last->number);
    throw std::out_of_range(fmt::format("bar {} has no beat {}, it has {}", bar.label, *number, beats));
}

std::string BarPositions::DescribeExtent() const {
    if (bars_.empty()) return "the song has no bars";
    return fmt::format("the song's bars are {} to {}", bars_.front().label, bars_.back().label);
}

std::string BarPositions::DescribeTick(unsigned int tick) const {
    const auto afterBar = std::upper_bound(bars_.begin(), bars_.end(), tick,
                                           [](unsigned int t, const Bar& bar) { return t < bar.startTick; });
    if (tick == endTick_ && (bars_.empty() || FindBar("end") == nullptr)) return "end";
    const bool isInSong = afterBar != bars_.begin() && tick < endTick_;
    const Bar* bar = isInSong ? &*std::prev(afterBar) : nullptr;
    if (bar == nullptr || FindBar(bar->label) != bar) return fmt::format("t{}", tick);
    if (tick == bar->startTick) return bar->label;

    const auto beat = std::prev(std::upper_bound(beats_.begin(), beats_.end(), tick,
                                                 [](unsigned int t, const Beat& other) { return t < other.tick; }));
    const std::string text = fmt::format("{}:{}", bar->label, beat->number);
    return beat->tick == tick ? text : fmt::format("{}+{}", text, tick - beat->tick);
}

std::string BarPositions::DescribeRange(unsigned int startTick, unsigned int endTick) const {
    const auto first = std::lower_bound(bars_.begin(), bars_.end(), startTick,
                                        [](const Bar& bar, unsigned int tick) { return bar.startTick < tick; });
    const auto last = std::lower_bound(bars_.begin(), bars_.end(), endTick,
                                       [](const Bar& bar, unsigned int tick) { return bar.endTick < tick; });
    const bool areWholeBars = startTick < endTick && first != bars_.end() && first->startTick == startTick &&
                              last != bars_.end() && last->endTick == endTick;
    if (!areWholeBars) return fmt::format("{} up to {}", DescribeTick(startTick), DescribeTick(endTick));
    if (first == last) return fmt::format("bar {}", first->label);
    return fmt::format("bars {} to {}", first->label, last->label);
}

}  // namespace TL
