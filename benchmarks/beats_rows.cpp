// The beats as the performers hear them: click edits laid over the written beats.

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <memory>
#include <string>
#include <vector>

#include "benchmarks/rows.h"
#include "tavo_core/beat_ticks.h"

namespace bench {

namespace {

constexpr unsigned int TicksPerQuarter = 480;
constexpr unsigned int BeatsPerBar = 4;

struct Song {
    TL::TimelineSequence<TL::BarsBeats> beats;
    CL::ChangeLogSequence<CL::Click> clicks;
    TL::TimelineSequence<TL::Meter> meters{TL::Meter(0, 4, 4)};
};

/// Bars of 4/4; click edits of a bar each, evenly over the song, that halve, keep and double the beat in turn.
std::shared_ptr<const Song> MakeSong(unsigned int beats, unsigned int clicks) {
    constexpr int Values[] = {4, 8, 16};
    auto song = std::make_shared<Song>();
    for (unsigned int i = 0; i < beats; ++i)
        song->beats.Append(
            TL::BarsBeats(i * TicksPerQuarter, i % BeatsPerBar + 1, std::to_string(i / BeatsPerBar + 1)));
    const unsigned int bars = beats / BeatsPerBar;
    for (unsigned int i = 0; i < clicks; ++i) {
        const unsigned int bar = static_cast<unsigned int>(std::uint64_t{i} * bars / clicks);
        const unsigned int start = bar * BeatsPerBar * TicksPerQuarter;
        song->clicks.Add(CL::Click(start, start + BeatsPerBar * TicksPerQuarter, Values[i % 3]));
    }
    return song;
}

Candidate Copy(const std::shared_ptr<const Song>& song) {
    return {"copy",
            [song](std::size_t) {
                TL::TimelineSequence<TL::BarsBeats> copy = song->beats;
                benchmark::DoNotOptimize(copy);
            },
            {},
            1};
}

Candidate Apply(const std::shared_ptr<const Song>& song) {
    return {"apply",
            [song](std::size_t) {
                TL::TimelineSequence<TL::BarsBeats> beats =
                    ApplyClicks(song->beats, song->clicks, song->meters, TicksPerQuarter);
                benchmark::DoNotOptimize(beats);
            },
            {},
            1};
}

}  // namespace

void AddBeatsRows(Table& table, const Effort& effort) {
    const auto song = MakeSong(10000, 1000);
    const auto doubled = MakeSong(20000, 2000);
    const std::vector<Timing> timings =
        MeasureInterleaved({Copy(song), Apply(song), Apply(doubled)}, effort, Clock::ThreadCpu);
    const double ratio = MedianRatio(timings[1], timings[0]);
    const double growth = MedianRatio(timings[2], timings[1]);
    table.Add({"beats with clicks applied", "10000+1000", "copy of the written beats", FormatTime(timings[0].Median()),
               FormatTime(timings[1].Median()), FormatRatio(ratio), "<= 1.5", "", ratio <= 1.5});
    table.Add({"beats with clicks applied", "20000+2000", "", "", FormatTime(timings[2].Median()), "",
               "linear in beats + clicks", fmt::format("x{:.2f} for twice both", growth), growth <= 2.5});
}

}  // namespace bench
