#pragma once

#include "stage/import/musicxml/reading.h"

namespace stage::musicxml {

/// A bar that lasts longer is refused.
inline constexpr std::int64_t MaxBarQuarters = 10000;

/// Chooses score.unitsPerQuarter so that every whole number of every part's divisions is a whole number of units.
void ChooseUnits(Reading& reading);

/// Reads <divisions> for the part.
void ReadDivisions(Reading& reading, PartReading& part, const pugi::xml_node& node);

/// A duration of `element` ("note", "backup") in units, 0 or more; fails in one sentence if there is none, or divisions
/// are missing.
[[nodiscard]] Units ReadDuration(Reading& reading, PartReading& part, const pugi::xml_node& element);

/// The units of an <offset>, which may be negative.
[[nodiscard]] Units ReadOffset(Reading& reading, const PartReading& part, const pugi::xml_node& offset);

/// What the meter gives a bar; nothing for senza misura.
[[nodiscard]] Units GetMeterUnits(const WrittenMeter& meter, Units unitsPerQuarter);

}  // namespace stage::musicxml
