#pragma once

#include "stage/import/musicxml/reading.h"

namespace stage::musicxml {

/// Adds a mark of the part that is being read.
void AddMark(Reading& reading, BarDraft& bar, DraftMark mark);

/// The marks of a bar in order, each once whatever part it stands in: of fermatas at one place the longest, of tempos
/// the one that ranks highest. Positions are brought into the bar.
[[nodiscard]] std::vector<WrittenMark> MergeMarks(std::vector<DraftMark> marks, Units barLength);

}  // namespace stage::musicxml
