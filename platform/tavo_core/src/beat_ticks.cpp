#include "tavo_core/beat_ticks.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <iterator>
#include <limits>
#include <utility>

namespace {

// Far above any song, and little enough that clicks of absurd length cannot exhaust memory.
constexpr std::size_t MostGeneratedBeats = 1U << 20U;

/// Lays clicks over the written beats in one sweep. What lies before the sweep is final; only a click that starts
/// inside an earlier one takes beats back. `Beats` is a sequence of beats that grows and shrinks at its end.
template <class Beats>
class ClickSweep {
public:
    explicit ClickSweep(const TL::TimelineSequence<TL::BarsBeats>& written)
        : next_(written.begin()), end_(written.end()) {
        if constexpr (requires { laid_.reserve(written.size()); }) laid_.reserve(written.size());
    }

    /// Clicks come in ascending order of their start; `step` is above 0.
    void Lay(const CL::Click& click, unsigned int step) {
        const unsigned int start = click.start();
        TakeBackFrom_(start);
        LayBefore_(start);
        if (!HasNext_()) return;
        LayNext_();
        Generate_(step, click.end());
        isCountingOn_ = true;
    }

    Beats Finish() {
        LayBefore_(std::numeric_limits<std::uint64_t>::max());
        return std::move(laid_);
    }

private:
    /// A beat that was taken back, its number as it was laid.
    struct TakenBack {
        TL::BarsBeats beat;
        /// The beats from here to the next bar line are to be counted on from the one before.
        bool isToCountOn = false;
    };

    [[nodiscard]] bool HasNext_() const { return !takenBack_.empty() || next_ != end_; }
    [[nodiscard]] const TL::BarsBeats& Next_() const { return takenBack_.empty() ? *next_ : takenBack_.back().beat; }
    [[nodiscard]] bool HasNextBefore_(std::uint64_t tick) const { return HasNext_() && Next_().abs_time() < tick; }

    void LayBefore_(std::uint64_t tick) {
        while (HasNextBefore_(tick) && (isCountingOn_ || isWrittenToCountOn_ || !takenBack_.empty()))
            LayNext_();
        auto next = next_;
        if (takenBack_.empty()) {
            for (; next != end_ && next->abs_time() < tick; ++next)
                laid_.push_back(*next);
        }
        next_ = next;
    }

    void LayNext_() {
        const unsigned int previousNumber = laid_.empty() ? 0 : laid_.back().beat();
        isCountingOn_ |= takenBack_.empty() ? isWrittenToCountOn_ : takenBack_.back().isToCountOn;
        laid_.push_back(Next_());
        DropNext_();
        if (!isCountingOn_) return;
        if (laid_.back().beat() == 1) {
            isCountingOn_ = false;
        } else {
            laid_.back().beat(previousNumber + 1);
        }
    }

    void DropNext_() {
        if (takenBack_.empty()) {
            ++next_;
            isWrittenToCountOn_ = false;
        } else {
            takenBack_.pop_back();
        }
    }

    void DropBefore_(std::uint64_t tick) {
        while (HasNextBefore_(tick))
            DropNext_();
    }

    void TakeBackFrom_(unsigned int tick) {
        if (laid_.empty() || laid_.back().abs_time() < tick) return;
        if (std::exchange(isCountingOn_, false))
            (takenBack_.empty() ? isWrittenToCountOn_ : takenBack_.back().isToCountOn) = true;
        for (; !laid_.empty() && laid_.back().abs_time() >= tick; laid_.pop_back())
            takenBack_.push_back({std::move(laid_.back())});
    }

    /// The clicks after the beat that was laid last, which is their first.
    void Generate_(unsigned int step, unsigned int end) {
        unsigned int number = laid_.back().beat() + 1;
        std::uint64_t tick = std::uint64_t{laid_.back().abs_time()} + step;
        for (; tick < end && generated_ < MostGeneratedBeats; tick += step, ++number, ++generated_) {
            DropBefore_(tick);
            if (HasNext_() && Next_().abs_time() == tick) {
                if (Next_().bar_number() != laid_.back().bar_number()) number = 1;
                laid_.push_back(Next_());
                laid_.back().beat(number);
                DropNext_();
            } else {
                laid_.emplace_back(static_cast<unsigned int>(tick), number, laid_.back().bar_number());
            }
        }
        if (tick == end) DropBefore_(end);
    }

    TL::TimelineSequence<TL::BarsBeats>::const_iterator next_;
    const TL::TimelineSequence<TL::BarsBeats>::const_iterator end_;
    // Between what is laid and next_, the nearest last.
    std::vector<TakenBack> takenBack_;
    Beats laid_;
    // The beats from the next one, or from next_, to the next bar line are counted on from the one before.
    bool isCountingOn_ = false;
    bool isWrittenToCountOn_ = false;
    std::size_t generated_ = 0;
};

template <class Beats>
Beats LayClicks(const TL::TimelineSequence<TL::BarsBeats>& beats, const CL::ChangeLogSequence<CL::Click>& clicks,
                const TL::TimelineSequence<TL::Meter>& meters, unsigned int ticksPerQuarter) {
    if (clicks.empty() || meters.empty()) return Beats(beats.begin(), beats.end());
    ClickSweep<Beats> sweep(beats);
    auto meter = meters.begin();
    for (const CL::Click& click : clicks) {
        while (std::next(meter) != meters.end() && std::next(meter)->abs_time() <= click.start())
            ++meter;
        const unsigned int step = click.ClocksPerClick(meter->thirty_seconds_per_quarter()) * (ticksPerQuarter / 24);
        if (step > 0) sweep.Lay(click, step);
    }
    return sweep.Finish();
}

}  // namespace

TL::TimelineSequence<TL::BarsBeats> ApplyClicks(const TL::TimelineSequence<TL::BarsBeats>& beats,
                                                const CL::ChangeLogSequence<CL::Click>& clicks,
                                                const TL::TimelineSequence<TL::Meter>& meters,
                                                unsigned int ticksPerQuarter) {
    return TL::TimelineSequence<TL::BarsBeats>(
        LayClicks<std::deque<TL::BarsBeats>>(beats, clicks, meters, ticksPerQuarter));
}

std::vector<TL::BarsBeats> CollectBeats(const TL::TimelineSequence<TL::BarsBeats>& beats,
                                        const CL::ChangeLogSequence<CL::Click>& clicks,
                                        const TL::TimelineSequence<TL::Meter>& meters, unsigned int ticksPerQuarter) {
    return LayClicks<std::vector<TL::BarsBeats>>(beats, clicks, meters, ticksPerQuarter);
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
    for (const TL::BarsBeats& beat : CollectBeats(beats, clicks, meters, ticksPerQuarter)) {
        if (beat.abs_time() > endTick) break;
        ticks.push_back(beat.abs_time());
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
