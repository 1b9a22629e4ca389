#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "stage/import/musicxml/score_file.h"
#include "stage/import/musicxml/score_song.h"
#include "stage/import/musicxml/song_layout.h"
#include "stage/import/musicxml/tempo_guess.h"
#include "tavo_midi/smf_reader.h"
#include "tavo_midi/song_builder.h"
#include "tests/support/run_program.h"
#include "tests/support/show_table.h"

namespace test_support {

/// A song of a song cycle three times: as the score writes it, as the import plays it, and as the MIDI file beside it.
struct CorpusSong {
    ShowTableRow row;
    stage::musicxml::WrittenScore score;
    stage::ImportedSong imported;
    tavo_midi::SongData played;
    /// Its last bar ends with the score's: some files ring on.
    tavo_midi::SongData midi;
};

inline CorpusSong ReadCorpusSong(const ShowTableRow& row) {
    namespace mx = stage::musicxml;
    CorpusSong song;
    song.row = row;
    std::filesystem::path file = row.midi;
    file.replace_extension(".mxl");
    song.score = mx::ReadScore(ReadAll(file), file);
    static_cast<void>(mx::CompleteTempos(song.score, {}));
    song.imported = MakeScoreSong(song.score, mx::BarOrder::AsPlayed);
    song.played =
        tavo_midi::BuildSong(tavo_midi::ReadSmf(song.imported.packed.smf, file), song.imported.packed.options, file);
    tavo_midi::SongOptions options;
    options.endTick = song.imported.packed.options.endTick;
    song.midi = tavo_midi::BuildSong(tavo_midi::ReadSmf(ReadAll(row.midi), row.midi), options, row.midi);
    return song;
}

inline const std::vector<std::string>& SongCycles() {
    static const std::vector<std::string> cycles{"show_holmes_melodies", "show_schubert_muellerin"};
    return cycles;
}

}  // namespace test_support
