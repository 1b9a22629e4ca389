#pragma once

#include <pugixml.hpp>

#include "stage/import/musicxml/reading.h"

namespace stage::musicxml {

/// Reads <attributes> of the part at the cursor: divisions, transposition, meter, key. The part's meter is
/// kept for SettleMeter. The first part's first staff states the score's key; where another one differs, a warning says
/// so.
void ReadAttributes(Reading& reading, PartReading& part, BarDraft& bar, Units cursor, const pugi::xml_node& attributes);

}  // namespace stage::musicxml
