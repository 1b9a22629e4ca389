#pragma once

#include "stage/musicxml/reading.h"

namespace stage::musicxml {

/// Most marks of a whole score.
inline constexpr std::size_t MaxMarks = 200'000;

/// Adds a mark of the part that is being read. Fails in one sentence beyond MaxMarks.
void AddMark(Reading& reading, BarDraft& bar, DraftMark mark);

/// The marks of a bar in order, each once whatever part it stands in: of fermatas at one place the longest, of tempos
/// the one that ranks highest. Positions are brought into the bar.
[[nodiscard]] std::vector<WrittenMark> MergeMarks(std::vector<DraftMark> marks, Units barLength);

}  // namespace stage::musicxml
