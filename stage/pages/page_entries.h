#pragma once

#include <string>

#include "stage/pages/page_package.h"

/// The names of the entries of a score's archive, which reader and writer share.
namespace stage {

inline constexpr const char* PageIndexName = "index.json";
/// "pages/12.png".
[[nodiscard]] std::string GetEntryName(const ScorePage& page);

}  // namespace stage
