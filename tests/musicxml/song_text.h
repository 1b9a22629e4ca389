#pragma once

#include <map>
#include <string>

#include "stage/import/musicxml/score_song.h"
#include "tavo_core/bar_positions.h"
#include "tavo_midi/smf_reader.h"
#include "tavo_midi/song_builder.h"
#include "tests/musicxml/flow_text.h"

namespace test_support {

/// In the scores of MakeScore.
inline constexpr stage::musicxml::Units Quarter = 480;

/// A score of one piano with the bars of ParseFlow, 480 units a quarter note.
inline stage::musicxml::WrittenScore MakeScore(const std::string& flow) {
    stage::musicxml::WrittenScore score;
    score.title = "Test";
    score.parts = {{"P1", "Piano", {{}}}};
    score.bars = ParseFlow(flow);
    return score;
}

inline tavo_midi::SongData BuildSongOf(const stage::ImportedSong& song) {
    return tavo_midi::BuildSong(tavo_midi::ReadSmf(song.packed.smf, "test"), song.packed.options, "test");
}

/// "A=0 B=1920": the bars' labels and where they begin.
inline std::string PrintBars(const tavo_midi::SongData& song) {
    std::string text;
    const TL::BarPositions positions(song.GetTimeline());
    for (const auto& bar : positions.GetBars())
        text += (text.empty() ? "" : " ") + bar.label + "=" + std::to_string(bar.startTick);
    return text;
}

/// "4/4@0 3/4@1920".
inline std::string PrintMeters(const tavo_midi::SongData& song) {
    std::string text;
    for (const TL::Meter& meter : song.GetTimeline().GetMeters())
        text += (text.empty() ? "" : " ") + std::to_string(meter.numerator()) + "/" +
                std::to_string(meter.denominator()) + "@" + std::to_string(meter.abs_time());
    return text;
}

/// "60@0-480 62@480-960 ch2 60@0-480": keys and where they sound, in the order in which they end, by channel.
inline std::string PrintNotes(const tavo_midi::SongData& song) {
    std::map<int, std::string> ofChannel;
    std::map<std::pair<int, int>, std::uint32_t> begins;
    for (const tavo_midi::MidiEvent& event : song.GetEvents()) {
        const int channel = event.port * 16 + (event.status & 0x0F);
        if (event.status >> 4 == 9) begins[{channel, event.data1}] = event.tick;
        if (event.status >> 4 != 8) continue;
        std::string& text = ofChannel[channel];
        text += (text.empty() ? "" : " ") + std::to_string(event.data1) + "@" +
                std::to_string(begins[{channel, event.data1}]) + "-" + std::to_string(event.tick);
    }
    std::string all;
    for (const auto& [channel, text] : ofChannel)
        all += channel == 0 ? text : " ch" + std::to_string(channel + 1) + " " + text;
    return all;
}

}  // namespace test_support
