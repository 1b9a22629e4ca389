#include "tavo_midi/midi_commands.h"

#include <fmt/format.h>

#include <exception>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <utility>

#include "midi_command_settings.h"
#include "remote_control_messages.h"
#include "tavo_core/callback_dispatcher.h"

namespace tavo_midi::midi_commands {

namespace {

using Bytes = std::span<const unsigned char>;

bool Matches(const LearnedCommand& wanted, Bytes message) {
    if (!wanted.isAssigned || message[0] != wanted.status) return false;
    if (wanted.status >= 0xF0) return true;
    if (message[1] != wanted.data1) return false;
    if (!HasValue(wanted.status)) return true;
    const bool isNote = (wanted.status & 0xF0U) == 0x90;
    // A note-on with velocity 0 is a release and gives nothing.
    if (isNote && message[2] == 0) return false;
    if (HasAnyValue(wanted)) return isNote || message[2] >= 64;
    return message[2] == wanted.data2;
}

/// The message as it is learned: a note without its velocity, for nobody strikes twice alike.
std::optional<LearnedCommand> MakeLearned(Bytes message) {
    if (!allowedStatuses.contains(message[0])) return std::nullopt;
    LearnedCommand learned{message[0], message.size() > 1 ? message[1] : static_cast<unsigned char>(0), 0};
    const bool isNote = (learned.status & 0xF0U) == 0x90;
    if (isNote && message[2] == 0) return std::nullopt;
    if (HasValue(learned.status)) learned.data2 = isNote ? AnyValue : message[2];
    return learned;
}

void CheckCommand(unsigned char command) {
    if (!commandNames.contains(command))
        throw std::out_of_range(
            fmt::format("There is no MIDI command {}: the last one is {}.", command, commandNames.rbegin()->first));
}

void Notify(unsigned char command, std::chrono::nanoseconds arrival) {
    static const std::map<unsigned char, const std::string*> callbackNames{
        {Play, &notify::names::midiCommandPlay},
        {Pause, &notify::names::midiCommandPause},
        {Stop, &notify::names::midiCommandStop},
        {Continue, &notify::names::midiCommandContinue},
        {NextSong, &notify::names::midiCommandNextSong},
        {PreviousSong, &notify::names::midiCommandPreviousSong},
        {NextMarker, &notify::names::midiCommandNextMarker},
        {PreviousMarker, &notify::names::midiCommandPreviousMarker},
        {ConductBeat, &names::conductBeat},
    };
    notify::callbackDispatcher.Notify(*callbackNames.at(command), command == ConductBeat ? &arrival : nullptr);
}

void Notify(RemoteRequest& request, std::chrono::nanoseconds arrival) {
    if (request.songNumber) notify::callbackDispatcher.Notify(names::loadSong, &*request.songNumber);
    if (request.command) Notify(*request.command, arrival);
    if (request.locate) notify::callbackDispatcher.Notify(names::locate, &*request.locate);
}

}  // namespace

const std::map<unsigned char, std::string> commandNames{
    {Play, "Play"},
    {Pause, "Pause"},
    {Stop, "Stop"},
    {Continue, "Continue"},
    {NextSong, "Next Song"},
    {PreviousSong, "Previous Song"},
    {NextMarker, "Next Marker"},
    {PreviousMarker, "Previous Marker"},
    {ConductBeat, "Conduct Beat"},
};

// Never destroyed, as the names of the dispatcher's own callbacks.
namespace names {
const std::string& conductBeat = *new std::string("midiCommandConductBeat");
const std::string& loadSong = *new std::string("midiLoadSong");
const std::string& locate = *new std::string("midiLocate");
}  // namespace names

struct MidiCommands::Impl {
    struct Learning {
        unsigned char command;
        bool assigns;
    };

    MidiMessageDispatcher& dispatcher;
    const std::string settingsPath;

    // Taken after the dispatcher's locks; nothing is called back under it.
    mutable std::mutex mutex;
    // Guarded by mutex:
    CommandSettings settings;
    std::map<unsigned char, LearnedCommand> unassigned;
    std::optional<Learning> learning;
    std::string learnProblem;

    void Save() const { WriteCommandSettings(settingsPath, settings); }

    void StartLearning(unsigned char command, bool assigns) {
        CheckCommand(command);
        const std::lock_guard lock(mutex);
        learning = Learning{command, assigns};
        learnProblem.clear();
    }

    /// Whether the message was taken for learning. Called under the lock.
    bool Learn(Bytes message) {
        if (!learning) return false;
        const auto learned = MakeLearned(message);
        if (!learned) return false;
        learnProblem = FindProblem(settings.commands, learning->command, *learned);
        if (!learnProblem.empty()) return true;
        const auto [command, assigns] = *std::exchange(learning, std::nullopt);
        if (!assigns) {
            unassigned[command] = *learned;
            unassigned[command].isAssigned = false;
            return true;
        }
        settings.commands[command] = *learned;
        unassigned.erase(command);
        try {
            Save();
        } catch (const std::exception& problem) {
            // There is no caller to tell: the message came from a port.
            learnProblem = problem.what();
        }
        return true;
    }

