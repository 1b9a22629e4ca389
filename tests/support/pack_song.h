#pragma once

#include <algorithm>
#include <stdexcept>
#include <string>
#include <utility>

#include "tavo_midi/show_file.h"
#include "tavo_midi/smf_reader.h"
#include "tavo_midi/smf_writer.h"
#include "tavo_midi/song_data.h"

namespace test_support {

/// A song as it goes into a show file, so that reading it gives the same song again.
inline tavo_midi::ShowSong PackSong(const tavo_midi::SongData& song) {
    const TL::Timeline& timeline = song.GetTimeline();
    tavo_midi::Smf smf;
    smf.ticksPerQuarter = song.GetTicksPerQuarter();
    tavo_midi::SmfTrack track;
    for (const TL::Tempo& tempo : timeline.GetTempos())
        track.tempos.push_back(tempo);
    for (const TL::Meter& meter : timeline.GetMeters())
        track.meters.push_back(meter);
    for (const TL::Key& key : timeline.GetKeys())
        track.keys.push_back(key);
    for (tavo_midi::MidiEvent event : song.GetEvents()) {
        if (event.status == 0xF0) {
            const auto& message = song.GetSysex(event);
            // As SongData::SysexIndex reads it.
            const std::size_t index = smf.sysex.size();
            event.data1 = static_cast<std::uint8_t>(index & 0xFFU);
            event.data2 = static_cast<std::uint8_t>(index >> 8U & 0xFFU);
            event.port = static_cast<std::uint8_t>(index >> 16U & 0xFFU);
            smf.sysex.push_back(message);
        }
        smf.events.push_back(event);
    }
    track.eventCount = smf.events.size();
    track.endTick = timeline.GetEndTickIndex();
    smf.tracks.push_back(std::move(track));

    tavo_midi::ShowSong packed;
    packed.options.number = song.GetSongNumber();
    packed.options.title = song.GetTitle();
    packed.options.startTick = timeline.GetStartTickIndex();
    packed.options.endTick = timeline.GetEndTickIndex();
    std::size_t bar = 0;
    for (const TL::BarsBeats& beat : timeline.GetBarsBeats()) {
        if (beat.beat() == 1) packed.options.barLabels.push_back({bar++, beat.bar_number()});
    }
    for (const TL::PageNum& page : timeline.GetPageNums())
        packed.options.pages.push_back(page);
    packed.smfName = song.GetSongNumber() + ".mid";
    packed.smf = tavo_midi::WriteSmf(smf);
    return packed;
}

/// Throws std::logic_error where the two would be played or shown differently.
inline void RequireSame(const tavo_midi::SongData& made, const tavo_midi::SongData& read) {
    const auto require = [&](bool isSame, const char* what) {
        if (!isSame) throw std::logic_error("song " + made.GetSongNumber() + " is read with other " + what);
    };
    const TL::Timeline& a = made.GetTimeline();
    const TL::Timeline& b = read.GetTimeline();
    require(a.GetStartTickIndex() == b.GetStartTickIndex() && a.GetEndTickIndex() == b.GetEndTickIndex(), "ends");
    require(made.GetTicksPerQuarter() == read.GetTicksPerQuarter(), "resolution");
    require(made.GetEvents() == read.GetEvents(), "events");
    const auto sameLists = [](const auto& left, const auto& right, const auto& same) {
        return std::equal(left.begin(), left.end(), right.begin(), right.end(), same);
    };
    require(sameLists(a.GetBarsBeats(), b.GetBarsBeats(),
                      [](const TL::BarsBeats& x, const TL::BarsBeats& y) {
                          return x.abs_time() == y.abs_time() && x.beat() == y.beat() &&
                                 x.bar_number() == y.bar_number();
                      }),
            "beats");
    const auto sameTick = [](const auto& x, const auto& y) { return x.abs_time() == y.abs_time(); };
    require(sameLists(a.GetTempos(), b.GetTempos(), [](const TL::Tempo& x, const TL::Tempo& y) { return !(x != y); }),
            "tempos");
    require(sameLists(a.GetMeters(), b.GetMeters(), sameTick), "meters");
}

}  // namespace test_support
