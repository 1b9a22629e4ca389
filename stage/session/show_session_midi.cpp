// What show control, machine control and a conductor's pedal ask for beyond the façade's commands.

#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>
#include <utility>
#include <vector>

#include "stage/session/show_session.h"
#include "tavo_core/active_change_log.h"
#include "tavo_core/callback_dispatcher.h"
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

// Whoever listens to the callback hears of it when the command is carried out. A song that is asked for lets the rest
// of its message pass, which waits behind it and is refused with it.
bool ShowSession::PostMidiCommand_(Command command, const std::string& callbackName, bool isTheFacades) {
    const nanoseconds arrival = command.moment;
    const bool isSong = command.verb == Verb::Load;
    const auto note = [this, arrival, isSong](const CommandRecord& record) {
        if (isSong) refusedMessage_ = record.IsTaken() ? nanoseconds(-1) : arrival;
    };
    std::function<void()> perform;
    if (!isSong)
        perform = [this, arrival, isTheFacades, command, &callbackName] {
            if (refusedMessage_ == arrival) throw std::runtime_error("the song that it was meant for was refused");
            if (isTheFacades) return notify::callbackDispatcher.Notify(callbackName, nullptr);
            GetVerbRow(command.verb).perform(*this, command);
        };
    desk_.Post(std::move(command), note, std::move(perform));
    return isSong;
}

// The façade obeys the commands that it knows by their callbacks, which are called where this lets them; the others are
// carried out here. Both on the thread that delivers.
void ShowSession::ListenToMidiCommands_() {
    const auto admit = [this](const midi_commands::DeliveredCommand& delivered) {
        Command command = AsCommand(delivered, GetMidiMessageDispatcher().GetPortName());
        const bool isTheFacades = delivered.command && *delivered.command != midi_commands::ConductBeat;
        if (isPerformed_) return PostMidiCommand_(std::move(command), delivered.callbackName, isTheFacades);
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
