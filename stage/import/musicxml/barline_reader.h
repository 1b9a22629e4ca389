#pragma once

#include <pugixml.hpp>

#include "stage/import/musicxml/reading.h"

namespace stage::musicxml {

/// Reads a <barline> at the cursor: repeats, endings, fermata, segno, coda. What the first part says counts; others add
/// what it leaves out. What belongs to the bar before or after goes there.
void ReadBarline(Reading& reading, BarDraft& bar, Units cursor, const pugi::xml_node& barline);

}  // namespace stage::musicxml
