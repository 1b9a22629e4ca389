#pragma once

#include <map>
#include <memory>
#include <string>

#include "tavo_midi/midi_message_dispatcher.h"

namespace tavo_midi::midi_commands {

/// The MIDI message that gives a command.
struct LearnedCommand {
    unsigned char status = 0;
    unsigned char data1 = 0;
    unsigned char data2 = 0;

    bool operator==(const LearnedCommand&) const = default;
};

/// The commands by number.
extern const std::map<unsigned char, std::string> commandNames;

/// Which MIDI message gives which command, kept in a JSON file. A message that gives one is passed on through
/// notify::callbackDispatcher on the thread that delivers it. Thread-safe.
class MidiCommands {
public:
    /// `dispatcher` must outlive the object. A missing file means no commands; a bad one is reported in one sentence of
    /// std::runtime_error.
    MidiCommands(MidiMessageDispatcher& dispatcher, const std::string& settingsPath);
    ~MidiCommands();
    MidiCommands(const MidiCommands&) = delete;
    MidiCommands& operator=(const MidiCommands&) = delete;

    /// The next allowed message is learned for `command` and is not carried out.
    void LearnMidiCommandNoAssign(unsigned char command);
    [[nodiscard]] bool IsMidiCommandLearning(unsigned char command) const;
    [[nodiscard]] std::map<unsigned char, LearnedCommand> GetLearnedCommands() const;
    void SetMidiCommand(unsigned char command, unsigned char status, unsigned char data1, unsigned char data2);
    void UnsetMidiCommand(unsigned char command);
    /// Whether a message is assigned to the command that conducts the beat.
    [[nodiscard]] bool GetHasConductBeat() const;
    /// Connects the dispatcher to the input of that index.
    void ConnectSourceByIndex(unsigned char index);

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace tavo_midi::midi_commands

namespace midi_commands = tavo_midi::midi_commands;
