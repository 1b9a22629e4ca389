#pragma once

#include <vector>

#include "stage/import/musicxml/song_layout.h"
#include "tavo_midi/smf_reader.h"

namespace stage::musicxml {

/// The music of a played score as MIDI events, one list for each part in ascending order of tick; at one tick note-offs
/// come first, then what is not a note, then note-ons.
///   - Each instrument has a channel: the one that the score asks for where it is free, drums channel 10; past
///     fifteen instruments the next port goes on. Program, volume and pan are set at the beginning.
///   - Ties are joined in playing order. A tie into a bar that does not follow ends with its bar.
///   - `liftsAtBreaths`: a note before a breath mark ends a sixteenth early, a short one by a third of its length.
///   - Grace notes before the beat sound before it; those on the beat take half of the note that they belong to, of a
///     dotted one two thirds.
///   - A key that is struck while it sounds on its channel is ended there and sounds as long as the longer note.
struct PlayedNotes {
    std::vector<std::vector<tavo_midi::MidiEvent>> eventsOfPart;
    std::vector<std::string> notes;
};

/// Throws std::runtime_error with one sentence if there are more notes than a show may hold.
[[nodiscard]] PlayedNotes PlayNotes(const WrittenScore& score, const PlayedOrder& order, const SongGrid& grid,
                                    bool liftsAtBreaths);

}  // namespace stage::musicxml
