#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tavo_midi/song_data.h"

/// Seconds as written from the song's first tick to the end of its last note.
[[nodiscard]] double GetWrittenSeconds(const tavo_midi::SongData& song);

/// "2:04", "1:02:05": rounded to the second.
[[nodiscard]] std::string DescribeLength(double seconds);

/// The table of an import and of an overview: a line for each song with its number, title, bars, beats, tempos, meters,
/// keys and length, and a line with the sums.
[[nodiscard]] std::string MakeSongTable(const std::vector<std::reference_wrapper<const tavo_midi::SongData>>& songs);
