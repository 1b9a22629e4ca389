#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "stage/import/musicxml/written_score.h"

namespace stage::musicxml {

/// Reads a MusicXML 3.1 or 4.0 score (W3C Music Notation Community Group): score-partwise or score-timewise, plain, or
/// compressed as `.mxl` (recognised by its first bytes, not by the name). `name` stands in the sentences. Nothing
/// outside `bytes` is read: neither document types nor external entities. Throws std::runtime_error with one sentence
/// that says what is wrong and where, with part and measure. Memory stays below 512 MB for any input; no locks, any
/// thread.
[[nodiscard]] WrittenScore ReadScore(std::string_view bytes, const std::string& name);

/// A larger file, or a larger score inside an archive, is refused.
inline constexpr std::size_t MaxScoreFileBytes = std::size_t{64} << 20U;

}  // namespace stage::musicxml
