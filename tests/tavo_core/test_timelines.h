#pragma once

#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "kit/numeric_string_compare.h"
#include "tavo_core/show_timelines.h"

namespace test_support {

/// The songs of a made-up show, in 4/4 at 480 ticks to the quarter note: a bar is 1920 ticks, the first is bar 1.
class TestTimelines : public TL::ShowTimelines {
public:
    static constexpr unsigned int BarTicks = 1920;

    TestTimelines& Song(const std::string& number, unsigned int bars) {
        TL::Timeline timeline(0, bars * BarTicks);
        timeline.GetMeters().Append(TL::Meter(0, 4, 4));
        for (unsigned int beat = 0; beat < bars * 4; ++beat)
            timeline.GetBarsBeats().Append(TL::BarsBeats(beat * 480, beat % 4 + 1, std::to_string(beat / 4 + 1)));
        timelines_[number] = timeline;
        return *this;
    }
    TL::Timeline& operator[](const std::string& number) { return timelines_.at(number); }

    [[nodiscard]] std::vector<std::string> GetSongNumbers() const override {
        std::vector<std::string> numbers;
        for (const auto& [number, timeline] : timelines_)
            numbers.push_back(number);
        return numbers;
    }
    [[nodiscard]] const TL::Timeline& GetTimelineOf(const std::string& songNumber) const override {
        const auto found = timelines_.find(songNumber);
        if (found == timelines_.end()) throw std::out_of_range("The show has no song \"" + songNumber + "\".");
        return found->second;
    }

private:
    std::map<std::string, TL::Timeline, kit::NumericStringCompare> timelines_;
};

/// First tick of a bar.
[[nodiscard]] constexpr unsigned int Bar(unsigned int number) {
    return (number - 1) * TestTimelines::BarTicks;
}

}  // namespace test_support
