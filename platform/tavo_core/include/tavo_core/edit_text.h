#pragma once

#include <string>

#include "tavo_core/bar_positions.h"
#include "tavo_core/change_log_events.h"

/// The production's edits in the words of a rehearsal.
namespace CL {

/// "tempo scale": the kind's name as it stands in a sentence.
[[nodiscard]] std::string DescribeKind(const cmn::TavoEvent& edit);

/// "bars 12 to 16", "17:3": where the edit stands.
[[nodiscard]] std::string DescribePlace(const cmn::TavoEvent& edit, const TL::BarPositions& positions);

/// What the edit does beyond its place: "3 times", "90%", "up 2 semitones"; empty where the kind says it all. Throws
/// std::logic_error for an event that is not an edit.
[[nodiscard]] std::string DescribeValue(const cmn::TavoEvent& edit);

/// "C, Vamp": one text for two markers of one place, as a display names one there. A part that is there already is not
/// added.
[[nodiscard]] std::string JoinMarkerTexts(const std::string& there, const std::string& added);

/// "1/8", "3/16": a length in thirty-second notes as a fraction of a whole note.
[[nodiscard]] std::string DescribeNoteLength(int thirtySeconds);

/// "vamp bars 12 to 16", "repeat bar 3, 3 times": kind, place and value.
[[nodiscard]] std::string DescribeEdit(const cmn::TavoEvent& edit, const TL::BarPositions& positions);

}  // namespace CL
