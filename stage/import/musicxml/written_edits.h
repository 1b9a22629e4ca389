#pragma once

#include <string>
#include <vector>

#include "stage/import/musicxml/song_layout.h"
#include "tavo_core/song_log.h"

namespace stage::musicxml {

/// The first edits of a song that stays as it is written, and what its score says that edits cannot.
struct WrittenEdits {
    CL::SongLog log;
    std::vector<std::string> notes;
};

/// Every edit passes CL::CheckEdit; one that does not is a note.
///   - A repeat without endings is a Repeat with its passes in all; with the word "vamp" over it a Vamp.
///   written_order.h
///     says which bars it repeats.
///   - A fermata is a Fermata over its note, over a bar line one over the beat before; at the end of a loop it ends a
///     tick earlier. A caesura is a Caesura, and so is a breath mark if `breathsStop`; "attacca" in the last two
///     bars makes the next song follow.
///   - Endings and jumps are notes: a loop plays all its bars in every pass, and a cut leaves them out in every pass.
/// `grid` and `timeline` are those of the song as written.
[[nodiscard]] WrittenEdits FindWrittenEdits(const WrittenScore& score, const SongGrid& grid,
                                            const TL::Timeline& timeline, bool breathsStop);

}  // namespace stage::musicxml
