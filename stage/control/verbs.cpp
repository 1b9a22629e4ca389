// The table of verbs, and what each of them does.

#include <algorithm>
#include <array>
#include <stdexcept>

#include "stage/control/command.h"
#include "stage/control/command_performer.h"
#include "tavo_core/song_log.h"
#include "tavo_midi/user_controls.h"

namespace stage {

namespace {

constexpr double LongestFadeSeconds = 600;
constexpr double MostBeatsCountedIn = 16;
constexpr double SecondsPerDay = 24.0 * 3600;

constexpr ArgumentRow Place[] = {{ArgumentKind::Place, "the place"}};
constexpr ArgumentRow Song[] = {{ArgumentKind::Song, "the song's number"}};
constexpr ArgumentRow Time[] = {{ArgumentKind::Time, "the time", 0, SecondsPerDay}};
constexpr ArgumentRow Tempo[] = {
    {ArgumentKind::Percent, "the tempo", UserControls::LowestTempoScale, UserControls::HighestTempoScale}};
constexpr ArgumentRow Semitones[] = {{ArgumentKind::Semitones, "the number of semitones",
                                      UserControls::LowestTransposition, UserControls::HighestTransposition}};
constexpr VolumeRow Volumes[] = {{"master", tavo_audio::Master},
                                 {"music", tavo_audio::Synth},
                                 {"click", tavo_audio::Click},
                                 {"effects", tavo_audio::Effects},
                                 {"ambience", tavo_audio::Ambience}};
constexpr std::string_view VolumeWords[] = {Volumes[0].name, Volumes[1].name, Volumes[2].name, Volumes[3].name,
                                            Volumes[4].name};
static_assert(std::size(Volumes) == std::size(VolumeWords));
constexpr ArgumentRow Volume[] = {{ArgumentKind::Percent, "the volume", 0, 1},
                                  {.kind = ArgumentKind::Word,
                                   .name = "what the volume is of",
                                   .words = VolumeWords,
                                   .mayBeGroup = true,
                                   .isOptional = true}};
constexpr ArgumentRow Group[] = {{.kind = ArgumentKind::Word, .name = "the group", .mayBeGroup = true}};
constexpr ArgumentRow Fade[] = {{ArgumentKind::Seconds, "the fade's length in seconds", 0, LongestFadeSeconds}};
constexpr ArgumentRow Beats[] = {{ArgumentKind::Semitones, "the number of beats", 0, MostBeatsCountedIn}};
constexpr ArgumentRow Change[] = {{ArgumentKind::Text, "the change"}};
constexpr ArgumentRow State[] = {{ArgumentKind::Text, "the state"}};
constexpr ArgumentRow OnOff[] = {{ArgumentKind::OnOff, "attacca"}};

/// What one key for everything means at this moment.
void GoOn(CommandPerformer& performer) {
    Interface& facade = performer.GetFacade();
    if (facade.GetIsPlaying() || facade.GetIsFaded()) return facade.FlowControlExit();
    facade.Continue();
}

void SetAttacca(CommandPerformer& performer, bool isOn) {
    Interface& facade = performer.GetFacade();
    facade.SetAttacca(facade.GetCurrentSongNumber(), isOn ? CL::AttaccaNext : CL::AttaccaNormal);
}

/// The desk has seen that it is there.
std::size_t FindGroup(CommandPerformer& performer, const std::string& name) {
    return performer.GetGroups()->Find(name).value();
}

/// Of everything where the command does not say of what.
void SetVolume(CommandPerformer& performer, const Command& command) {
    tavo_audio::VolumeType type = tavo_audio::Master;
    if (command.arguments.size() > 1) {
        const auto& word = std::get<std::string>(command.arguments[1]);
        const auto* row = std::ranges::find(Volumes, std::string_view(word), &VolumeRow::name);
        if (row == std::end(Volumes)) {
            performer.GetGroups()->SetVolume(FindGroup(performer, word), command.GetNumber());
            return;
        }
        type = row->type;
    }
    performer.GetFacade().SetVolume(command.GetNumber(), type);
}

void Mute(CommandPerformer& performer, const Command& command, bool isMuted) {
    performer.GetGroups()->Mute(FindGroup(performer, command.GetText()), isMuted);
}

void Solo(CommandPerformer& performer, const Command& command, bool isSolo) {
    performer.GetGroups()->Solo(FindGroup(performer, command.GetText()), isSolo);
}

using P = CommandPerformer;
using C = Command;

constexpr VerbRow Rows[] = {
    {Verb::Go, "go", {}, true, true, "starts, goes on, or leaves what playback is in", [](P& p, const C&) { GoOn(p); }},
    {Verb::Play,
     "play",
     {},
     true,
     true,
     "starts, or goes on from where playback stopped",
     [](P& p, const C&) { p.GetFacade().Play(); }},
    {Verb::Stop,
     "stop",
     {},
     false,
     false,
     "stops and goes back to the song's beginning",
     [](P& p, const C&) { p.GetFacade().Stop(); }},
    {Verb::Panic, "panic", {}, false, false, "silence at once; then as stop", [](P& p, const C&) { p.Panic(); }},
    {Verb::Pause,
     "pause",
     {},
     false,
     true,
     "stops and stays; cancels a caesura that is pending",
     [](P& p, const C&) { p.GetFacade().Pause(false); }},
    {Verb::Continue,
     "continue",
     {},
     true,
     true,
     "goes on from a caesura or a pause",
     [](P& p, const C&) { p.GetFacade().Continue(); }},
    {Verb::Exit,
     "exit",
     {},
     true,
     true,
     "leaves the vamp, fermata or caesura that is next",
     [](P& p, const C&) { p.GetFacade().FlowControlExit(); }},
    {Verb::Seek, "seek", Place, false, true, "goes to a place of the song",
     [](P& p, const C& c) { p.GetFacade().Seek(c.GetTick()); }},
    {Verb::NextMarker,
     "next-marker",
     {},
     false,
     true,
     "goes to the song's next marker",
     [](P& p, const C&) { p.GetFacade().SeekRight(); }},
    {Verb::PreviousMarker,
     "previous-marker",
     {},
     false,
     true,
     "goes to the marker before",
     [](P& p, const C&) { p.GetFacade().SeekLeft(); }},
    {Verb::NextMeasure,
     "next-measure",
     {},
     false,
     true,
     "goes to the next bar",
     [](P& p, const C&) { p.GetFacade().SeekToNextMeasure(); }},
    {Verb::PreviousMeasure,
     "previous-measure",
     {},
     false,
     true,
     "goes to the bar before",
     [](P& p, const C&) { p.GetFacade().SeekToPreviousMeasure(); }},
    {Verb::Next,
     "next",
     {},
     true,
     false,
     "the song after this one stands ready",
     [](P& p, const C&) { p.GetFacade().NextSong(); }},
    {Verb::Previous,
     "previous",
     {},
     true,
     false,
     "the song before this one stands ready",
     [](P& p, const C&) { p.GetFacade().PrevSong(); }},
    {Verb::Load, "load", Song, false, false, "that song stands ready",
     [](P& p, const C& c) { p.GetFacade().LoadSong(c.GetSong()); }},
    {Verb::Locate, "locate", Time, false, false, "goes to where time code comes to that time",
     [](P& p, const C& c) { p.LocateTimeCode(c.GetTime()); }},
    {Verb::Tempo, "tempo", Tempo, false, false, "scales every tempo",
     [](P& p, const C& c) { p.GetFacade().SetTempoScale(c.GetNumber()); }},
    {Verb::Transpose, "transpose", Semitones, false, false, "moves all notes but percussion by semitones",
     [](P& p, const C& c) { p.GetFacade().SetTransposition(static_cast<int>(c.GetNumber())); }},
    {Verb::Volume, "volume", Volume, false, false, "sets master, music, click, effects, ambience or a group",
     [](P& p, const C& c) { SetVolume(p, c); }},
    {Verb::Mute, "mute", Group, false, false, "an output group is silent until it is unmuted",
     [](P& p, const C& c) { Mute(p, c, true); }},
    {Verb::Unmute, "unmute", Group, false, false, "it sounds again", [](P& p, const C& c) { Mute(p, c, false); }},
    {Verb::Solo, "solo", Group, false, false, "of the music, only output groups that are solo sound",
     [](P& p, const C& c) { Solo(p, c, true); }},
    {Verb::Unsolo, "unsolo", Group, false, false, "ends that for the group",
     [](P& p, const C& c) { Solo(p, c, false); }},
    {Verb::Fade, "fade", Fade, false, true, "fades out in so many seconds and stops",
     [](P& p, const C& c) {
         Interface& facade = p.GetFacade();
         facade.Fade([&facade] { facade.Stop(); }, static_cast<float>(c.GetNumber()));
     }},
    {Verb::CancelFade,
     "cancel-fade",
     {},
     false,
     true,
     "comes back from a fade",
     [](P& p, const C&) { p.GetFacade().CancelFade(); }},
    {Verb::Attacca, "attacca", OnOff, false, true, "whether the next song follows without a stop",
     [](P& p, const C& c) { SetAttacca(p, c.GetNumber() > 0); }},
    {Verb::CountIn, "count-in", Beats, false, false, "counts so many beats in on the click before each start",
     [](P& p, const C& c) { p.SetCountIn(static_cast<unsigned int>(c.GetNumber())); }},
    {Verb::ConductBeat,
     "conduct-beat",
     {},
     false,
     true,
     "a beat of the conductor's",
     [](P& p, const C& c) { p.ConductBeat(c.moment); }},
    {Verb::Restore, "restore", State, false, true, "goes to where a take stood, as it has written it",
     [](P& p, const C& c) { p.Restore(c.GetText()); }},
    {Verb::Edit, "edit", Change, false, false, "changes the edits as stage edit does: add vamp 12 15",
     [](P& p, const C& c) { p.Edit(c.GetText()); }, true},
    {Verb::Undo, "undo", {}, false, false, "takes back the last edit", [](P& p, const C&) { p.UndoEdit(); }, true},
    {Verb::Redo, "redo", {}, false, false, "makes it again", [](P& p, const C&) { p.RedoEdit(); }, true},
    {Verb::Save,
     "save",
     {},
     false,
     false,
     "saves the edits as the next version",
     [](P& p, const C&) { p.SaveEdits(); },
     true},
    {Verb::Quit, "quit", {}, false, false, "ends the show", [](P& p, const C&) { p.Quit(); }},
};

constexpr std::array<std::string_view, 9> DoorNames{
    "script", "automatic", "terminal", "MIDI port", "show control", "machine control", "OSC", "page", "replay"};

}  // namespace

std::span<const VerbRow> GetVerbRows() {
    return Rows;
}

const VerbRow& GetVerbRow(Verb verb) {
    const auto* row =
        std::find_if(std::begin(Rows), std::end(Rows), [&](const VerbRow& each) { return each.verb == verb; });
    if (row == std::end(Rows)) throw std::out_of_range("there is no such verb");
    return *row;
}

const VerbRow* FindVerbRow(std::string_view name) {
    const auto* row =
        std::find_if(std::begin(Rows), std::end(Rows), [&](const VerbRow& each) { return each.name == name; });
    return row == std::end(Rows) ? nullptr : row;
}

std::span<const VolumeRow> GetVolumeRows() {
    return Volumes;
}

std::string_view GetDoorName(Door door) {
    return DoorNames.at(static_cast<std::size_t>(door));
}

bool IsGuardedDoor(Door door) {
    return door != Door::Script && door != Door::Automatic && door != Door::Replay;
}

}  // namespace stage
