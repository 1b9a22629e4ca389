#pragma once

#include <string>
#include <vector>

#include "tavo_core/song_log.h"
#include "tavo_core/timeline.h"

/// What the production's edits may be: the one place for these rules.
///   - An edit lies within the song, a marker and a caesura also at its very end; a range's end lies after its start. A
///     sound effect may end where it starts.
///   - Values lie in their ranges; a click divides the bar of the meter where it starts.
///   - An effect has one value at a place: cuts do not overlap, nor tempo scales, transpositions, clicks, fermatas.
///   - Loops (vamps and repeats) may lie side by side or inside one another, but do not cross.
///   - A cut and a fermata may lie side by side or one inside the other, but do not cross.
///   - Nothing is there twice: the same loop, two caesuras at one tick, the same marker, sound or message.
namespace CL {

/// Whether `edit`, one of the twelve kinds, may stand in `songLog`, whose song has `timeline`: an empty text, or one
/// sentence that says why not, with places in bars. An edit that is an element of `songLog` is not compared with
/// itself. Linear in the edits of the song.
template <class Edit>
[[nodiscard]] std::string CheckEdit(const Edit& edit, const SongLog& songLog, const TL::Timeline& timeline);

/// One sentence for each edit that breaks a rule, in the order of SongLog::ForEachSequence; empty where none does.
/// Costs n log n, so that a log of any size can be checked.
[[nodiscard]] std::vector<std::string> CheckSongLog(const SongLog& songLog, const TL::Timeline& timeline);

}  // namespace CL
