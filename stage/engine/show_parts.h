#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "stage/engine/group_plan.h"
#include "stage/show/settings.h"
#include "tavo_midi/show_data.h"

/// What every way of performing a show needs to know of it.
namespace stage {

/// The path of a SoundFont that the settings name: a relative one is the show directory's.
[[nodiscard]] std::string ResolveSoundFont(const std::string& name, const std::string& showPath);

/// The path of the SoundFont that the settings name, or of the default one. Throws as FindDefaultSoundFont does.
[[nodiscard]] std::string ChooseSoundFont(const Settings& settings, const std::string& showPath);

/// How many MIDI channels the show's songs use; at least one.
[[nodiscard]] std::size_t CountChannels(const tavo_midi::ShowData& show);

inline constexpr const char* MainOutput = "main";
inline constexpr const char* ClickOutput = "click";

/// The names of the stereo pairs that the show's sound leaves by, in the order in which Engine::Render takes their
/// buffers: the main one, the click's, and those of the groups that have one.
[[nodiscard]] std::vector<std::string> ListSoundOutputs(const GroupPlan& plan);

/// Gives the active change log a log without edits for every song of the show that it does not know.
void AddMissingSongLogs(const tavo_midi::ShowData& show);

}  // namespace stage
