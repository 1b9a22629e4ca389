// Flow control while playback runs: the advance, the search at a seek, the jump back, nested loops.

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <list>
#include <map>
#include <memory>

#include "benchmarks/rows.h"
#include "benchmarks/stand.h"
#include "benchmarks/yardsticks.h"
#include "tavo_core/event_codes.h"

namespace bench {

namespace {

// What the display's pass, every 33 ms, finds filed by an engine that advances 64 frames at a time.
constexpr std::size_t AdvancesPerPass = 25;
// SetTickIndex takes the seek lock once, the search three times (one of them again after a look at the caesuras), the
// recomputed status four times (one of them again after the counts), and the filed status the queue's mutex.
constexpr double LocksPerAdvance = 9;

/// 64 frames at 48 kHz, 120 quarters a minute and 480 ticks a quarter are 1.28 ticks.
class Playhead {
public:
    explicit Playhead(unsigned int tick) : tick_(tick) {}
    unsigned int Next() {
        quarter_ = (quarter_ + 1) % 4;
        return tick_ += quarter_ == 0 ? 2 : 1;
    }
    [[nodiscard]] unsigned int Tick() const { return tick_; }
    void SkipTo(unsigned int tick) { tick_ = tick; }

private:
    unsigned int tick_;
    unsigned int quarter_ = 0;
};

Candidate EmptyAdvance(const std::shared_ptr<Stand>& stand) {
    auto playhead = std::make_shared<Playhead>(MiddleTick + TicksBetweenEvents / 2 + 2);
    return {"advance",
            [stand, playhead](std::size_t operations) {
                BenchFlow& flow = stand->Flow();
                for (std::size_t i = 0; i < operations; ++i) {
                    const unsigned int tick = playhead->Next();
                    flow.SetTickIndex(tick);
                    flow.FindNextControlEventOnAdvance(tick, tick + 2);
                }
            },
            [stand, playhead] {
                // Into the free half of the next gap before an event is met.
                if ((playhead->Tick() - MiddleTick) % TicksBetweenEvents > TicksBetweenEvents - 100) {
                    playhead->SkipTo(playhead->Tick() + TicksBetweenEvents / 2 + 200);
                }
                if (playhead->Tick() > MiddleTick + 3 * TicksBetweenEvents) {
                    playhead->SkipTo(MiddleTick + TicksBetweenEvents / 2 + 2);
                }
                stand->Flow().ResetControlVariables();
                stand->Flow().SetTickIndex(playhead->Tick());
                stand->Flow().GetHowToPlay().Seek(playhead->Tick());
                Stand::Feed().Seek(playhead->Tick());
            },
            AdvancesPerPass};
}

/// Advances that each begin on the next event tick.
Candidate EventAdvance(const std::shared_ptr<Stand>& stand, std::size_t events) {
    auto next = std::make_shared<std::size_t>(0);
    return {"advance on an event",
            [stand, events, next](std::size_t operations) {
                BenchFlow& flow = stand->Flow();
                for (std::size_t i = 0; i < operations; ++i) {
                    const unsigned int tick = EventTick(events, *next);
                    *next = (*next + 1) % events;
                    flow.SetTickIndex(tick);
                    flow.FindNextControlEventOnAdvance(tick, tick + 2);
                }
            },
            [stand, events, next] {
                const unsigned int tick = EventTick(events, *next);
                stand->Flow().ResetControlVariables();
                stand->Flow().GetHowToPlay().Seek(tick);
                Stand::Feed().Seek(tick);
            },
            AdvancesPerPass};
}

std::shared_ptr<Stand> MakeStand(std::size_t events, bool songLongVamp = false) {
    return std::make_shared<Stand>(MakeSongLog(events, songLongVamp), MakeTimeline(events));
}

// The plain reading of the search: an ordered map of lists, walked from its beginning.
using PlainMap = std::map<unsigned int, std::list<const cmn::TavoEvent*>>;

PlainMap MakePlainMap(const CL::SongLog& songLog) {
    PlainMap map;
    const auto addAll = [&map](const auto& events) {
        for (const cmn::TavoEvent& event : events)
            map[event.abs_time()].push_back(&event);
    };
    addAll(songLog.GetVamps());
    addAll(songLog.GetRepeats());
    addAll(songLog.GetCuts());
    addAll(songLog.GetFermatas());
    for (auto& [key, events] : map)
        events.sort([](const cmn::TavoEvent* a, const cmn::TavoEvent* b) { return a->end() < b->end(); });
    return map;
}

struct PlainSearch {
    explicit PlainSearch(CL::SongLog log) : songLog(std::move(log)), map(MakePlainMap(songLog)) {}

    std::pair<bool, unsigned int> FindOnSeek(unsigned int tickIndex) {
        const std::lock_guard lock(mutex);
        for (auto it = map.begin(); it != map.end() && it->first <= tickIndex; ++it) {
            for (const cmn::TavoEvent* event : it->second) {
                if (event->end() <= tickIndex) continue;
                if (event->code() == codes::Cut) return {true, event->end()};
                loops.InsertLoopEvent(LoopEvent(*event));
            }
        }
        return {false, 0};
    }

