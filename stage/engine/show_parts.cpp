#include "stage/engine/show_parts.h"

#include <algorithm>
#include <filesystem>

#include "stage/engine/channel_state.h"
#include "stage/engine/sound_font.h"
#include "tavo_core/active_change_log.h"

namespace stage {

std::string ChooseSoundFont(const Settings& settings, const std::string& showPath) {
    if (settings.soundFont.empty()) return FindDefaultSoundFont();
    // A path that is absolute replaces the show's.
    return (std::filesystem::path(showPath) / settings.soundFont).string();
}

std::size_t CountChannels(const tavo_midi::ShowData& show) {
    std::size_t channels = 1;
    for (const tavo_midi::SongData& song : show.GetSongs())
        for (const tavo_midi::MidiEvent& event : song.GetEvents())
            if (event.status < 0xF0) channels = std::max(channels, ChannelOf(event) + 1);
    return channels;
}

void AddMissingSongLogs(const tavo_midi::ShowData& show) {
    const ActiveChangeLogExclusive log;
    for (const tavo_midi::SongData& song : show.GetSongs())
        log->GetSongLogs().try_emplace(song.GetSongNumber());
}

}  // namespace stage
