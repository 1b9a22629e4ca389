#pragma once

#include <pugixml.hpp>
#include <string>

#include "stage/import/musicxml/reading.h"

namespace stage::musicxml {

/// What the signs at a chord, on whichever of its notes they stand, make of it.
struct NoteStyle {
    bool hasFermata = false;
    bool hasBreath = false;
    bool hasCaesura = false;
    bool isStaccato = false;
    bool isStaccatissimo = false;
    bool isTenuto = false;
    bool isSpiccato = false;
    /// Added to the velocity.
    int accent = 0;
    /// Inside a slur, and not its last note.
    bool isSlurred = false;

    /// Share of the written length that sounds, in hundredths. A fermata undoes what shortens.
    [[nodiscard]] std::uint8_t GetSoundingPercent() const;
};

/// Reads the signs of the chord that begins with `note`, at `position`; slurs go on from note to note. Dynamics among
/// the signs go to the part's.
[[nodiscard]] NoteStyle ReadStyle(Reading& reading, PartReading& part, std::uint32_t bar, Units position,
                                  const pugi::xml_node& note);

}  // namespace stage::musicxml
