#pragma once

#include <functional>
#include <string>
#include <vector>

#include "stage/import/score_beside_midi.h"

namespace stage {

/// Told what is done next: how many files are read, how many there are, what comes.
using ReportImport = std::function<void(std::size_t done, std::size_t total, const std::string& next)>;

/// The songs of score files and of folders whose score files are meant, in the order in which people number them. A
/// MIDI file and a score of the same song (the same number in their names, or without one the same name) are one song.
/// `options` are MakeMusicXmlReader's; where no file is such a score, a note says that they have no effect. Throws
/// std::runtime_error with one sentence that names the file.
[[nodiscard]] std::vector<SongOfFile> ReadSongFiles(const std::vector<std::string>& paths, const ScoreOptions& options,
                                                    const ReportImport& report);

}  // namespace stage
