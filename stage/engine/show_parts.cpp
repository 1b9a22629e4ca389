#include "stage/engine/show_parts.h"

#include <algorithm>
#include <filesystem>

#include "stage/engine/channel_state.h"
#include "stage/engine/sound_font.h"
#include "tavo_core/active_change_log.h"

namespace stage {

std::string ResolveSoundFont(const std::string& name, const std::string& showPath) {
    // A path that is absolute replaces the show's.
    return (std::filesystem::path(showPath) / name).string();
}

std::string ChooseSoundFont(const Settings& settings, const std::string& showPath) {
    return settings.soundFont.empty() ? FindDefaultSoundFont() : ResolveSoundFont(settings.soundFont, showPath);
}

std::size_t CountChannels(const tavo_midi::ShowData& show) {
    std::size_t channels = 1;
    for (const tavo_midi::SongData& song : show.GetSongs())
        for (const tavo_midi::MidiEvent& event : song.GetEvents())
            if (event.status < 0xF0) channels = std::max(channels, ChannelOf(event) + 1);
    return channels;
}

std::vector<std::string> ListSoundOutputs(const GroupPlan& plan) {
    std::vector<std::string> names{MainOutput, ClickOutput};
    for (const Settings::Group& group : plan.groups)
        if (group.output == Settings::Group::Output::Own) names.push_back(group.name);
    return names;
}

void AddMissingSongLogs(const tavo_midi::ShowData& show) {
    const ActiveChangeLogExclusive log;
    for (const tavo_midi::SongData& song : show.GetSongs())
        log->GetSongLogs().try_emplace(song.GetSongNumber());
}

}  // namespace stage
