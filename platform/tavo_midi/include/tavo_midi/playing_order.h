#pragma once

#include <vector>

#include "tavo_midi/song_data.h"

namespace tavo_midi {

/// Brings events into the order in which a song keeps them: by tick, and at one tick note-offs, what is not a note,
/// note-ons; otherwise as they stand. Linear. Any thread.
[[nodiscard]] std::vector<MidiEvent> PutInPlayingOrder(std::vector<MidiEvent> events);

}  // namespace tavo_midi
