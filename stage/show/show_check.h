#pragma once

#include <string>
#include <vector>

namespace stage {

/// Reads everything in a show directory and reports each problem in one line that names the file and the place: names,
/// show data, every version of the change log against the timelines and the rules for edits, the sounds and OSC targets
/// that edits name, the settings and the files that they name. An empty list: nothing is wrong. Throws
/// std::runtime_error only where the directory itself cannot be read.
[[nodiscard]] std::vector<std::string> CheckShow(const std::string& path);

}  // namespace stage
