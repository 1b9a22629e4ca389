#include "stage/show/song_length.h"

#include <fmt/format.h>

#include <cmath>

#include "tavo_midi/tempo_map.h"

namespace stage {

double GetWrittenSeconds(const tavo_midi::SongData& song) {
    const TL::Timeline& timeline = song.GetTimeline();
    const tavo_midi::TempoMap tempos(timeline.GetTempos(), song.GetTicksPerQuarter());
    return tempos.GetSeconds(song.GetMusicEndTickIndex()) - tempos.GetSeconds(timeline.GetStartTickIndex());
}

std::string DescribeLength(double seconds) {
    const auto whole = std::llround(seconds);
    if (whole < 3600) return fmt::format("{}:{:02}", whole / 60, whole % 60);
    return fmt::format("{}:{:02}:{:02}", whole / 3600, whole / 60 % 60, whole % 60);
}

}  // namespace stage
