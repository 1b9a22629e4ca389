#pragma once

#include <string>
#include <vector>

#include "tavo_core/song_log.h"
#include "tavo_midi/show_data.h"

namespace stage {

/// Edits that the rules allow and that still cannot work as they stand, or work against each other: a sentence each,
/// with places in bars. Costs n log n.
///   - A caesura is met where its countdown begins, up to four beats before it: never in the song's first beat, never
///     where a cut leaves that place out. One at a cut's start stops before the jump.
///   - A vamp around a caesura stops there in every pass.
///   - A cut over a loop's start leaves the loop out; one over its end, and on, ends it in its first pass.
///   - A vamp of at most one pass never goes back.
///   - Of two markers on one tick the display shows both, and seeking stops there once.
[[nodiscard]] std::vector<std::string> FindConflicts(const CL::SongLog& songLog, const tavo_midi::SongData& song);

}  // namespace stage