    const CL::SongLog songLog;
    const PlainMap map;
    LoopEventList loops;
    std::recursive_mutex mutex;
};

std::vector<unsigned int> RandomTicks(std::size_t events) {
    Random random(events);
    std::vector<unsigned int> ticks(Questions);
    for (unsigned int& tick : ticks) {
        tick = EventTick(events, 0) + random.Below(static_cast<unsigned int>(events) * TicksBetweenEvents);
    }
    return ticks;
}

struct SearchTimes {
    double walk = 0;
    double search = 0;
    double ratio = 0;
};

SearchTimes CompareSeekSearch(std::size_t events, bool songLongVamp, const Effort& effort) {
    auto stand = MakeStand(events, songLongVamp);
    auto plain = std::make_shared<PlainSearch>(MakeSongLog(events, songLongVamp));
    const std::vector<unsigned int> ticks = RandomTicks(events);
    // Both ask for the same ticks in the same order, and begin each with no loop registered, as at a seek.
    const Candidate walk{"plain walk", [plain, ticks, next = std::size_t{0}](std::size_t operations) mutable {
                             for (std::size_t i = 0; i < operations; ++i) {
                                 plain->loops.Clear();
                                 benchmark::DoNotOptimize(plain->FindOnSeek(ticks[next++ % Questions]));
                             }
                         }};
    const Candidate search{
        "search", [stand, ticks, next = std::size_t{0}](std::size_t operations) mutable {
            for (std::size_t i = 0; i < operations; ++i) {
                stand->Flow().GetLoopEvents_().Clear();
                benchmark::DoNotOptimize(stand->Flow().FindNextControlEventOnSeek(ticks[next++ % Questions], true));
            }
        }};
    const std::vector<Timing> timings = MeasureInterleaved({walk, search}, effort);
    return {timings[0].Median(), timings[1].Median(), MedianRatio(timings[1], timings[0])};
}

void AddSeekRowsFor(Table& table, const Effort& effort, bool songLongVamp) {
    std::vector<double> sizes;
    std::vector<double> times;
    const std::string what = songLongVamp ? "seek-time search, song-long vamp" : "seek-time search";
    for (const std::size_t events : effort.Sizes()) {
        const SearchTimes found = CompareSeekSearch(events, songLongVamp, effort);
        sizes.push_back(static_cast<double>(events));
        times.push_back(found.search);
        Row row{what,
                FormatCount(static_cast<double>(events)),
                "plain walk",
                FormatTime(found.walk),
                FormatTime(found.search),
                FormatRatio(found.ratio),
                "",
                "",
                {}};
        if (events == 10) {
            row.aim = "<= 1.5";
            row.met = found.ratio <= 1.5;
        } else if (events == 100000) {
            row.aim = "<= 1/200";
            row.met = found.ratio <= 1.0 / 200;
        }
        table.Add(row);
    }
    const double exponent = FitExponent(sizes, times);
    table.Add({what, "all", "", "", "", "", "exponent <= 0.4", fmt::format("N^{:.2f}", exponent), exponent <= 0.4});
}

void AddJumpRow(Table& table, const Effort& effort, std::size_t events) {
    CL::SongLog songLog = MakeSongLog(events, true);
    // A vamp over a few events in the middle, so that each pass registers them again.
    const unsigned int start = EventTick(events, events / 2) + TicksBetweenEvents / 2 + 10;
    const unsigned int end = start + TicksBetweenEvents / 4;
    songLog.GetVamps().Add({start, end});
    auto stand = std::make_shared<Stand>(std::move(songLog), MakeTimeline(events));
    const Candidate jump{"jump back", [stand](std::size_t) { stand->Flow().ProcessLoopEventsAtCurrentTickIndex(); },
                         [stand, start, end] {
                             BenchFlow& flow = stand->Flow();
                             if (flow.GetLoopEvents_().IsEmpty()) flow.FindNextControlEventOnAdvance(start, end);
                             flow.SetTickIndex(end);
                             flow.GetHowToPlay().Advance(end);
                             Stand::Feed().Seek(end);
                         },
                         1};
    Effort longer = effort;
    longer.secondsPerComparison *= 3;
    const Candidate lock = LockAndUnlock();
    const std::vector<Timing> cpu = MeasureInterleaved({lock, jump}, longer, Clock::ThreadCpu, 2000);
    const std::vector<Timing> wall = MeasureInterleaved({lock, jump}, longer, Clock::Wall, 2000);
    const double worst = cpu[1].Quantile(0.999);
    table.Add({"jump back at a loop's end, p99.9", FormatCount(static_cast<double>(events)), "lock+unlock",
               FormatTime(cpu[0].Median()), FormatTime(worst), "", "< 13 us (CPU)",
               fmt::format("p50 {}, wall p99.9 {}", FormatTime(wall[1].Median()), FormatTime(wall[1].Quantile(0.999))),
               worst < 13e3});
}

// Loops that all lie around one another, from the outermost in, as playback meets them; and the plain reading of the
// insertion beside it.
void AddNestedRow(Table& table, const Effort& effort) {
    constexpr unsigned int Depth = 500;
    static const std::vector<LoopEvent> loops = [] {
        std::vector<LoopEvent> made;
        for (unsigned int i = 0; i < Depth; ++i)
            made.emplace_back(CL::Repeat(i, 10000 - i, 2));
        return made;
    }();
    const auto insert = [](std::size_t operations, std::size_t depth) {
        for (std::size_t i = 0; i < operations; ++i) {
            LoopEventList list;
            for (std::size_t k = 0; k < depth; ++k)
                list.InsertLoopEvent(loops[k]);
            benchmark::DoNotOptimize(list.IsEmpty());
        }
    };
    const auto appendAndSort = [](std::size_t operations) {
        for (std::size_t i = 0; i < operations; ++i) {
            std::list<LoopEvent> list;
            for (const LoopEvent& loop : loops) {
                if (std::find(list.begin(), list.end(), loop) != list.end()) continue;
                list.push_back(loop);
                list.sort();
            }
            benchmark::DoNotOptimize(list.size());
        }
    };
    const std::vector<Timing> timings =
        MeasureInterleaved({{"sort", appendAndSort},
                            {"insert", [insert](std::size_t operations) { insert(operations, Depth); }},
                            {"half as many", [insert](std::size_t operations) { insert(operations, Depth / 2); }}},
                           effort);
    // Twice the depth costs four times as much where one insertion is linear.
    const double growth = MedianRatio(timings[1], timings[2]);
    const double ratio = MedianRatio(timings[1], timings[0]);
    table.Add({"500 loops nested, inserted one by one", "500", "append + sort each",
               FormatTime(timings[0].Median() / Depth), FormatTime(timings[1].Median() / Depth), FormatRatio(ratio),
               "linear, no full sort", fmt::format("x{:.1f} for 2x the depth", growth), growth <= 5 && ratio < 0.5});
}

}  // namespace

void AddAdvanceRows(Table& table, const Effort& effort) {
    const std::vector<std::size_t> sizes = effort.Sizes();
    std::vector<std::shared_ptr<Stand>> stands;
    for (const std::size_t events : sizes)
        stands.push_back(MakeStand(events));

    for (std::size_t i = 0; i < sizes.size(); ++i) {
        const std::vector<Timing> timings =
            MeasureInterleaved({LockAndUnlock(), MapLowerBound(sizes[i]), MapInsert(AdvancesPerPass),
                                EmptyAdvance(stands[i]), EventAdvance(stands[i], sizes[i]), EmptyAdvance(stands[0])},
                               effort);
        const Timing yardstick = LocksPerAdvance * timings[0] + timings[1] + timings[2];
        const double ratio = MedianRatio(timings[3], yardstick);
        const double growth = MedianRatio(timings[3], timings[5]);
        const bool isLargest = i + 1 == sizes.size();
        const std::string size = FormatCount(static_cast<double>(sizes[i]));
        table.Add({"advance, nothing at its tick", size,
                   fmt::format("{:.0f} locks + look-up + map insert", LocksPerAdvance), FormatTime(yardstick.Median()),
                   FormatTime(timings[3].Median()), FormatRatio(ratio), isLargest ? "<= 2, growth <= 1.3" : "<= 2",
                   fmt::format("x{:.2f} of N = 10", growth), ratio <= 2 && (!isLargest || growth <= 1.3)});
        const double eventRatio = MedianRatio(timings[4], timings[3]);
        table.Add({"advance on an event tick", size, "advance, nothing at its tick", FormatTime(timings[3].Median()),
                   FormatTime(timings[4].Median()), FormatRatio(eventRatio), "<= 3", "", eventRatio <= 3});
    }
}

void AddSeekRows(Table& table, const Effort& effort) {
    AddSeekRowsFor(table, effort, false);
    AddSeekRowsFor(table, effort, true);
}

void AddLoopRows(Table& table, const Effort& effort) {
    AddJumpRow(table, effort, 100000);
    AddNestedRow(table, effort);
}

void AddYardstickRows(Table& table, const Effort& effort) {
    const std::vector<Timing> timings =
        MeasureInterleaved({LockAndUnlock(), MapInsertAndErase(), MapLowerBound(10), MapLowerBound(100000),
                            BranchlessSearch(10), BranchlessSearch(100000)},
                           effort);
    const char* const names[] = {"recursive lock and unlock", "map insert and erase", "map lower_bound",
                                 "map lower_bound",           "branchless search",    "branchless search"};
    const char* const sizes[] = {"", "25", "10", "10^5", "10", "10^5"};
    for (std::size_t i = 0; i < timings.size(); ++i)
        table.Add({names[i], sizes[i], "", "", FormatTime(timings[i].Median()), "", "", "", {}});
    table.Add(
        {"pipe wake", "", "", "", FormatTime(MeasurePipeWakeNanoseconds(effort.brief ? 200 : 2000)), "", "", "", {}});
}

}  // namespace bench
