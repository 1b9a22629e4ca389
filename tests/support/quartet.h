#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/show_builder.h"

/// Up to sixteen instruments in output groups, and comparisons of what they sound like.
namespace test_support {

inline constexpr std::size_t QuartetBarFrames = 96000;
using Channels = std::vector<std::uint8_t>;

/// Two bars of long notes, one on each of these channels, an instrument each.
inline void AddQuartet(TestShow& show, const Channels& channels) {
    TL::Timeline timeline(0, 2 * TestShow::BarTicks);
    timeline.SetSongTitle("Quartet");
    timeline.GetMeters().Append(TL::Meter(0, 4, 4));
    timeline.GetTempos().Append(TL::Tempo(0, 500000));
    for (unsigned int beat = 0; beat < 8; ++beat)
        timeline.GetBarsBeats().Append(TL::BarsBeats(beat * 480, beat % 4 + 1, std::to_string(beat / 4 + 1)));
    std::vector<tavo_midi::MidiEvent> events;
    for (const std::uint8_t channel : channels)
        events.push_back(
            {0, static_cast<std::uint8_t>(0xC0U | channel), static_cast<std::uint8_t>(16 + channel), 0, 0});
    for (const std::uint8_t channel : channels)
        events.push_back(
            {0, static_cast<std::uint8_t>(0x90U | channel), static_cast<std::uint8_t>(48 + 5 * channel), 80, 0});
    for (const std::uint8_t channel : channels)
        events.push_back({2 * TestShow::BarTicks, static_cast<std::uint8_t>(0x80U | channel),
                          static_cast<std::uint8_t>(48 + 5 * channel), 0, 0});
    tavo_midi::SongData song("1", timeline, 480);
    song.SetEvents(events);
    show.Song(std::move(song));
}

/// What the main output and those of the groups have played, on the left.
struct Grouped {
    std::vector<float> main;
    std::map<std::size_t, std::vector<float>> own;
};

inline Grouped PlayQuartet(const Channels& channels, const std::string& settings, const char* script = "") {
    TestShow show;
    AddQuartet(show, channels);
    show.settings = settings;
    Grouped grouped;
    stage::OfflineOptions options = show.MakeOptions(script);
    options.groupSink = [&](std::size_t output, const float* left, const float*, std::uint32_t frames) {
        grouped.own[output].insert(grouped.own[output].end(), left, left + frames);
    };
    grouped.main = show.Perform(std::move(options)).left;
    return grouped;
}

inline float Peak(const std::vector<float>& sound, std::size_t from = 0, std::size_t to = SIZE_MAX) {
    float peak = 0;
    for (std::size_t i = from; i < std::min(sound.size(), to); ++i)
        peak = std::max(peak, std::fabs(sound[i]));
    return peak;
}

inline float LargestDifference(const std::vector<float>& a, const std::vector<float>& b, std::size_t from = 0,
                               std::size_t to = SIZE_MAX) {
    float largest = 0;
    for (std::size_t i = from; i < std::min({a.size(), b.size(), to}); ++i)
        largest = std::max(largest, std::fabs(a[i] - b[i]));
    return largest;
}

/// Sums of the same numbers in another order differ by less.
inline constexpr float Rounding = 2e-6F;

}  // namespace test_support
