#pragma once

#include <map>
#include <string>
#include <vector>

#include "stage/import/score_beside_midi.h"

namespace stage {

/// By song number.
using TempoSettings = std::map<std::string, std::vector<TempoSetting>>;

/// Sets the tempos of scores at their written bars, each time when these are played, and takes them out of `settings`.
/// The songs are numbered. Throws std::runtime_error with one sentence for a song that is not there.
void SetWrittenTempos(std::vector<SongOfFile>& pending, TempoSettings& settings);

/// Sets the others in the song as it is played: at "12" and "12 (2)" if "12" is meant. Throws std::runtime_error with
/// one sentence for a bar that is not there.
void SetPlayedTempos(std::vector<SongOfFile>& pending, const TempoSettings& settings);

}  // namespace stage
