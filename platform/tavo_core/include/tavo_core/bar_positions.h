#pragma once

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "tavo_core/timeline.h"

namespace TL {

/// A song's places as musicians name them, mapped to ticks and back. A place is written as
///   17        the bar with the label 17,
///   17:3      its third beat,
///   17:3+120  120 ticks after that beat,
///   t9600     a tick, also "tick 9600",
///   start, end  the song's first tick and the first one after it.
/// A bar's label wins over the other readings; of several bars with one label the first is meant. The object copies
/// what it needs of the timeline. A value; const operations only after construction.
class BarPositions {
public:
    /// The ticks from `startTick` up to but not including `endTick`.
    struct Bar {
        std::string label;           ///< as in the score; "12 (2)" the second time; need not be a number or unique
        unsigned int startTick = 0;  ///< the downbeat, or a pick-up's first beat
        unsigned int endTick = 0;    ///< the next bar's start; of the last bar the song's end
    };

    /// Linear in the beats. A bar begins at each beat 1 and wherever the label changes; without beats there are none.
    explicit BarPositions(const Timeline& timeline);

    /// The bars in order; the last one ends with the song.
    [[nodiscard]] const std::vector<Bar>& GetBars() const { return bars_; }

    /// The first tick of the place. Throws std::out_of_range where the song has no such bar or beat, and
    /// std::invalid_argument where the text names no place; either with one sentence.
    [[nodiscard]] unsigned int FindStartTick(std::string_view place) const;
    /// The tick where a range that is said to go "to" the place ends: after the whole bar where the place is a bar,
    /// otherwise the tick itself. Throws as FindStartTick does.
    [[nodiscard]] unsigned int FindEndTick(std::string_view place) const;

    /// The place at `tick`; FindStartTick of it gives the tick again.
    [[nodiscard]] std::string DescribeTick(unsigned int tick) const;
    /// "bar 12", "bars 12 to 16" for whole bars, otherwise "12:3 up to 16:2".
    [[nodiscard]] std::string DescribeRange(unsigned int startTick, unsigned int endTick) const;

private:
    struct Beat {
        unsigned int tick;
        unsigned int number;
    };
    struct Found {
        unsigned int tick = 0;
        const Bar* wholeBar = nullptr;
    };

    [[nodiscard]] Found Find(std::string_view place) const;
    [[nodiscard]] const Bar* FindBar(std::string_view label) const;
    [[nodiscard]] unsigned int FindBeat(const Bar& bar, std::string_view beatText) const;
    [[nodiscard]] std::string DescribeExtent() const;

    unsigned int startTick_ = 0;
    unsigned int endTick_ = 0;
    std::vector<Bar> bars_;
    std::vector<Beat> beats_;
    std::unordered_map<std::string, std::size_t> barByLabel_;
};

}  // namespace TL
