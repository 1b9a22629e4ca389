// What show control, machine control and a conductor's pedal ask for beyond the façade's commands.

#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>
#include <utility>
#include <vector>

#include "stage/session/show_session.h"
#include "tavo_core/active_change_log.h"
#include "tavo_midi/midi_commands.h"

namespace stage {

using std::chrono::nanoseconds;

namespace {

constexpr std::pair<midi_commands::Command, Verb> Verbs[] = {
    {midi_commands::Play, Verb::Play},
    {midi_commands::Pause, Verb::Pause},
    {midi_commands::Stop, Verb::Stop},
    {midi_commands::Continue, Verb::Continue},
    {midi_commands::NextSong, Verb::Next},
    {midi_commands::PreviousSong, Verb::Previous},
    {midi_commands::NextMarker, Verb::NextMarker},
    {midi_commands::PreviousMarker, Verb::PreviousMarker},
    {midi_commands::ConductBeat, Verb::ConductBeat},
};

Verb FindVerb(midi_commands::Command command) {
    const auto* found =
        std::find_if(std::begin(Verbs), std::end(Verbs), [&](const auto& each) { return each.first == command; });
    if (found == std::end(Verbs)) throw std::out_of_range(fmt::format("there is no MIDI command {}", int{command}));
    return found->second;
}

Door FindDoor(midi_commands::CommandDoor door) {
    switch (door) {
        case midi_commands::CommandDoor::ShowControl:
            return Door::ShowControl;
        case midi_commands::CommandDoor::MachineControl:
            return Door::MachineControl;
        default:
            return Door::MidiPort;
    }
}

Command AsCommand(const midi_commands::DeliveredCommand& delivered, const std::string& portName) {
    Command command;
    command.source = {FindDoor(delivered.door), portName};
    command.moment = delivered.arrival;
    if (delivered.songNumber) {
        command.verb = Verb::Load;
        command.arguments = {*delivered.songNumber};
    } else if (delivered.locate) {
        command.verb = Verb::Locate;
        command.arguments = {*delivered.locate};
    } else {
        command.verb = FindVerb(delivered.command.value());
    }
    return command;
}

}  // namespace

// The façade obeys the commands that it knows by their callbacks, which are called where this lets them; the others are
// carried out here. Both on the thread that delivers.
void ShowSession::ListenToMidiCommands_() {
    const auto admit = [this](const midi_commands::DeliveredCommand& delivered) {
        Command command = AsCommand(delivered, GetMidiMessageDispatcher().GetPortName());
        const bool isTheFacades = delivered.command && *delivered.command != midi_commands::ConductBeat;
        return (isTheFacades ? desk_.Admit(std::move(command)) : desk_.Execute(std::move(command))).IsTaken();
    };
    const auto release = [this](const midi_commands::ReleasedCommand& released) {
        desk_.NoteRelease({Door::MidiPort, GetMidiMessageDispatcher().GetPortName()}, FindVerb(released.command));
    };
    GetMidiCommands().SetCommandFilter(admit, release);
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
    throw std::runtime_error(fmt::format("no song's time code comes to {:.3f} s", seconds));
}

}  // namespace stage
