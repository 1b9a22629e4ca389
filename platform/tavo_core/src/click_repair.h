#pragma once

#include <map>
#include <string>
#include <vector>

#include "tavo_core/editor.h"

namespace CL {

/// What makes the clicks of `log` fit the meters and their songs, and the clicks as they were with the reason. Songs
/// that the show does not have are left alone.
struct ClickRepairs {
    LogChange change;
    std::map<std::string, std::vector<ModifiedClick>> modified;
};
[[nodiscard]] ClickRepairs FindClickRepairs(const ChangeLog& log, const TL::ShowTimelines& timelines);

}  // namespace CL
