#include "tavo_core/beat_ticks.h"

#include <cstddef>
#include <limits>
#include <optional>
#include <string>

namespace {

// Far above any song, and little enough that clicks of absurd length cannot exhaust memory.
constexpr std::size_t mostGeneratedBeats = 1U << 20U;

/// How a beat gets its number.
enum class Numbering : std::uint8_t {
    Own,             ///< as written
    Continues,       ///< one more than the beat before
    ContinuesToBar,  ///< so does this one and all after it, until one whose own number is 1
};

struct Beat {
    unsigned int tick;
    unsigned int number;
    const std::string* label;
    Numbering numbering;
};

/// Lays clicks over the written beats in one sweep. What lies before the sweep is final but for the numbers, which are
/// resolved at the end; only a click that starts inside an earlier one takes beats back.
class ClickSweep {
public:
    explicit ClickSweep(const TL::TimelineSequence<TL::BarsBeats>& written)
        : next_(written.begin()), end_(written.end()) {
        swept_.reserve(written.size());
    }

    /// Clicks come in ascending order of their start; `step` is above 0.
    void Lay(const CL::Click& click, unsigned int step) {
        MoveTo(click.start());
        if (!HasNext()) return;
        Generate(TakeNext(), step, click.end());
        if (!HasNext()) return;
        Beat follower = TakeNext();
        if (follower.numbering == Numbering::Own) follower.numbering = Numbering::ContinuesToBar;
        ahead_.push_back(follower);
    }

    std::vector<Beat> Finish() {
        while (HasNext())
            swept_.push_back(TakeNext());
        ResolveNumbers();
        return std::move(swept_);
    }

private:
    [[nodiscard]] bool HasNext() const { return !ahead_.empty() || next_ != end_; }
    [[nodiscard]] unsigned int NextTick() const { return ahead_.empty() ? next_->abs_time() : ahead_.back().tick; }
    [[nodiscard]] bool HasNextBefore(unsigned int tick) const { return HasNext() && NextTick() < tick; }

    Beat TakeNext() {
        if (ahead_.empty()) {
            const TL::BarsBeats& beat = *next_++;
            return {beat.abs_time(), beat.beat(), &beat.bar_number(), Numbering::Own};
        }
        const Beat beat = ahead_.back();
        ahead_.pop_back();
        return beat;
    }

    void MoveTo(unsigned int tick) {
        for (; !swept_.empty() && swept_.back().tick >= tick; swept_.pop_back())
            ahead_.push_back(swept_.back());
        while (HasNextBefore(tick))
            swept_.push_back(TakeNext());
    }

    void DropBefore(unsigned int tick) {
        while (HasNextBefore(tick))
            TakeNext();
    }

    static std::optional<unsigned int> Add(unsigned int tick, unsigned int step) {
        if (step > std::numeric_limits<unsigned int>::max() - tick) return std::nullopt;
        return tick + step;
    }

    void Generate(const Beat& first, unsigned int step, unsigned int end) {
        swept_.push_back(first);
        const std::string* label = first.label;
        for (auto tick = Add(first.tick, step); tick && *tick <= end; tick = Add(*tick, step)) {
            if (*tick == end) return DropBefore(end);
            if (generated_++ >= mostGeneratedBeats) return;
            DropBefore(*tick);
            Beat beat{*tick, 1, label, Numbering::Continues};
            if (HasNext() && NextTick() == *tick) {
                const std::string* writtenLabel = TakeNext().label;
                if (*writtenLabel != *label) beat.numbering = Numbering::Own;
                label = beat.label = writtenLabel;
            }
            swept_.push_back(beat);
        }
    }

    void ResolveNumbers() {
        bool continues = false;
        unsigned int previous = 0;
        for (Beat& beat : swept_) {
            if (beat.numbering == Numbering::ContinuesToBar) continues = true;
            if (beat.numbering != Numbering::Continues && beat.number == 1) continues = false;
            if (beat.numbering == Numbering::Continues || continues) beat.number = previous + 1;
            previous = beat.number;
        }
    }

    TL::TimelineSequence<TL::BarsBeats>::const_iterator next_;
    const TL::TimelineSequence<TL::BarsBeats>::const_iterator end_;
    // Beats between the swept ones and next_, the nearest last.
    std::vector<Beat> ahead_;
    std::vector<Beat> swept_;
    std::size_t generated_ = 0;
};

std::vector<Beat> LayClicks(const TL::TimelineSequence<TL::BarsBeats>& beats,
                            const CL::ChangeLogSequence<CL::Click>& clicks,
                            const TL::TimelineSequence<TL::Meter>& meters, unsigned int ticksPerQuarter) {
    ClickSweep sweep(beats);
    for (const CL::Click& click : clicks) {
        if (meters.empty()) break;
        const TL::Meter* meter = meters.FindInForceAt(click.start());
        if (meter == nullptr) meter = &meters.front();
        const unsigned int step = click.ClocksPerClick(meter->thirty_seconds_per_quarter()) * (ticksPerQuarter / 24);
        if (step > 0) sweep.Lay(click, step);
    }
    return sweep.Finish();
}

}  // namespace

std::vector<TL::BarsBeats> ApplyClicks(const TL::TimelineSequence<TL::BarsBeats>& beats,
                                       const CL::ChangeLogSequence<CL::Click>& clicks,
                                       const TL::TimelineSequence<TL::Meter>& meters, unsigned int ticksPerQuarter) {
    if (clicks.empty()) return {beats.begin(), beats.end()};
    const std::vector<Beat> laid = LayClicks(beats, clicks, meters, ticksPerQuarter);
    std::vector<TL::BarsBeats> result;
    result.reserve(laid.size());
    for (const Beat& beat : laid)
        result.emplace_back(beat.tick, beat.number, *beat.label);
    return result;
}

std::vector<unsigned int> CollectBeatTicks(const TL::TimelineSequence<TL::BarsBeats>& beats,
                                           const CL::ChangeLogSequence<CL::Click>& clicks,
                                           const TL::TimelineSequence<TL::Meter>& meters, unsigned int endTick,
                                           unsigned int ticksPerQuarter) {
    std::vector<unsigned int> ticks;
    ticks.reserve(beats.size());
    if (clicks.empty()) {
        for (const TL::BarsBeats& beat : beats) {
            if (beat.abs_time() > endTick) break;
            ticks.push_back(beat.abs_time());
        }
        return ticks;
    }
    for (const Beat& beat : LayClicks(beats, clicks, meters, ticksPerQuarter)) {
        if (beat.tick > endTick) break;
        ticks.push_back(beat.tick);
    }
    return ticks;
}

std::list<unsigned int> CreateBeatTicks(const TL::TimelineSequence<TL::BarsBeats>& beats,
                                        const CL::ChangeLogSequence<CL::Click>& clicks,
                                        const TL::TimelineSequence<TL::Meter>& meters, unsigned int endTick,
                                        unsigned int ticksPerQuarter) {
    const std::vector<unsigned int> ticks = CollectBeatTicks(beats, clicks, meters, endTick, ticksPerQuarter);
    return {ticks.begin(), ticks.end()};
}
