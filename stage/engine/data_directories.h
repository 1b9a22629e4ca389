#pragma once

#include <string>
#include <vector>

namespace stage {

/// The share directory beside this program, as it is built, installed or bundled: "/usr/share" of "/usr/bin/stage". ""
/// where the system does not tell where the program is. Reads the system; any thread.
[[nodiscard]] std::string FindOwnShareDirectory();

/// Where the data of all users lies, in the order in which it is looked for: XDG_DATA_DIRS, this program's own share
/// directory, /usr/local/share, /usr/share. Each once; whether they exist is not asked. Any thread that changes no
/// environment meanwhile.
[[nodiscard]] std::vector<std::string> ListDataDirectories();

}  // namespace stage
