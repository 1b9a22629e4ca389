#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tavo_midi/midi_message_dispatcher.h"

/// What the operator gives by a pedal, a pad or another desk: commands and the messages that give them.
namespace tavo_midi::midi_commands {

/// The numbers of the commands, which stay as they are. Settings files go by their names (commandNames).
enum Command : unsigned char {
    Play = 0,            ///< notify::names::midiCommandPlay, and so on down to PreviousMarker
    Pause = 1,           ///< stays where playback is
    Stop = 2,            ///< the operator's stop
    Continue = 3,        ///< leaves a vamp, fermata or caesura and plays on
    NextSong = 4,        ///< in show order
    PreviousSong = 5,    ///< in show order
    NextMarker = 6,      ///< a seek to it
    PreviousMarker = 7,  ///< a seek to it
    ConductBeat = 8,     ///< names::conductBeat, with the moment of the beat
};

/// Stands for "whatever the value": a controller gives its command when it is at 64 or above, a note when it is struck.
constexpr unsigned char AnyValue = 0xFF;

/// The MIDI message that gives a command.
struct LearnedCommand {
    /// One of allowedStatuses, the channel included; 0 in an object that stands for none.
    unsigned char status = 0;
    /// The note's, controller's or program's number, 0 to 127; without meaning for a sequencer's messages.
    unsigned char data1 = 0;
    /// A value that must match, or AnyValue. A note's velocity 0 is AnyValue, too: it is not a note-on. Without meaning
    /// for messages that have no second data byte.
    unsigned char data2 = 0;
    /// False for one that was learned but not set: it is shown and gives nothing.
    bool isAssigned = true;

    /// All fields count.
    bool operator==(const LearnedCommand&) const = default;
};

/// The commands' names by number. Never destroyed.
extern const std::map<unsigned char, std::string>& commandNames;
/// The number of the command that has this name; nothing where none has it.
[[nodiscard]] std::optional<unsigned char> FindCommand(std::string_view name);

/// Callbacks of notify::callbackDispatcher beside those that are named there.
namespace names {
extern const std::string& conductBeat;  ///< payload: const std::chrono::nanoseconds*, the beat on the steady clock
extern const std::string& loadSong;     ///< payload: const std::string*, the number of the song
extern const std::string& locate;       ///< payload: const std::chrono::nanoseconds*, time code since 00:00:00:00
}  // namespace names

/// MIDI Show Control 1.0 and MIDI machine control, as far as a show is driven by them.
struct RemoteControl {
    /// Whether MIDI Show Control is heard: the formats of sound, 0x10 to 0x1F, and all types.
    bool showControl = false;
    /// Whether MIDI Machine Control is heard.
    bool machineControl = false;
    /// 0 to 111 for show control, 0 to 126 for machine control; 127, all devices, is heard in any case.
    unsigned char deviceNumber = 0;

    /// All fields count.
    bool operator==(const RemoteControl&) const = default;
};

/// Which kind of message a command came by.
enum class CommandDoor : unsigned char {
    LearnedMessage,  ///< one that is assigned to the command
    ShowControl,     ///< MIDI Show Control: a cue number is a song's
    MachineControl,  ///< MIDI Machine Control: stop, play, pause, locate
};

/// A command that a message gives, before its callback is called.
struct DeliveredCommand {
    /// The callback's name, of notify::names or midi_commands::names; never destroyed.
    const std::string& callbackName;
    /// By which kind of message it came.
    CommandDoor door = CommandDoor::LearnedMessage;
    std::chrono::nanoseconds arrival{0};             ///< the message's, on the steady clock
    std::optional<Command> command;                  ///< nothing for loadSong and locate
    std::optional<std::string> songNumber;           ///< loadSong's
    std::optional<std::chrono::nanoseconds> locate;  ///< locate's: time code since 00:00:00:00
    /// Whether its release will be reported: that of a note or a controller, not of a program change or a sequencer.
    bool hasRelease = false;
};

/// What gave a command was let go: the note's end, or the controller back on its other side of 64.
struct ReleasedCommand {
    /// What the press had given; one message may release several, each by itself.
    Command command = Play;
    std::chrono::nanoseconds arrival{0};  ///< the message's, on the steady clock
};

/// Whether the command's callback may be called. What it throws is logged and refuses the whole message.
using CommandFilter = std::function<bool(const DeliveredCommand&)>;
/// What it throws is logged.
using ReleaseListener = std::function<void(const ReleasedCommand&)>;

/// Which MIDI message gives which command, kept in a JSON file. A message that gives one is passed on through
/// notify::callbackDispatcher on the thread that delivers it. What changes the table writes the file before it returns
/// and throws std::runtime_error with a sentence where that fails; the change then holds for this run. Thread-safe;
/// every operation may wait for a file that another thread writes.
class MidiCommands {
public:
    /// `dispatcher` must outlive the object. A missing file means no commands; a bad one is reported in one sentence of
    /// std::runtime_error. The input that the file names is connected, now or when it comes.
    MidiCommands(MidiMessageDispatcher& dispatcher, const std::string& settingsPath);
    /// Waits for a message that is being delivered on another thread. The connection stays: it is the dispatcher's.
    ~MidiCommands();
    MidiCommands(const MidiCommands&) = delete;
    MidiCommands& operator=(const MidiCommands&) = delete;