    void Receive(Bytes message, std::chrono::nanoseconds arrival) {
        std::optional<unsigned char> given;
        RemoteControl remoteControl;
        {
            const std::lock_guard lock(mutex);
            if (Learn(message)) return;
            remoteControl = settings.remoteControl;
            for (const auto& [command, wanted] : settings.commands) {
                if (Matches(wanted, message)) given = command;
            }
        }
        if (given) return Notify(*given, arrival);
        if (auto request = ReadRemoteMessage(message, remoteControl)) Notify(*request, arrival);
    }
};

MidiCommands::MidiCommands(MidiMessageDispatcher& dispatcher, const std::string& settingsPath)
    : impl_(new Impl{dispatcher, settingsPath, {}, ReadCommandSettings(settingsPath), {}, {}, {}}) {
    dispatcher.AddListener(impl_.get(), [impl = impl_.get()](Bytes message, std::chrono::nanoseconds arrival) {
        impl->Receive(message, arrival);
    });
    if (!impl_->settings.sourceName.empty()) dispatcher.ConnectSourceByName(impl_->settings.sourceName);
}

MidiCommands::~MidiCommands() {
    impl_->dispatcher.RemoveListener(impl_.get());
}

void MidiCommands::LearnMidiCommand(unsigned char command) {
    impl_->StartLearning(command, true);
}

void MidiCommands::LearnMidiCommandNoAssign(unsigned char command) {
    impl_->StartLearning(command, false);
}

void MidiCommands::CancelLearning() {
    const std::lock_guard lock(impl_->mutex);
    impl_->learning.reset();
    impl_->unassigned.clear();
    impl_->learnProblem.clear();
}

bool MidiCommands::IsMidiCommandLearning(unsigned char command) const {
    const std::lock_guard lock(impl_->mutex);
    return impl_->learning && impl_->learning->command == command;
}

std::string MidiCommands::GetLearnProblem() const {
    const std::lock_guard lock(impl_->mutex);
    return impl_->learnProblem;
}

std::map<unsigned char, LearnedCommand> MidiCommands::GetLearnedCommands() const {
    const std::lock_guard lock(impl_->mutex);
    auto all = impl_->unassigned;
    all.insert(impl_->settings.commands.begin(), impl_->settings.commands.end());
    return all;
}

void MidiCommands::SetMidiCommand(unsigned char command, unsigned char status, unsigned char data1,
                                  unsigned char data2) {
    CheckCommand(command);
    const LearnedCommand message{status, data1, data2};
    const std::lock_guard lock(impl_->mutex);
    const std::string problem = FindProblem(impl_->settings.commands, command, message);
    if (!problem.empty()) throw std::invalid_argument(problem);
    impl_->settings.commands[command] = message;
    impl_->unassigned.erase(command);
    impl_->Save();
}

void MidiCommands::UnsetMidiCommand(unsigned char command) {
    CheckCommand(command);
    const std::lock_guard lock(impl_->mutex);
    impl_->unassigned.erase(command);
    if (impl_->settings.commands.erase(command) != 0) impl_->Save();
}

bool MidiCommands::GetHasConductBeat() const {
    const std::lock_guard lock(impl_->mutex);
    return impl_->settings.commands.contains(ConductBeat);
}

RemoteControl MidiCommands::GetRemoteControl() const {
    const std::lock_guard lock(impl_->mutex);
    return impl_->settings.remoteControl;
}

void MidiCommands::SetRemoteControl(const RemoteControl& remoteControl) {
    if (remoteControl.deviceNumber > 126)
        throw std::invalid_argument(
            fmt::format("{} is not a device number: it is above 126.", remoteControl.deviceNumber));
    const std::lock_guard lock(impl_->mutex);
    impl_->settings.remoteControl = remoteControl;
    impl_->Save();
}

void MidiCommands::ConnectSourceByIndex(unsigned char index) {
    impl_->dispatcher.ConnectSourceByIndex(index);
    const std::string name = impl_->dispatcher.GetPortName();
    const std::lock_guard lock(impl_->mutex);
    impl_->settings.sourceName = name;
    impl_->Save();
}

void MidiCommands::ForgetSource() {
    impl_->dispatcher.Disconnect();
    const std::lock_guard lock(impl_->mutex);
    impl_->settings.sourceName.clear();
    impl_->Save();
}

std::string DescribeMessage(const LearnedCommand& message) {
    const unsigned int channel = (message.status & 0x0FU) + 1;
    const std::string value = HasAnyValue(message) ? std::string() : fmt::format(" at {}", message.data2);
    switch (message.status & 0xF0U) {
        case 0x90:
            return fmt::format("note {}{} on channel {}", message.data1, value, channel);
        case 0xB0:
            return fmt::format("controller {}{} on channel {}", message.data1, value, channel);
        case 0xC0:
            return fmt::format("program {} on channel {}", message.data1, channel);
        default:
            break;
    }
    if (message.status == 0xFA) return "a sequencer's start";
    if (message.status == 0xFB) return "a sequencer's continue";
    if (message.status == 0xFC) return "a sequencer's stop";
    return fmt::format("a message with status {}", message.status);
}

}  // namespace tavo_midi::midi_commands
