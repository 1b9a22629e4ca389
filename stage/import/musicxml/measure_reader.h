#pragma once

#include <pugixml.hpp>

#include "stage/import/musicxml/reading.h"

namespace stage::musicxml {

/// Reads what one part has in a bar; the parts of a bar are read in the score's order. No node: the part lacks the bar.
void ReadMeasure(Reading& reading, PartReading& part, BarDraft& bar, const pugi::xml_node& measure);

/// Starts a bar with what the bar before left for it.
[[nodiscard]] BarDraft BeginBar(Reading& reading, std::uint32_t index);

/// Gives the bar its meter, its length and its marks in order, and adds it to the score.
void FinishBar(Reading& reading, BarDraft bar);

}  // namespace stage::musicxml
