#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// The scores that a show's songs were imported from, as they were: MusicXML, plain (`.musicxml`) or packed (`.mxl`), a
/// file for each song in the folder `scores` of the show directory. A show plays without them; the page engraves them.
namespace stage {

inline constexpr const char* SourceScoreFolder = "scores";

/// The bare name of a song's score: its number, in which what is neither letter nor figure is written as %20 is, and
/// the extension of `fileName`; what is neither `.mxl` nor `.musicxml` becomes `.musicxml`.
[[nodiscard]] std::string MakeSourceScoreName(const std::string& songNumber, const std::string& fileName);

/// Writes the score of a song into the show directory, and beside it of each of the song's bars the place of its
/// measure in the score. Returns the paths of what it made, the folder's last where that is new. Durable. Throws
/// std::runtime_error with one sentence, also where a file of that name is there; what was made is left to the caller.
std::vector<std::string> KeepSourceScore(const std::string& showPath, const std::string& songNumber,
                                         const std::string& scoreFile, const std::vector<std::uint32_t>& measures);

/// The places of the bars' measures, from 0; empty where they are not known. Throws as ReadSourceScore does.
[[nodiscard]] std::vector<std::uint32_t> ReadScoreMeasures(const std::string& showPath, const std::string& songNumber);

/// The path of the song's score; empty where there is none. Asks the disk.
[[nodiscard]] std::string FindSourceScore(const std::string& showPath, const std::string& songNumber);

/// Its MusicXML, unpacked; std::runtime_error with one sentence where there is none or it cannot be read. Blocks on the
/// disk.
[[nodiscard]] std::string ReadSourceScore(const std::string& showPath, const std::string& songNumber);

}  // namespace stage
