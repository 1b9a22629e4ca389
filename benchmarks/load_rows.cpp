// Loading a song: everything that playback consults, built from the song and its edits.

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <algorithm>
#include <memory>

#include "benchmarks/rows.h"
#include "benchmarks/stand.h"
#include "benchmarks/yardsticks.h"

namespace bench {

namespace {

// Below this a sort costs less than the locks and the timeline's copy, which every load pays.
constexpr std::size_t SizeWhereSortingCounts = 10000;

std::vector<const cmn::TavoEvent*> CollectEvents(const CL::SongLog& songLog) {
    std::vector<const cmn::TavoEvent*> events;
    const auto addAll = [&events](const auto& sequence) {
        for (const cmn::TavoEvent& event : sequence)
            events.push_back(&event);
    };
    addAll(songLog.GetVamps());
    addAll(songLog.GetRepeats());
    addAll(songLog.GetCuts());
    addAll(songLog.GetFermatas());
    return events;
}

/// The same events in the same order as a load meets them, sorted once by start and end.
Candidate StableSort(std::size_t events) {
    struct Data {
        CL::SongLog songLog;
        std::vector<const cmn::TavoEvent*> unsorted;
        std::vector<const cmn::TavoEvent*> sorted;
    };
    auto data = std::make_shared<Data>();
    data->songLog = MakeSongLog(events, false);
    data->unsorted = CollectEvents(data->songLog);
    return {"stable sort",
            [data](std::size_t) {
                std::stable_sort(data->sorted.begin(), data->sorted.end(),
                                 [](const cmn::TavoEvent* a, const cmn::TavoEvent* b) {
                                     if (a->start() != b->start()) return a->start() < b->start();
                                     return a->end() < b->end();
                                 });
                benchmark::DoNotOptimize(data->sorted.data());
            },
            [data] { data->sorted = data->unsorted; }, 1};
}

Candidate Load(const std::shared_ptr<Stand>& stand) {
    return {"load", [stand](std::size_t) { stand->Flow().LoadNewChangeLog(); }, [stand] { stand->ActivateChangeLog(); },
            1};
}

std::shared_ptr<Stand> MakeCaesuraStand(std::size_t caesuras, std::size_t beats) {
    CL::SongLog songLog;
    const auto ticksPerCaesura = static_cast<unsigned int>(beats / caesuras) * TicksBetweenEvents;
    for (unsigned int i = 0; i < caesuras; ++i)
        songLog.GetCaesuras().Add({EventTick(beats, 0) + i * ticksPerCaesura, "", 0});
    return std::make_shared<Stand>(std::move(songLog), MakeTimeline(beats, beats));
}

void AddCaesuraRows(Table& table, const Effort& effort) {
    struct Size {
        std::size_t caesuras;
        std::size_t beats;
    };
    // The last has twice as much of both as the one before it.
    constexpr Size Sizes[] = {{100, 10000}, {100, 100000}, {10000, 10000}, {20000, 20000}};
    constexpr std::size_t Doubled = 3;
    std::vector<Candidate> loads;
    for (const Size& size : Sizes)
        loads.push_back(Load(MakeCaesuraStand(size.caesuras, size.beats)));
    const std::vector<Timing> timings = MeasureInterleaved(loads, effort, Clock::ThreadCpu);
    for (std::size_t i = 0; i < timings.size(); ++i) {
        const double time = timings[i].Median();
        Row row;
        row.what = "song load, C caesuras over B beats";
        row.size = fmt::format("{}+{}", Sizes[i].caesuras, Sizes[i].beats);
        row.measured = FormatTime(time);
        if (i == 0) {
            row.aim = "<= 1 ms";
            row.met = time <= 1e6;
        } else if (i == Doubled) {
            const double growth = MedianRatio(timings[i], timings[i - 1]);
            row.aim = "linear in C + B";
            row.growth = fmt::format("x{:.2f} for twice both", growth);
            row.met = growth <= 2.5;
        }
        table.Add(row);
    }
}

}  // namespace

void AddLoadRows(Table& table, const Effort& effort) {
    for (const std::size_t events : effort.Sizes()) {
        auto stand = std::make_shared<Stand>(MakeSongLog(events, false), MakeTimeline(events, 100));
        const std::vector<Timing> timings =
            MeasureInterleaved({StableSort(events), Load(stand)}, effort, Clock::ThreadCpu, 7);
        const double ratio = MedianRatio(timings[1], timings[0]);
        Row row{"song load",
                FormatCount(static_cast<double>(events)),
                "stable sort by start and end",
                FormatTime(timings[0].Median()),
                FormatTime(timings[1].Median()),
                FormatRatio(ratio),
                "",
                "",
                {}};
        if (events >= SizeWhereSortingCounts) {
            row.aim = "<= 3";
            row.met = ratio <= 3;
        }
        table.Add(row);
    }
    AddCaesuraRows(table, effort);
}

}  // namespace bench
