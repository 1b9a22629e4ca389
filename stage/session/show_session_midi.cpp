// What show control, machine control and a conductor's pedal ask for beyond the façade's commands.

#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>
#include <vector>

#include "stage/session/show_session.h"
#include "tavo_core/active_change_log.h"
#include "tavo_core/callback_dispatcher.h"
#include "tavo_midi/midi_commands.h"

namespace stage {

using std::chrono::nanoseconds;

void ShowSession::RegisterMidiRequests_() {
    const auto add = [this](const std::string& name, std::function<void(void*)> request) {
        notify::callbackDispatcher.AddCallback(static_cast<Interface*>(this), name, std::move(request));
    };
    add(midi_commands::names::conductBeat, [this](void*) { player_->ConductBeat(); });
    add(midi_commands::names::loadSong, [this](void* payload) {
        const std::string& songNumber = *static_cast<const std::string*>(payload);
        // Before playback is stopped for it.
        static_cast<void>(GetShowData().GetSongData(songNumber));
        LoadSong(songNumber);
    });
    add(midi_commands::names::locate,
        [this](void* payload) { LocateTimeCode(*static_cast<const nanoseconds*>(payload)); });
}

void ShowSession::LocateTimeCode(nanoseconds time) {
    const std::string current = GetCurrentSongNumber();
    std::vector<std::string> songNumbers = GetShowData().GetSongNumbers();
    std::stable_partition(songNumbers.begin(), songNumbers.end(),
                          [&](const std::string& songNumber) { return songNumber == current; });
    const double userScale = player_->GetUserControls().GetTempoScale();
    for (const std::string& songNumber : songNumbers) {
        const nanoseconds timeInSong = time - GetMidiTimeCodeController().GetSongStart(songNumber);
        if (timeInSong.count() < 0) continue;
        const tavo_midi::SongData& song = GetShowData().GetSongData(songNumber);
        const tavo_midi::TempoMap heard = [&] {
            const ActiveChangeLogShared changeLog;
            return MakeHeardTempoMap(song, changeLog->GetSongLog(songNumber));
        }();
        const std::uint32_t startTick = song.GetTimeline().GetStartTickIndex();
        const std::uint32_t tick = FindTickInSong(heard, startTick, timeInSong, userScale);
        if (tick >= song.GetTimeline().GetEndTickIndex()) continue;
        return songNumber == current ? Seek(tick) : LoadSongAtTime(songNumber, tick);
    }
    const double seconds = std::chrono::duration<double>(time).count();
    throw std::runtime_error(fmt::format("No song's time code comes to {:.3f} s.", seconds));
}

}  // namespace stage
