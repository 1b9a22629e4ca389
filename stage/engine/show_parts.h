#pragma once

#include <cstddef>
#include <string>

#include "stage/show/settings.h"
#include "tavo_midi/show_data.h"

/// What every way of performing a show needs to know of it.
namespace stage {

/// The path of the SoundFont that the settings name, or of the default one. Throws as FindDefaultSoundFont does.
[[nodiscard]] std::string ChooseSoundFont(const Settings& settings, const std::string& showPath);

/// How many MIDI channels the show's songs use; at least one.
[[nodiscard]] std::size_t CountChannels(const tavo_midi::ShowData& show);

/// Gives the active change log a log without edits for every song of the show that it does not know.
void AddMissingSongLogs(const tavo_midi::ShowData& show);

}  // namespace stage
