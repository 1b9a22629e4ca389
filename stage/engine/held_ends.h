#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "tavo_core/change_log_events.h"
#include "tavo_core/sequence.h"
#include "tavo_midi/song_data.h"

namespace stage {

/// An event that ends sound and waits for the release of a fermata. A plain value.
struct HeldEnd {
    std::size_t index = 0;    ///< among the song's events
    std::uint32_t tick = 0;   ///< where it stands there
    std::uint32_t until = 0;  ///< the fermata's end, later than `tick`

    bool operator==(const HeldEnd&) const = default;
};

/// The ends of notes and pedals that belong to the music under a fermata, although they stand a little before its end:
/// files let a note sound for most of its written length, and a held fermata would hold silence. `events` are a song's,
/// ascending by tick; fermatas do not overlap. The answer is ascending by index.
///
/// Held is what was to sound up to the fermata's end: a note that sounds for at least nine tenths of the way from its
/// beginning to there, unless a note of its channel follows it directly before, or its own key is struck again. So
/// notes of earlier beats and the last note but one of a moving voice end as written, and a voice that rests under the
/// fermata rests. What sounds beyond the fermata needs no help. Where all this leaves nothing to sound, the notes that
/// were struck last under the fermata are held, however short; where none was, a rest is held. Pedals, and messages
/// that end all notes of a channel, are held where they come in the last tenth under the fermata.
[[nodiscard]] std::vector<HeldEnd> FindHeldEnds(const std::vector<tavo_midi::MidiEvent>& events,
                                                const CL::ChangeLogSequence<CL::Fermata>& fermatas);

/// The events with the held ones put first at the end of their fermata, in their order.
[[nodiscard]] std::vector<tavo_midi::MidiEvent> MoveHeldEnds(const std::vector<tavo_midi::MidiEvent>& events,
                                                             const std::vector<HeldEnd>& heldEnds);

}  // namespace stage
