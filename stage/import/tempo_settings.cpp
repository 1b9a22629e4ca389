#include "stage/import/tempo_settings.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <stdexcept>
#include <utility>

#include "kit/words.h"
#include "tavo_core/bar_positions.h"
#include "tavo_midi/smf_reader.h"
#include "tavo_midi/song_builder.h"

namespace stage {

namespace {

using tavo_midi::SongTempo;

SongOfFile& FindSong(std::vector<SongOfFile>& pending, const std::string& number) {
    const auto song = std::find_if(pending.begin(), pending.end(), [&number](const SongOfFile& candidate) {
        return candidate.song.packed.options.number == number;
    });
    if (song == pending.end()) throw std::runtime_error(fmt::format("there is no song {} to set a tempo of", number));
    return *song;
}

/// The song's tempos as they are now, to be changed.
std::vector<SongTempo> ListTempos(const tavo_midi::SongData& song) {
    std::vector<SongTempo> tempos;
    for (const TL::Tempo& tempo : song.GetTimeline().GetTempos())
        tempos.push_back({tempo.abs_time(), tempo.microseconds_per_quarter(), song.IsGuessedTempo(tempo.abs_time())});
    return tempos;
}

void SetTempoAt(std::vector<SongTempo>& tempos, std::uint32_t tick, double quartersPerMinute) {
    const SongTempo tempo{tick, static_cast<std::uint32_t>(std::lround(60e6 / quartersPerMinute)), false};
    const auto place = std::lower_bound(tempos.begin(), tempos.end(), tick,
                                        [](const SongTempo& other, std::uint32_t at) { return other.tick < at; });
    if (place != tempos.end() && place->tick == tick)
        *place = tempo;
    else
        tempos.insert(place, tempo);
}

void SetPlayedTempo(SongOfFile& pending, const tavo_midi::SongData& song, const TempoSetting& setting) {
    std::vector<SongTempo>& tempos = pending.song.packed.options.tempos;
    if (setting.bar.empty()) {
        SetTempoAt(tempos, song.GetTimeline().GetStartTickIndex(), setting.quartersPerMinute);
        pending.song.tempoAccount = {};
        return;
    }
    bool isFound = false;
    const TL::BarPositions positions(song.GetTimeline());
    for (const auto& bar : positions.GetBars()) {
        if (bar.label != setting.bar && !bar.label.starts_with(setting.bar + " (")) continue;
        SetTempoAt(tempos, bar.startTick, setting.quartersPerMinute);
        isFound = true;
    }
    if (!isFound)
        throw std::runtime_error(
            fmt::format("song {} has no bar {} to set a tempo at", song.GetSongNumber(), kit::Quote(setting.bar)));
}

}  // namespace

void SetWrittenTempos(std::vector<SongOfFile>& pending, TempoSettings& settings) {
    for (auto& [number, tempos] : settings) {
        SongOfFile& song = FindSong(pending, number);
        if (!song.song.makeWithTempos) continue;
        ImportedSong changed = song.song.makeWithTempos(tempos);
        changed.packed.options.number = number;
        changed.makeWithTempos = std::move(song.song.makeWithTempos);
        song.song = std::move(changed);
    }
}

void SetPlayedTempos(std::vector<SongOfFile>& pending, const TempoSettings& settings) {
    for (const auto& [number, tempos] : settings) {
        if (tempos.empty()) continue;
        SongOfFile& song = FindSong(pending, number);
        const tavo_midi::ShowSong& packed = song.song.packed;
        const tavo_midi::SongData built =
            tavo_midi::BuildSong(tavo_midi::ReadSmf(packed.smf, song.file), packed.options, song.file);
        song.song.packed.options.tempos = ListTempos(built);
        for (const TempoSetting& setting : tempos)
            SetPlayedTempo(song, built, setting);
    }
}

}  // namespace stage
