#pragma once

#include <memory>
#include <string>
#include <utility>

#include "tavo_core/active_change_log.h"
#include "tavo_core/change_log.h"
#include "tavo_midi/show_data.h"

namespace test_support {

inline constexpr unsigned int TicksPerQuarter = 480;
inline constexpr unsigned int TicksPerBar = 4 * TicksPerQuarter;

/// A song in 4/4 and C major at 120, with bars labelled "1", "2", ... from tick 0, and its first page numbered 1.
inline tavo_midi::SongData MakeSong(const std::string& number, unsigned int bars, const std::string& title = "") {
    TL::Timeline timeline(0, bars * TicksPerBar);
    timeline.SetSongTitle(title);
    timeline.GetMeters().Append(TL::Meter(0, 4, 4));
    timeline.GetKeys().Append(TL::Key(0, 0, false));
    timeline.GetTempos().Append(TL::Tempo(0, 500000));
    timeline.GetPageNums().Append(TL::PageNum(0, 1));
    for (unsigned int bar = 0; bar < bars; ++bar) {
        for (unsigned int beat = 0; beat < 4; ++beat) {
            timeline.GetBarsBeats().Append(
                TL::BarsBeats(bar * TicksPerBar + beat * TicksPerQuarter, beat + 1, std::to_string(bar + 1)));
        }
    }
    return {number, std::move(timeline), TicksPerQuarter};
}

/// A change log without edits for every song of the show.
inline std::shared_ptr<CL::ChangeLog> MakeChangeLog(const tavo_midi::ShowData& showData) {
    auto changeLog = std::make_shared<CL::ChangeLog>();
    for (const tavo_midi::SongData& song : showData.GetSongs())
        changeLog->GetSongLogs()[song.GetSongNumber()];
    return changeLog;
}

/// Makes a change log the active one for a scope.
class ScopedActiveChangeLog {
public:
    explicit ScopedActiveChangeLog(std::shared_ptr<CL::ChangeLog> changeLog) {
        SetActiveChangeLog(std::move(changeLog));
    }
    ~ScopedActiveChangeLog() { SetActiveChangeLog(nullptr); }
    ScopedActiveChangeLog(const ScopedActiveChangeLog&) = delete;
    ScopedActiveChangeLog& operator=(const ScopedActiveChangeLog&) = delete;
};

}  // namespace test_support
