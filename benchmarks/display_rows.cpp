// What the display costs: statuses filed and sent, and the feed's pass.

#include <fmt/format.h>

#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>

#include "benchmarks/rows.h"
#include "benchmarks/stand.h"
#include "benchmarks/yardsticks.h"
#include "player_core/future_status_flow_control_updates.h"
#include "tavo_core/gui_dispatcher.h"

namespace bench {

namespace {

constexpr std::size_t StatusesPerPass = 25;
constexpr unsigned int StaleStatuses = 100000;
const std::string StatusWord = "Vamp";

struct Queue {
    gui::FutureStatusFlowControlUpdates statuses;
    unsigned int tick = StaleStatuses + 1;
};

Candidate FileStatuses() {
    auto queue = std::make_shared<Queue>();
    return {"file",
            [queue](std::size_t operations) {
                for (std::size_t i = 0; i < operations; ++i)
                    queue->statuses.AddFutureStatusFlowControl(StatusWord, 1, ++queue->tick);
            },
            [queue] { queue->statuses.ClearFutureUpdates(); }, StatusesPerPass};
}

/// Sends one status a call; `stale` ones that were filed too late lie before them and stay.
Candidate SendStatuses(unsigned int stale) {
    auto queue = std::make_shared<Queue>();
    queue->statuses.SendUntil(StaleStatuses);
    for (unsigned int tick = 1; tick <= stale; ++tick)
        queue->statuses.AddFutureStatusFlowControl(StatusWord, 1, tick);
    return {"send",
            [queue](std::size_t operations) {
                for (std::size_t i = 0; i < operations; ++i)
                    queue->statuses.SendUntil(++queue->tick);
            },
            [queue] {
                for (unsigned int i = 1; i <= StatusesPerPass; ++i)
                    queue->statuses.AddFutureStatusFlowControl(StatusWord, 1, queue->tick + i);
            },
            StatusesPerPass};
}

/// A thread that sleeps on a condition until it is told: what any pass pays that hands something to a sleeping thread.
class Sleeper {
public:
    Sleeper() : thread_([this] { Run(); }) {}
    ~Sleeper() {
        {
            const std::lock_guard lock(mutex_);
            stopping_ = true;
        }
        condition_.notify_one();
        thread_.join();
    }
    Sleeper(const Sleeper&) = delete;
    Sleeper& operator=(const Sleeper&) = delete;

    void Wake() {
        {
            const std::lock_guard lock(mutex_);
            woken_ = true;
        }
        condition_.notify_one();
    }
    void WaitUntilAsleep() {
        std::unique_lock lock(mutex_);
        fellAsleep_.wait(lock, [this] { return asleep_; });
    }

private:
    void Run() {
        std::unique_lock lock(mutex_);
        while (!stopping_) {
            asleep_ = true;
            fellAsleep_.notify_all();
            condition_.wait(lock, [this] { return woken_ || stopping_; });
            asleep_ = false;
            woken_ = false;
        }
    }

