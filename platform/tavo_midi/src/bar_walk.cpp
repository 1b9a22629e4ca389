#include "bar_walk.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <optional>
#include <stdexcept>

namespace tavo_midi {

namespace {

constexpr std::uint64_t LastTickOfBars = std::numeric_limits<std::uint32_t>::max();

/// The number that a label is; empty for any other text.
std::optional<std::uint64_t> NumberOf(const std::string& label) {
    std::uint32_t number = 0;
    const char* end = label.data() + label.size();
    const auto result = std::from_chars(label.data(), end, number);
    if (result.ec != std::errc() || result.ptr != end) return std::nullopt;
    return number;
}

}  // namespace

BarWalk::BarWalk(const std::vector<TL::Meter>& meters, unsigned int ticksPerQuarter, const SongOptions& options,
                 const std::string& name)
    : meters_(meters), ticksPerQuarter_(ticksPerQuarter), options_(options), name_(name) {}

void BarWalk::Fail(const std::string& what) const {
    throw std::runtime_error(fmt::format("\"{}\" {}", name_, what));
}

std::uint64_t BarWalk::TicksOfBeats(std::uint64_t beats) const {
    return beats * ticksPerQuarter_ * 4 / meter_.denominator();
}

std::uint64_t BarWalk::BarLine(std::uint64_t bars) const {
    return origin_ + TicksOfBeats(bars * meter_.numerator());
}

void BarWalk::TakeMetersUpTo(std::uint64_t tick) {
    while (nextMeter_ < meters_.size() && meters_[nextMeter_].abs_time() <= tick) {
        meter_ = meters_[nextMeter_++];
        origin_ = tick;
        barsSinceOrigin_ = 0;
        if (TicksOfBeats(meter_.numerator()) == 0)
            Fail(fmt::format("has bars of {}/{} at tick {}, which are shorter than a tick", meter_.numerator(),
                             meter_.denominator(), tick));
    }
}

std::uint64_t BarWalk::CheckedPickupTicks() const {
    if (options_.pickupBeats == 0) return 0;
    const double ticks = std::round(options_.pickupBeats * static_cast<double>(ticksPerQuarter_) * 4 /
                                    static_cast<double>(meter_.denominator()));
    if (!(ticks >= 1) || !(ticks < static_cast<double>(TicksOfBeats(meter_.numerator()))))
        Fail(fmt::format("has a first bar of {} beats, in which a pick-up of {} beats does not fit", meter_.numerator(),
                         options_.pickupBeats));
    return static_cast<std::uint64_t>(ticks);
}

bool BarWalk::FirstMeterIsPickup() const {
    if (nextMeter_ == meters_.size() || meters_[nextMeter_].abs_time() != BarLine(1)) return false;
    const TL::Meter& second = meters_[nextMeter_];
    return meter_.numerator() * second.denominator() < second.numerator() * meter_.denominator();
}

BarWalk::Bar BarWalk::NextBar(std::uint64_t begin) {
    Bar bar{begin, BarLine(++barsSinceOrigin_)};
    if (nextMeter_ < meters_.size()) bar.end = std::min<std::uint64_t>(bar.end, meters_[nextMeter_].abs_time());
    if (bar.end > LastTickOfBars) Fail(fmt::format("has a bar that ends after tick {}", LastTickOfBars));
    return bar;
}

std::string BarWalk::NextLabel() {
    const std::vector<BarLabel>& labels = options_.barLabels;
    while (nextLabel_ < labels.size() && labels[nextLabel_].bar < barIndex_)
        ++nextLabel_;
    const bool isGiven = nextLabel_ < labels.size() && labels[nextLabel_].bar == barIndex_;
    ++barIndex_;
    if (!isGiven) return std::to_string(count_++);
    const std::string& label = labels[nextLabel_].label;
    if (const std::optional<std::uint64_t> number = NumberOf(label)) count_ = *number + 1;
    return label;
}

void BarWalk::AppendBar(const Bar& bar, bool isPickup, TL::TimelineSequence<TL::BarsBeats>& beats) {
    const std::string label = NextLabel();
    std::uint64_t beatsOfPickup = 1;
    if (isPickup)
        while (TicksOfBeats(beatsOfPickup) < bar.end - bar.begin)
            ++beatsOfPickup;
    const auto tickOfBeat = [&](std::uint64_t beat) {
        if (isPickup) return beat == 0 ? bar.begin : bar.end - TicksOfBeats(beatsOfPickup - beat);
        return origin_ + TicksOfBeats((barsSinceOrigin_ - 1) * meter_.numerator() + beat);
    };
    unsigned int number = 1;
    for (std::uint64_t beat = 0; tickOfBeat(beat) < bar.end; ++beat) {
        const auto tick = static_cast<std::uint32_t>(tickOfBeat(beat));
        if (beats.size() == MaxSongBeats) Fail(fmt::format("would have more than {} beats", MaxSongBeats));
        if (beats.empty() || beats.back().abs_time() != tick) beats.Append({tick, number++, label});
    }
}

std::uint32_t BarWalk::AppendBeats(std::uint32_t lastTick, TL::TimelineSequence<TL::BarsBeats>& beats) {
    TakeMetersUpTo(options_.startTick);
    const std::uint64_t pickupTicks = CheckedPickupTicks();
    if (pickupTicks != 0 || FirstMeterIsPickup()) count_ = 0;
    Bar bar{options_.startTick, options_.startTick};
    if (pickupTicks != 0) {
        bar.end = options_.startTick + pickupTicks;
        AppendBar(bar, true, beats);
        origin_ = bar.end;
    }
    while (bar.end < lastTick || beats.empty()) {
        TakeMetersUpTo(bar.end);
        bar = NextBar(bar.end);
        AppendBar(bar, false, beats);
    }
    return static_cast<std::uint32_t>(bar.end);
}

}  // namespace tavo_midi
