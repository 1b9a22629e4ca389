#pragma once

#include <pugixml.hpp>

#include "stage/import/musicxml/reading.h"

namespace stage::musicxml {

/// Finds the bars that a part counts in a longer meter than others, 12/8 against 4/4, and that last as long as the
/// others'. Scores give such a part's rests as they sound, but some give its notes as they look, so that its bars seem
/// too long. Where bars of the part fit, those that do not are marked: PartReading::fittedBars.
void FindFittedBars(Reading& reading);

/// A note's length in such a bar: made to fit where the score gives it as it looks.
[[nodiscard]] Units FitLength(const Reading& reading, const BarFit& fit, Units length, const pugi::xml_node& note);

/// Chooses the score's meter for a bar that all parts have been read of: where the parts' meters differ, that of the
/// first part whose meter is as long as the bar really is, or the first part's. A part whose own differs is reported
/// once.
void SettleMeter(Reading& reading, BarDraft& bar);

}  // namespace stage::musicxml
