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
    constexpr Size Sizes[] = {{100, 10000}, {10000, 10000}, {100, 100000}};
    std::vector<Candidate> loads;
    for (const Size& size : Sizes)
        loads.push_back(Load(MakeCaesuraStand(size.caesuras, size.beats)));
    const std::vector<Timing> timings = MeasureInterleaved(loads, effort, Clock::ThreadCpu);
    const auto perItem = [&](std::size_t i) {
        return timings[i].Median() / static_cast<double>(Sizes[i].caesuras + Sizes[i].beats);
    };
    for (std::size_t i = 0; i < timings.size(); ++i) {
        const double time = timings[i].Median();
        const double growth = perItem(i) / perItem(0);
        Row row{"song load, C caesuras over B beats",
                fmt::format("{}+{}", FormatCount(static_cast<double>(Sizes[i].caesuras)),
                            FormatCount(static_cast<double>(Sizes[i].beats))),
                "",
                "",
                FormatTime(time),
                "",
                i == 0 ? "<= 1 ms" : "linear in C + B",
                fmt::format("x{:.2f} for one of C + B", growth),
                i == 0 ? time <= 1e6 : growth <= 2};
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
