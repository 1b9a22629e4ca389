#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "stage/import/musicxml/written_score.h"

namespace stage::musicxml {

/// What plain words order: "D.C. al Fine", "Dal Segno", "Fine", "To Coda", "al Coda", "Coda". The text of the mark is
/// the number after it ("To Coda 2", "D.S. 2"), mostly empty. No value for other words.
[[nodiscard]] std::optional<WrittenMark> ReadJumpWords(std::string_view words);

}  // namespace stage::musicxml
