#pragma once

#include <string>

namespace stage {

/// The SoundFont that is played with when none is named: the first that lies in the system's directories for them (XDG
/// data directories, as the File System Hierarchy places them). Throws std::runtime_error with one sentence that names
/// the directories where there is none.
[[nodiscard]] std::string FindDefaultSoundFont();

}  // namespace stage
