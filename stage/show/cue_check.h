#pragma once

#include <string>
#include <vector>

#include "stage/show/settings.h"
#include "tavo_core/bar_positions.h"
#include "tavo_core/log_change.h"
#include "tavo_midi/show_data.h"

/// Cues that nobody would hear or see: sounds that are not in the show, OSC targets that its settings do not have.
namespace stage {

/// Why the cue would not be noticed, "the sound "door.wav" at 17 is not there"; empty for every other edit.
[[nodiscard]] std::string FindCueProblem(const CL::AnyEdit& edit, const TL::BarPositions& positions,
                                         const std::string& showDirectory, const Settings& settings);

/// The same for all cues of a song, in the order of their places.
[[nodiscard]] std::vector<std::string> FindCueProblems(const CL::SongLog& songLog, const TL::BarPositions& positions,
                                                       const std::string& showDirectory, const Settings& settings);

/// The same for the cues that a change brings in, "song 3: the sound "door.wav" at 17 is not there" each.
[[nodiscard]] std::vector<std::string> FindCueProblems(const CL::LogChange& change, const tavo_midi::ShowData& show,
                                                       const std::string& showDirectory, const Settings& settings);

}  // namespace stage