    std::mutex mutex_;
    std::condition_variable condition_;
    std::condition_variable fellAsleep_;
    bool woken_ = false;
    bool asleep_ = false;
    bool stopping_ = false;
    std::thread thread_;
};

constexpr unsigned int BarTicks = 1920;
constexpr unsigned int Bars = 2000;

/// A song that shows something new of every kind in every bar.
std::shared_ptr<Stand> MakeRestlessStand() {
    TL::Timeline timeline(0, Bars * BarTicks);
    CL::SongLog songLog;
    for (unsigned int bar = 0; bar < Bars; ++bar) {
        const unsigned int tick = bar * BarTicks;
        const bool isOdd = bar % 2 == 1;
        timeline.GetBarsBeats().Append({tick, 1, std::to_string(bar + 1)});
        timeline.GetMeters().Append({tick, static_cast<std::uint8_t>(isOdd ? 3 : 4), 4});
        timeline.GetTempos().Append({tick, 400000 + bar});
        timeline.GetKeys().Append({tick, isOdd ? 2 : -3, isOdd});
        timeline.GetPageNums().Append({tick, bar + 1});
        songLog.GetTranspositions().Add({tick, tick + BarTicks, isOdd ? 2 : -1});
        songLog.GetTempoScales().Add({tick, tick + BarTicks, isOdd ? 0.9F : 1.1F});
        songLog.GetClicks().Add({tick, tick + BarTicks, isOdd ? 4 : 8});
        songLog.GetMarkers().Add({tick, "Marker " + std::to_string(bar)});
    }
    return std::make_shared<Stand>(std::move(songLog), std::move(timeline));
}

// As it does when 33 ms lie between two passes. It says when all is delivered, and goes to sleep a little later. This
// thread stays awake meanwhile: what is measured is the pass, not a cold cache.
void WaitUntilDispatcherSleeps() {
    constexpr double FallingAsleepNanoseconds = 20e3;
    notify::guiDispatcher.Drain();
    const double start = ReadNanoseconds(Clock::Wall);
    while (ReadNanoseconds(Clock::Wall) < start + FallingAsleepNanoseconds) {
    }
}

/// One pass after the playhead has moved on by `ticks`.
Candidate FeedPass(std::string name, unsigned int ticks, const std::shared_ptr<unsigned int>& playhead) {
    return {std::move(name), [](std::size_t) { Stand::Feed().RunOnePass_(); },
            [ticks, playhead] {
                *playhead = (*playhead + ticks) % (Bars * BarTicks);
                Stand::Feed().MovePlayhead(*playhead);
                WaitUntilDispatcherSleeps();
            },
            1};
}

void AddFeedRowsWith(Table& table, const Effort& effort, std::size_t receivers) {
    std::vector<notify::GuiDispatcher::HandlerId> handlers;
    for (std::size_t i = 0; i < receivers; ++i)
        handlers.push_back(notify::guiDispatcher.AddHandler([](const notify::GuiNotification&) {}));
    auto playhead = std::make_shared<unsigned int>(0);
    Sleeper sleeper;
    const Candidate wake{"wake", [&sleeper](std::size_t) { sleeper.Wake(); },
                         [&sleeper] {
                             sleeper.WaitUntilAsleep();
                             WaitUntilDispatcherSleeps();
                         },
                         1};
    // A pass over a whole bar finds everything changed, the one after it nothing but the playhead.
    const std::vector<Timing> timings = MeasureInterleaved(
        {wake, FeedPass("everything", BarTicks, playhead), FeedPass("nothing", 0, playhead)}, effort, Clock::Wall, 500);
    for (const auto handler : handlers)
        notify::guiDispatcher.RemoveHandler(handler);
    const std::string size = fmt::format("{} recv", receivers);
    table.Add({"feed pass, nothing changed",
               size,
               "waking a sleeping thread",
               FormatTime(timings[0].Median()),
               FormatTime(timings[2].Median()),
               FormatRatio(MedianRatio(timings[2], timings[0])),
               "",
               "",
               {}});
    Row everything{"feed pass, everything changed",
                   size,
                   "waking a sleeping thread",
                   FormatTime(timings[0].Median()),
                   FormatTime(timings[1].Median()),
                   FormatRatio(MedianRatio(timings[1], timings[0])),
                   "",
                   "",
                   {}};
    if (receivers == 16) {
        everything.aim = "<= 3 us";
        everything.met = timings[1].Median() <= 3e3;
    }
    table.Add(everything);
}

}  // namespace

void AddStatusRows(Table& table, const Effort& effort) {
    const std::vector<Timing> timings = MeasureInterleaved(
        {MapInsert(StatusesPerPass), FileStatuses(), SendStatuses(0), SendStatuses(StaleStatuses)}, effort);
    const double filing = MedianRatio(timings[1], timings[0]);
    table.Add({"filing a status", "25", "map insert", FormatTime(timings[0].Median()), FormatTime(timings[1].Median()),
               FormatRatio(filing), "<= 2", "", filing <= 2});
    const double sending = MedianRatio(timings[3], timings[2]);
    table.Add({"sending with stale ones filed", "10^5", "sending with none", FormatTime(timings[2].Median()),
               FormatTime(timings[3].Median()), FormatRatio(sending), "<= 5", "", sending <= 5});
}

void AddFeedRows(Table& table, const Effort& effort) {
    const auto stand = MakeRestlessStand();
    AddFeedRowsWith(table, effort, 0);
    AddFeedRowsWith(table, effort, 16);
}

}  // namespace bench
