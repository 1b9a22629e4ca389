#include "tavo_midi/midi_settings_check.h"

#include "kit/path.h"
#include "kit/try_read.h"
#include "midi_command_settings.h"
#include "time_code_settings.h"

namespace tavo_midi {

std::vector<std::string> FindMidiSettingsProblems(const std::string& directory) {
    std::vector<std::string> problems;
    kit::TryRead(problems,
                 [&] { return midi_commands::ReadCommandSettings(kit::path::Join(directory, "midiCommandSettings")); });
    kit::TryRead(problems, [&] { return ReadTimeCodeSettings(kit::path::Join(directory, "midiTimeCodeSettings")); });
    return problems;
}

}  // namespace tavo_midi
