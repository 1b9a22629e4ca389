#pragma once

#include <string>

#include "tavo_core/bar_positions.h"
#include "tavo_core/song_log.h"

/// The edits of a song as a table, a line each: kind, place and value. Empty where there are none.
[[nodiscard]] std::string MakeEditTable(const CL::SongLog& songLog, const TL::BarPositions& positions);
