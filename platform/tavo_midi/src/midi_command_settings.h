#pragma once

#include <map>
#include <string>
#include <vector>

#include "tavo_midi/midi_commands.h"

namespace tavo_midi::midi_commands {

/// What midiCommandSettings holds.
struct CommandSettings {
    std::map<unsigned char, LearnedCommand> commands;
    RemoteControl remoteControl;
    std::string sourceName;
    /// A sentence for each key of the file that is not known; they are ignored, and lost when the file is written.
    std::vector<std::string> warnings;
};

/// A missing file gives the defaults. Throws std::runtime_error with one sentence that names the file.
[[nodiscard]] CommandSettings ReadCommandSettings(const std::string& path);
void WriteCommandSettings(const std::string& path, const CommandSettings& settings);

/// One sentence why the message cannot be given to the command, empty if it can.
[[nodiscard]] std::string FindProblem(const std::map<unsigned char, LearnedCommand>& commands, unsigned char command,
                                      const LearnedCommand& message);
[[nodiscard]] bool HasValue(unsigned char status);
[[nodiscard]] bool HasAnyValue(const LearnedCommand& message);

}  // namespace tavo_midi::midi_commands
