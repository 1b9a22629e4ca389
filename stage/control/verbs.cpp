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
constexpr double SecondsPerDay = 24.0 * 3600;

constexpr ArgumentRow Place[] = {{ArgumentKind::Place, "the place"}};
constexpr ArgumentRow Song[] = {{ArgumentKind::Song, "the song's number"}};
constexpr ArgumentRow Time[] = {{ArgumentKind::Time, "the time", 0, SecondsPerDay}};
constexpr ArgumentRow Tempo[] = {
    {ArgumentKind::Percent, "the tempo", UserControls::LowestTempoScale, UserControls::HighestTempoScale}};
constexpr ArgumentRow Semitones[] = {{ArgumentKind::Semitones, "the number of semitones",
                                      UserControls::LowestTransposition, UserControls::HighestTransposition}};
constexpr ArgumentRow Volume[] = {{ArgumentKind::Percent, "the volume", 0, 1}};
constexpr ArgumentRow Fade[] = {{ArgumentKind::Seconds, "the fade's length in seconds", 0, LongestFadeSeconds}};
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
    {Verb::Volume, "volume", Volume, false, false, "sets the master volume",
     [](P& p, const C& c) { p.GetFacade().SetVolume(c.GetNumber(), tavo_audio::Master); }},
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
    {Verb::ConductBeat,
     "conduct-beat",
     {},
     false,
     true,
     "a beat of the conductor's",
     [](P& p, const C& c) { p.ConductBeat(c.moment); }},
    {Verb::Restore, "restore", State, false, true, "goes to where a take stood, as it has written it",
     [](P& p, const C& c) { p.Restore(c.GetText()); }},
    {Verb::Edit, "edit", Change, false, false, "changes the production's edits, as a take has written it",
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

std::string_view GetDoorName(Door door) {
    return DoorNames.at(static_cast<std::size_t>(door));
}

bool IsGuardedDoor(Door door) {
    return door != Door::Script && door != Door::Automatic && door != Door::Replay;
}

}  // namespace stage