    /// A sentence for each key of the file, as it was read, that is not known and was ignored.
    [[nodiscard]] std::vector<std::string> GetSettingsWarnings() const;

    /// The next allowed message is assigned to `command` and is not carried out. One that gives another command is
    /// refused with a sentence (GetLearnProblem), and learning goes on. An unknown command throws std::out_of_range.
    void LearnMidiCommand(unsigned char command);
    /// The same, but the message is only kept in the table of learned commands, not assigned, until SetMidiCommand.
    void LearnMidiCommandNoAssign(unsigned char command);
    /// Ends learning, if it goes on, and forgets what was learned but not assigned.
    void CancelLearning();
    /// False for an unknown command.
    [[nodiscard]] bool IsMidiCommandLearning(unsigned char command) const;
    /// Why the last message was not learned, or the file not written; empty if all is well.
    [[nodiscard]] std::string GetLearnProblem() const;

    /// What is assigned, and over it what was learned but not assigned.
    [[nodiscard]] std::map<unsigned char, LearnedCommand> GetLearnedCommands() const;
    /// Assigns a message. Throws std::invalid_argument with a sentence and changes nothing if a byte is out of its
    /// range or the message gives another command; std::out_of_range for an unknown command.
    void SetMidiCommand(unsigned char command, unsigned char status, unsigned char data1, unsigned char data2);
    /// Forgets what was learned or assigned, if anything; std::out_of_range for an unknown command.
    void UnsetMidiCommand(unsigned char command);
    /// Whether a message is assigned to the command that conducts the beat.
    [[nodiscard]] bool GetHasConductBeat() const;

    /// Sets who has a word before a command's callback is called, and who hears of releases; empty functions, as at
    /// first, let everything pass. Both are called on the thread that delivers, one call at a time, under no lock of
    /// this object: they may call all of it but the destructor. A message that asks for a song and then for a command
    /// or a place is asked for in that order, and ends where the song is refused, for the rest was meant for that song.
    /// What is taken for learning is not a command. A release is reported whether its press was let through or not,
    /// before a command that the same message gives. When this has returned, the functions before are not called any
    /// more, unless it was called from inside of one: it waits for a call on another thread.
    void SetCommandFilter(CommandFilter filter, ReleaseListener released = {});

    /// Throws std::invalid_argument with a sentence for a device number above 126.
    void SetRemoteControl(const RemoteControl& remoteControl);

    /// Connects the dispatcher to the input of that index and keeps the input's name. Throws std::out_of_range with a
    /// sentence if there is none. Blocks as the dispatcher's own operations do.
    void ConnectSourceByIndex(unsigned char index);
    /// Disconnects, also for the next time. Waits for a message that is being delivered on another thread.
    void ForgetSource();

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

/// "note 60 on channel 1". Any thread; any bytes.
[[nodiscard]] std::string DescribeMessage(const LearnedCommand& message);

}  // namespace tavo_midi::midi_commands

namespace midi_commands = tavo_midi::midi_commands;
