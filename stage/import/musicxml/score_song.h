#pragma once

#include "stage/import/musicxml/played_order.h"
#include "stage/import/musicxml/written_score.h"
#include "stage/import/song_file_reader.h"

namespace stage::musicxml {

/// How the bars of a written score become those of a song.
enum class BarOrder {
    AsPlayed,   ///< repeats, endings and jumps are played out
    AsWritten,  ///< every bar once; repeats, holds and stops are edits, as far as edits can say them
};

/// Makes a song from a written score: a Standard MIDI File of format 1 with a track of tempos, meters, keys and markers
/// and one for each part, bar labels, pages, the exact end, and in AsWritten the first edits. Throws std::runtime_error
/// with one sentence, which does not name the file, for music that no song can hold.
[[nodiscard]] ImportedSong MakeScoreSong(const WrittenScore& score, BarOrder barOrder, Breaths breaths = Breaths::Lift);

/// The order that BarOrder means.
[[nodiscard]] PlayedOrder OrderBars(const WrittenScore& score, BarOrder barOrder);

}  // namespace stage::musicxml
