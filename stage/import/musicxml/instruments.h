#pragma once

#include <pugixml.hpp>

#include "stage/import/musicxml/reading.h"

namespace stage::musicxml {

/// The instruments of a <score-part>, which may be missing: at least one for every part.
void ReadInstruments(Reading& reading, PartReading& part, WrittenPart& written, const pugi::xml_node& scorePart);

}  // namespace stage::musicxml
