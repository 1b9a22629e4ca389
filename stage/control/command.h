#pragma once

#include <chrono>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "tavo_audio/volume_type.h"
#include "tavo_midi/show_data.h"

namespace stage {

class CommandPerformer;

/// What an operator can do.
enum class Verb : std::uint8_t {
    Go,
    Play,
    Stop,
    Panic,
    Pause,
    Continue,
    Exit,
    Seek,
    Next,
    Previous,
    NextMarker,
    PreviousMarker,
    NextMeasure,
    PreviousMeasure,
    Load,
    Locate,
    Tempo,
    Transpose,
    Volume,
    Mute,
    Unmute,
    Solo,
    Unsolo,
    Fade,
    CancelFade,
    Attacca,
    CountIn,
    ConductBeat,
    Restore,
    Edit,
    Undo,
    Redo,
    Save,
    Quit,
};

/// The way by which a command comes in.
enum class Door : std::uint8_t {
    Script,
    Automatic,  ///< the operator that plays where there is no script
    Terminal,
    MidiPort,
    ShowControl,
    MachineControl,
    Osc,
    Page,
    Replay,
};

/// "script", "terminal", "show control".
[[nodiscard]] std::string_view GetDoorName(Door door);
/// Whether presses through the door are a person's: only those are guarded. What a script, a replay or the automatic
/// operator does was decided before and is repeated as it was.
[[nodiscard]] bool IsGuardedDoor(Door door);

struct CommandSource {
    Door door = Door::Script;
    /// Which one of several: a port's name, a peer's address; may be empty.
    std::string name;

    bool operator==(const CommandSource&) const = default;
};

/// A tick of the song that is loaded (uint32), a number in the verb's unit (double), a time since 00:00:00:00 of time
/// code (nanoseconds), a song's number or a text (string).
using CommandArgument = std::variant<std::uint32_t, double, std::chrono::nanoseconds, std::string>;

/// One press, whatever door it comes through. A plain value.
struct Command {
    Verb verb = Verb::Play;
    /// As the verb's row says, which CheckCommand compares.
    std::vector<CommandArgument> arguments;
    CommandSource source;
    /// Ascending in the order in which the desk decided; 0 before that.
    std::uint64_t id = 0;
    /// When it was pressed: on the steady clock, or on the stepped clock of a render.
    std::chrono::nanoseconds moment{0};
    /// By which the door that pressed it knows its record again; 0 for none. Not written anywhere.
    std::uint64_t tag = 0;

    bool operator==(const Command&) const = default;

    // The single argument of a verb that has one of this kind; what CheckCommand refuses throws std::logic_error.
    [[nodiscard]] std::uint32_t GetTick() const;
    [[nodiscard]] double GetNumber() const;
    [[nodiscard]] std::chrono::nanoseconds GetTime() const;
    [[nodiscard]] const std::string& GetSong() const;
    [[nodiscard]] const std::string& GetText() const;
};

enum class ArgumentKind : std::uint8_t {
    Place,      ///< uint32: a tick, written as a place of the song
    Song,       ///< string: the number of a song of the show
    Time,       ///< nanoseconds, written in seconds: "62.5s"
    Percent,    ///< double: a factor, written "90%"
    Semitones,  ///< double: a whole number, also of beats
    Seconds,    ///< double
    OnOff,      ///< double: 1 or 0, written "on" or "off"
    Word,       ///< string: one of the row's words
    Text,       ///< string: the rest of the line
};

struct ArgumentRow {
    ArgumentKind kind;
    /// Subject of the sentence that refuses it: "the tempo".
    std::string_view name;
    /// Both ends belong to the range; of kinds that are numbers.
    double lowest = 0;
    double highest = 0;
    /// Of words.
    std::span<const std::string_view> words = {};
    /// Of words: it may also be the name of an output group, which whoever carries it out knows.
    bool mayBeGroup = false;
    /// It may be left out; such an argument is the last of its verb.
    bool isOptional = false;
};

/// All there is to know of a verb. The grammar of scripts, the help, the check of a command's arguments and the table
/// of the documents come from these rows, and so do the names that a verb has towards other programs.
struct VerbRow {
    Verb verb;
    /// One word, lower case, hyphens between its parts.
    std::string_view name;
    std::span<const ArgumentRow> arguments;
    /// It takes the show on from where it is, so that a second press by mistake would do harm: the guard's concern.
    bool goesOn = false;
    /// It means nothing before a song is loaded.
    bool needsSong = false;
    /// What it does: a phrase after "NAME:".
    std::string_view help;
    /// Carries it out on the calling thread; the arguments are checked.
    void (*perform)(CommandPerformer& performer, const Command& command) = nullptr;
    /// It changes the show's files: in a performance it is not for the rendering thread, which carries out the others.
    bool edits = false;
};

/// The rows in the order in which they are shown to a person.
[[nodiscard]] std::span<const VerbRow> GetVerbRows();
[[nodiscard]] const VerbRow& GetVerbRow(Verb verb);
/// Null where no verb has that name.
[[nodiscard]] const VerbRow* FindVerbRow(std::string_view name);
struct VolumeRow {
    /// As `volume` takes it: "music".
    std::string_view name;
    tavo_audio::VolumeType type;
};

/// The volumes that `volume` sets, the master's first.
[[nodiscard]] std::span<const VolumeRow> GetVolumeRows();
/// How its arguments are written: "PLACE", "50%..200%"; empty where it has none.
[[nodiscard]] std::string DescribeArguments(const VerbRow& row);

/// All verbs for a terminal, a line each: name, arguments, what it does.
[[nodiscard]] std::string MakeVerbHelp();
/// The same as a table of Markdown, which docs/render.md holds.
[[nodiscard]] std::string MakeVerbTable();

/// Empty where the arguments are those of the verb, in number, type and range; else one sentence without a full stop.
/// A song must be one of `show`.
[[nodiscard]] std::string CheckCommand(const Command& command, const tavo_midi::ShowData& show);

/// Reads "seek 17:3", "tempo 90%", "load 12a". Places are those of the song `song`, for which `load` puts the song that
/// it loads. The words are views into one line. Throws std::invalid_argument with one sentence without a full stop.
[[nodiscard]] Command ParseCommand(std::span<const std::string_view> words, const tavo_midi::ShowData& show,
                                   std::string& song);
/// The text that ParseCommand reads again as the same verb and arguments; places as ticks.
[[nodiscard]] std::string AsText(const Command& command);

/// The words of a line, which a '#' at the front of one ends.
[[nodiscard]] std::vector<std::string_view> SplitWords(std::string_view line);
/// Reads a number within the range, with or without a plus sign; throws std::invalid_argument, `what` its subject.
[[nodiscard]] double ReadNumber(std::string_view text, double lowest, double highest, std::string_view what);
/// Takes a place, of one word or "tick 960", off the front of `words`; std::invalid_argument where there is none.
[[nodiscard]] std::string TakePlace(std::span<const std::string_view>& words);
/// The tick of a place of the song; std::invalid_argument with a sentence that names the song.
[[nodiscard]] std::uint32_t FindTick(const tavo_midi::ShowData& show, const std::string& song,
                                     const std::string& place);

}  // namespace stage
