#pragma once

#include <string>

#include "tavo_core/bar_positions.h"
#include "tavo_core/show_timelines.h"

namespace CL {

/// The places of a song; those of a song that the show does not have are ticks.
[[nodiscard]] TL::BarPositions PositionsOf(const std::string& songNumber, const TL::ShowTimelines& timelines);

}  // namespace CL
