#pragma once

#include <optional>
#include <pugixml.hpp>
#include <vector>

#include "stage/import/musicxml/reading.h"

namespace stage::musicxml {

inline constexpr int PlainVelocity = 80;

/// What a <dynamics> element says at a place: a level that holds from there on, a sudden mark for the notes that begin
/// there, or, as fp, both. `sounding` is a velocity that the score gives beside it. False where it says nothing known.
bool AddDynamics(Reading& reading, PartReading& part, std::uint32_t bar, Units position, const pugi::xml_node& dynamics,
                 std::optional<int> sounding);

/// Adds what is not a <dynamics> element.
void AddDynamicEvent(Reading& reading, PartReading& part, const DynamicEvent& event);

/// The velocity of a share of forte in hundredths (<sound dynamics>, <note dynamics>): 100 is 90. No value for none.
[[nodiscard]] std::optional<int> ReadVelocity(const pugi::xml_attribute& share);

/// Sets the velocities of all notes of a score from its parts' dynamics. A hairpin leads evenly to the mark at its end
/// or soon after, else one step louder or softer.
void SetVelocities(Reading& reading);

}  // namespace stage::musicxml
