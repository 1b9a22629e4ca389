#pragma once

#include <pugixml.hpp>

#include "stage/import/musicxml/reading.h"

namespace stage::musicxml {

/// Reads a <direction> of the part at the cursor: words, tempo, rehearsal marks, jumps, dynamics, pedal. Words that
/// order a jump become its mark and do not stand among the words.
void ReadDirection(Reading& reading, PartReading& part, BarDraft& bar, Units cursor, const pugi::xml_node& direction);

/// A <sound> that stands alone in a measure.
void ReadSound(Reading& reading, PartReading& part, BarDraft& bar, Units cursor, const pugi::xml_node& sound);

}  // namespace stage::musicxml
