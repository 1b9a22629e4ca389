#pragma once

#include <pugixml.hpp>

#include "stage/import/musicxml/reading.h"

namespace stage::musicxml {

/// Most parts, and most measures of a part, that are read.
inline constexpr std::size_t MaxParts = 1000;
inline constexpr std::size_t MaxBars = 100'000;

/// Finds the parts of a score, partwise or timewise, with their instruments and their measures, in the score's order.
/// Fails in one sentence where there is no score, no part or no measure. Returns the number of measures.
[[nodiscard]] std::size_t ReadParts(Reading& reading, const pugi::xml_node& document);

}  // namespace stage::musicxml
