#pragma once

#include <cstddef>
#include <vector>

#include "tavo_midi/song_data.h"

namespace tavo_midi {

/// Brings events into the order in which a song keeps them: by tick, and at one tick note-offs, what is not a note,
/// note-ons; otherwise as they stand. `runs` are the indices where a run of ascending ticks begins, the first being 0.
[[nodiscard]] std::vector<MidiEvent> PutInPlayingOrder(std::vector<MidiEvent> events, std::vector<std::size_t> runs);

}  // namespace tavo_midi
