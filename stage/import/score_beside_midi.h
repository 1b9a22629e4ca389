#pragma once

#include <string>

#include "stage/import/song_file_reader.h"

namespace stage {

/// A song as a score file or a MIDI file gives it, with the file's path.
struct SongOfFile {
    std::string file;
    ImportedSong song;
};

/// Joins a song's MIDI file and its score: notes, tempos, meters and keys are the MIDI file's; title, bar labels,
/// pages, markers (if it has any), first edits and the end of the last bar are the score's. A pick-up that the MIDI
/// file does not mark is the score's, too. Throws std::runtime_error with one sentence that names both files and the
/// first bar where they disagree: its bar lines, its end, or most notes of the first or the last bars; and says so if
/// the score would fit with its bars in the other order. Other meters of bars that are as long are a note.
[[nodiscard]] ImportedSong JoinMidiAndScore(SongOfFile midi, SongOfFile score);

}  // namespace stage
