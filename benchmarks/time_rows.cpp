// Where a tick lies: in time and in the bars; and that the arithmetic behind it is exact.

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <memory>

#include "benchmarks/rows.h"
#include "benchmarks/stand.h"
#include "benchmarks/yardsticks.h"
#include "tavo_midi/show_data.h"
#include "tavo_midi/tempo_map.h"
#include "tavo_midi/time_code_converter.h"

namespace bench {

namespace {

constexpr unsigned int KeyStep = 4000;
constexpr unsigned int TicksPerQuarter = 480;

TL::TimelineSequence<TL::Tempo> MakeTempos(std::size_t tempos) {
    TL::TimelineSequence<TL::Tempo> sequence;
    Random random(tempos);
    for (unsigned int i = 0; i < tempos; ++i)
        sequence.Append({i * KeyStep, 300000 + random.Below(600000)});
    return sequence;
}

std::shared_ptr<tavo_midi::TempoMap> MakeTempoMap(std::size_t tempos) {
    return std::make_shared<tavo_midi::TempoMap>(MakeTempos(tempos), TicksPerQuarter);
}

/// A song with so many tempos, and time code's converter for it.
struct ConvertedSong {
    explicit ConvertedSong(std::size_t tempos) {
        TL::Timeline timeline(0, static_cast<unsigned int>(tempos) * KeyStep);
        timeline.GetTempos() = MakeTempos(tempos);
        showData.AddSong({"1", timeline, TicksPerQuarter});
        converter.UpdateToNewSong("1", TicksPerQuarter);
    }
    tavo_midi::ShowData showData;
    TimeCodeConverter converter{showData};
};

std::shared_ptr<HowToPlay> MakeTracker(std::size_t beats) {
    static auto* const controls = new UserControls;
    TL::Timeline timeline(0, static_cast<unsigned int>(beats) * KeyStep);
    timeline.GetMeters().Append({0, 4, 4});
    for (unsigned int i = 0; i < beats; ++i)
        timeline.GetBarsBeats().Append({i * KeyStep, i % 4 + 1, std::to_string(i / 4 + 1)});
    auto tracker = std::make_shared<HowToPlay>(*controls);
    tracker->SetData(CL::SongLog(), timeline, TicksPerQuarter);
    return tracker;
}

/// `ask(tick)` at random ticks of a song with `size` entries.
template <class Ask>
Candidate AtRandom(std::size_t size, Ask ask) {
    Random random(size);
    std::vector<unsigned int> ticks(Questions);
    for (unsigned int& tick : ticks)
        tick = random.Below(static_cast<unsigned int>(size) * KeyStep);
    return {"random",
            [ticks, ask, next = std::size_t{0}](std::size_t operations) mutable {
                for (std::size_t i = 0; i < operations; ++i)
                    ask(ticks[next++ % Questions]);
            },
            {},
            4 * Questions};
}

/// `ask(tick)` at ticks that go on as playback does.
template <class Ask>
Candidate PlayingOn(std::size_t size, Ask ask) {
    const unsigned int end = static_cast<unsigned int>(size) * KeyStep;
    return {"playing on", [end, ask, tick = end / 2](std::size_t operations) mutable {
                for (std::size_t i = 0; i < operations; ++i) {
                    tick += 2;
                    if (tick >= end) tick = 0;
                    ask(tick);
                }
            }};
}

void AddLookUpRow(Table& table, const Effort& effort, const std::string& what, std::size_t size,
                  const Candidate& atRandom, const Candidate& playingOn) {
    // Batches long enough to find their own cache, for whatever took the turn before has emptied it.
    Candidate search = BranchlessSearch(size);
    search.operations = 4 * Questions;
    const std::vector<Timing> timings = MeasureInterleaved({search, atRandom, playingOn}, effort, Clock::ThreadCpu);
    const double ratio = MedianRatio(timings[1], timings[0]);
    const std::string n = FormatCount(static_cast<double>(size));
    table.Add({what + ", random", n, "branchless search", FormatTime(timings[0].Median()),
               FormatTime(timings[1].Median()), FormatRatio(ratio), "<= 1.5", "", ratio <= 1.5});
    table.Add({what + ", playing on", n, "branchless search", FormatTime(timings[0].Median()),
               FormatTime(timings[2].Median()), FormatRatio(MedianRatio(timings[2], timings[0])), "<= 10 ns", "",
               timings[2].Median() <= 10});
}

/// 2.5 hours with 10 000 tempos; ticks at tempos that divide badly.
TL::TimelineSequence<TL::Tempo> MakeEveningOfTempos() {
    TL::TimelineSequence<TL::Tempo> tempos;
    Random random(7);
    for (unsigned int i = 0; i < 10000; ++i)
        tempos.Append({i * 864, 333333 + random.Below(333334)});
    return tempos;
}

__extension__ using Wide = unsigned __int128;

}  // namespace

void AddTimeRows(Table& table, const Effort& effort) {
    for (const std::size_t size : effort.Sizes()) {
        const auto map = MakeTempoMap(size);
        AddLookUpRow(
            table, effort, "tick to time", size,
            AtRandom(size, [map](unsigned int tick) { benchmark::DoNotOptimize(map->GetTickMicroseconds(tick)); }),
            PlayingOn(size, [map, segment = std::size_t{0}](unsigned int tick) mutable {
                segment = map->FindSegment(tick, segment);
                const auto& found = map->GetSegments()[segment];
                benchmark::DoNotOptimize(found.tickMicroseconds +
                                         std::uint64_t{tick - found.tick} * found.microsecondsPerQuarter);
            }));
    }
    for (const std::size_t size : effort.Sizes()) {
        const auto tracker = MakeTracker(size);
        AddLookUpRow(table, effort, "tick to bar", size,
                     AtRandom(size, [tracker](unsigned int tick) { tracker->Seek(tick); }),
                     PlayingOn(size, [tracker](unsigned int tick) { tracker->Advance(tick); }));
    }
}

void AddConverterRows(Table& table, const Effort& effort) {
    for (const std::size_t size : effort.Sizes()) {
        const auto song = std::make_shared<ConvertedSong>(size);
        Candidate search = BranchlessSearch(size);
        search.operations = 4 * Questions;
        const Candidate toSeconds =
            AtRandom(size, [song](unsigned int tick) { benchmark::DoNotOptimize(song->converter.GetSeconds(tick)); });
        // As many seconds as a tick's share of the song: no look-up but the one that is measured.
        const double secondsPerTick =
            song->converter.GetSeconds(static_cast<unsigned int>(size) * KeyStep) / static_cast<double>(size * KeyStep);
        const Candidate toTick = AtRandom(size, [song, secondsPerTick](unsigned int tick) {
            benchmark::DoNotOptimize(song->converter.GetTickIndex(tick * secondsPerTick));
        });
        const std::vector<Timing> timings = MeasureInterleaved({search, toSeconds, toTick}, effort, Clock::ThreadCpu);
        const std::string n = FormatCount(static_cast<double>(size));
        for (const std::size_t row : {1U, 2U}) {
            table.Add({row == 1 ? "time code: tick to seconds" : "time code: seconds to tick",
                       n,
                       "branchless search",
                       FormatTime(timings[0].Median()),
                       FormatTime(timings[row].Median()),
                       FormatRatio(MedianRatio(timings[row], timings[0])),
                       "",
                       "",
                       {}});
        }
    }
}

void AddArithmeticRows(Table& table, const Effort& effort) {
    constexpr std::uint32_t FramesPerSecond = 48000;
    constexpr Wide UnitsPerSecond = Wide{TicksPerQuarter} * 1000000;
    const auto tempos = MakeEveningOfTempos();
    const tavo_midi::TempoMap map(tempos, TicksPerQuarter);
    const unsigned int stride = effort.brief ? 7 : 1;
    std::uint64_t forward = 0;
    std::uint64_t back = 0;
    std::uint64_t frame = 0;
    unsigned int ticks = 0;
    // The whole sum in tick-microseconds, tempo by tempo, tick by tick: no division before the last step.
    Wide start = 0;
    for (std::size_t i = 0; i < tempos.size(); ++i) {
        const unsigned int first = tempos[i].abs_time();
        const unsigned int last = i + 1 < tempos.size() ? tempos[i + 1].abs_time() : first + 864;
        for (unsigned int tick = first; tick < last; tick += stride) {
            const Wide time = start + Wide{tick - first} * tempos[i].microseconds_per_quarter();
            const Wide exact = (time * FramesPerSecond * 2 + UnitsPerSecond) / (UnitsPerSecond * 2);
            frame = map.FrameOfTick(tick, FramesPerSecond);
            if (frame != static_cast<std::uint64_t>(exact)) ++forward;
            if (map.TickOfFrame(frame, FramesPerSecond) != tick) ++back;
            ++ticks;
        }
        start += Wide{last - first} * tempos[i].microseconds_per_quarter();
    }
    const std::string length = fmt::format("{:.2f} h", static_cast<double>(frame) / FramesPerSecond / 3600);
    const std::string asked = fmt::format("{:.1f} M ticks", ticks / 1e6);
    table.Add({"tick to frame, ticks in error", asked, "whole-number sum", "", fmt::format("{}", forward), "", "0",
               "over " + length, forward == 0});
    table.Add({"tick to frame and back, ticks in error", asked, "the tick itself", "", fmt::format("{}", back), "", "0",
               "over " + length, back == 0});
}

}  // namespace bench
