#pragma once

#include <string>
#include <vector>

namespace tavo_midi {

/// Why `midiCommandSettings` and `midiTimeCodeSettings` of the directory cannot be read, one sentence for each that
/// cannot: a show does not open over them. A missing file is none. Blocks on the disk.
[[nodiscard]] std::vector<std::string> FindMidiSettingsProblems(const std::string& directory);

}  // namespace tavo_midi
