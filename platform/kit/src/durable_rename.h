#pragma once

#include <string>

namespace kit {

/// Gives a file a new name in the same directory unless that name is taken; 0 or the system's error number.
[[nodiscard]] int RenameWithoutReplacing(const std::string& from, const std::string& to);
/// The way for file systems that cannot do it in one step: a second name, then the first one removed.
[[nodiscard]] int LinkAndUnlink(const std::string& from, const std::string& to);

}  // namespace kit
