#pragma once

#include <string>
#include <vector>

#include "stage/show/settings.h"
#include "tavo_core/song_log.h"
#include "tavo_midi/show_data.h"

namespace stage {

/// A line each that names the file and the place.
struct ShowProblems {
    /// What is wrong with the show as it would be played now.
    std::vector<std::string> problems;
    /// What is wrong with the versions that are not in use.
    std::vector<std::string> otherVersions;
};

/// Reads everything in a show directory: names, show data, every version of the change log against the timelines and
/// the rules for edits, edits that cannot work or work against each other, the sounds and OSC targets that edits name,
/// the settings, those of MIDI as well, and the files that they name. Throws std::runtime_error only where the
/// directory itself cannot be read.
[[nodiscard]] ShowProblems CheckShow(const std::string& path);

/// Its part about the edits of one song, which is one of `show`'s: "the caesura at 5 is never met: ...", a sentence
/// without a full stop each. `showPath` is the show directory, whose sounds are looked for; without `settings` nothing
/// is said about OSC targets.
[[nodiscard]] std::vector<std::string> FindSongProblems(const tavo_midi::ShowData& show,
                                                        const tavo_midi::SongData& song, const CL::SongLog& songLog,
                                                        const std::string& showPath, const Settings* settings);

}  // namespace stage
