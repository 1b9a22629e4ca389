#pragma once

#include <string>

#include "tavo_midi/song_data.h"

namespace stage {

/// Seconds as written from the song's first tick to the end of its last note.
[[nodiscard]] double GetWrittenSeconds(const tavo_midi::SongData& song);

/// "2:04", "1:02:05": rounded to the second.
[[nodiscard]] std::string DescribeLength(double seconds);

}  // namespace stage
