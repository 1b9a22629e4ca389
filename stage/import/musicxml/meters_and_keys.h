#pragma once

#include <optional>
#include <pugixml.hpp>
#include <string>

#include "stage/import/musicxml/written_score.h"

namespace stage::musicxml {

/// A <time> element: its pairs of beats and beat type summed over one denominator, nothing for senza misura. No value
/// where it is not a meter of 1 to 255 notes from whole to 64th.
[[nodiscard]] std::optional<WrittenMeter> ReadMeter(const pugi::xml_node& time);

/// A <key> element of the traditional kind, its fifths moved by those of a transposition. No value for another kind or
/// more than 7 sharps or flats as written.
[[nodiscard]] std::optional<WrittenKey> ReadKey(const pugi::xml_node& key, int addedFifths);

/// Sharps that an instrument's transposition adds to its written key: its semitones, and the steps of the staff where
/// it gives them.
[[nodiscard]] int GetFifths(int semitones, std::optional<int> steps);

/// "3+2/8", "senza misura"; "3 flats, minor" for sentences.
[[nodiscard]] std::string DescribeMeter(const WrittenMeter& meter);
[[nodiscard]] std::string DescribeKey(const WrittenKey& key);

}  // namespace stage::musicxml
