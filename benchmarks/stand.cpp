#include "benchmarks/stand.h"

#include <algorithm>
#include <utility>

#include "tavo_core/active_change_log.h"

namespace bench {

namespace {

const std::string SongNumber = "1";

}  // namespace

BenchFeed& Stand::Feed() {
    // The feed is never destroyed, so neither is the player that it refers to.
    static BenchFeed& feed = []() -> BenchFeed& {
        auto* const player = new BenchPlayer;
        SetGuiUpdate(std::make_unique<BenchFeed>(*player));
        return static_cast<BenchFeed&>(GetGuiUpdate());
    }();
    return feed;
}

Stand::Stand(CL::SongLog songLog, TL::Timeline timeline, unsigned int ticksPerQuarter)
    : changeLog_(std::make_shared<CL::ChangeLog>()), player_(std::make_unique<BenchPlayer>()) {
    static_cast<void>(Feed());
    showData_.AddSong(
        tavo_midi::SongData(SongNumber, std::move(timeline), static_cast<std::uint16_t>(ticksPerQuarter)));
    changeLog_->GetSongLogs()[SongNumber] = std::move(songLog);
    flow_ = std::make_unique<BenchFlow>(*player_, showData_);
    player_->SetFlow(flow_.get());
    player_->SetActiveSongNumber(SongNumber);
    ActivateChangeLog();
    flow_->LoadSong();
}

void Stand::ActivateChangeLog() {
    SetActiveChangeLog(changeLog_);
}

unsigned int EventTick(std::size_t events, std::size_t i) {
    const auto before = static_cast<unsigned int>(events / 2) * TicksBetweenEvents;
    return MiddleTick - before + static_cast<unsigned int>(i) * TicksBetweenEvents;
}

CL::SongLog MakeSongLog(std::size_t events, bool songLongVamp) {
    CL::SongLog songLog;
    if (songLongVamp) songLog.GetVamps().Add({EventTick(events, 0) - 1, EventTick(events, events) + 1});
    for (std::size_t i = 0; i < events; ++i) {
        const unsigned int start = EventTick(events, i);
        const unsigned int end = start + TicksBetweenEvents / 2;
        switch (i % 8) {
            case 3:
                songLog.GetVamps().Add({start, end});
                break;
            case 5:
                songLog.GetFermatas().Add({start, end});
                break;
            case 6:
                songLog.GetCuts().Add({start, start + TicksBetweenEvents / 8});
                break;
            case 7:
                songLog.GetRepeats().Add({start, start + 5 * TicksBetweenEvents, 3});
                break;
            default:
                songLog.GetRepeats().Add({start, end, 2});
                break;
        }
    }
    return songLog;
}

TL::Timeline MakeTimeline(std::size_t events) {
    return MakeTimeline(events, std::clamp<std::size_t>(events, 100, 100000));
}

TL::Timeline MakeTimeline(std::size_t events, std::size_t beats) {
    const unsigned int start = EventTick(events, 0) - TicksBetweenEvents;
    const unsigned int end = EventTick(events, events) + TicksBetweenEvents;
    TL::Timeline timeline(start, end);
    timeline.SetSongTitle("Benchmark");
    timeline.GetMeters().Append({start, 4, 4});
    timeline.GetTempos().Append({start, 500000});
    const double ticksPerBeat = static_cast<double>(end - start) / static_cast<double>(beats);
    for (std::size_t i = 0; i < beats; ++i) {
        const auto tick = start + static_cast<unsigned int>(static_cast<double>(i) * ticksPerBeat);
        timeline.GetBarsBeats().Append({tick, static_cast<unsigned int>(i % 4 + 1), std::to_string(i / 4 + 1)});
    }
    return timeline;
}

}  // namespace bench
