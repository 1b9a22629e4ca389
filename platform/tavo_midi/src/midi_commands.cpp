#include "tavo_midi/midi_commands.h"

#include <fmt/format.h>

#include <exception>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

#include "midi_command_settings.h"
#include "remote_control_messages.h"
#include "replaceable.h"
#include "tavo_core/callback_dispatcher.h"
#include "tavo_core/tavo_log_exception.h"

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

/// Whether what gives the command was let go.
bool IsRelease(const LearnedCommand& wanted, Bytes message) {
    if (!wanted.isAssigned || !HasValue(wanted.status) || message.size() < 3 || message[1] != wanted.data1)
        return false;
    const bool isSameStatus = message[0] == wanted.status;
    if ((wanted.status & 0xF0U) == 0x90)
        return message[0] == (wanted.status & 0x8FU) || (isSameStatus && message[2] == 0);
    // A pedal that gives its command at a low value rests at a high one.
    const bool restsHigh = !HasAnyValue(wanted) && wanted.data2 < 64;
    return isSameStatus && (message[2] >= 64) == restsHigh;
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
            fmt::format("there is no MIDI command {}: the last one is {}", command, commandNames.rbegin()->first));
}

const std::string& GetCallbackName(Command command) {
    switch (command) {
        case Play:
            return notify::names::midiCommandPlay;
        case Pause:
            return notify::names::midiCommandPause;
        case Stop:
            return notify::names::midiCommandStop;
        case Continue:
            return notify::names::midiCommandContinue;
        case NextSong:
            return notify::names::midiCommandNextSong;
        case PreviousSong:
            return notify::names::midiCommandPreviousSong;
        case NextMarker:
            return notify::names::midiCommandNextMarker;
        case PreviousMarker:
            return notify::names::midiCommandPreviousMarker;
        case ConductBeat:
            break;
    }
    return names::conductBeat;
}

}  // namespace

// The tables are never destroyed: threads may read them until the very end of the process.
const std::map<unsigned char, std::string>& commandNames = *new std::map<unsigned char, std::string>{
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

std::optional<unsigned char> FindCommand(std::string_view name) {
    for (const auto& [command, commandName] : commandNames)
        if (commandName == name) return command;
    return std::nullopt;
}

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

    /// What the host has to say.
    struct Word {
        CommandFilter filter;
        ReleaseListener released;
    };

    Impl(MidiMessageDispatcher& from, const std::string& path)
        : dispatcher(from), settingsPath(path), settings(ReadCommandSettings(path)) {}

    MidiMessageDispatcher& dispatcher;
    const std::string settingsPath;

    // Taken after the dispatcher's locks; nothing is called back under it.
    mutable std::mutex mutex;
    // Guarded by mutex:
    CommandSettings settings;
    std::map<unsigned char, LearnedCommand> unassigned;
    std::optional<Learning> learning;
    std::string learnProblem;

    // Synchronises itself.
    Replaceable<Word> word;

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
            // There is no caller to report to: the message came from a port.
            learnProblem = problem.what();
        }
        return true;
    }

    void Receive(Bytes message, std::chrono::nanoseconds arrival) {
        std::optional<LearnedCommand> pressed;
        Command given = Play;
        std::vector<Command> released;
        RemoteControl remoteControl;
        {
            const std::lock_guard lock(mutex);
            if (Learn(message)) return;
            remoteControl = settings.remoteControl;
            for (const auto& [number, wanted] : settings.commands) {
                const auto command = static_cast<Command>(number);
                if (IsRelease(wanted, message)) released.push_back(command);
                if (!Matches(wanted, message)) continue;
                pressed = wanted;
                given = command;
            }
        }
        for (const Command command : released)
            Release(command, arrival);
        if (pressed) return Give(given, CommandDoor::LearnedMessage, arrival, HasValue(pressed->status));
        for (RemoteRequest& request : ReadRemoteMessage(message, remoteControl))
            GiveOrLog(request, arrival);
    }

    /// A listener that throws does not keep the message from giving its own command.
    void Release(Command command, std::chrono::nanoseconds arrival) {
        try {
            word.With([&](const Word* host) {
                if (host != nullptr && host->released) host->released({command, arrival});
            });
        } catch (const std::exception& problem) {
            TavoLogException(problem.what(), __FILE__, __LINE__);
        } catch (...) {
            TavoLogException("Unknown exception.", __FILE__, __LINE__);
        }
    }

    /// Whether the host lets the command pass.
    bool Asks(const DeliveredCommand& command) {
        return word.With([&](const Word* host) { return host == nullptr || !host->filter || host->filter(command); });
    }

    void Give(Command command, CommandDoor door, std::chrono::nanoseconds arrival, bool hasRelease) {
        const std::string& name = GetCallbackName(command);
        if (!Asks({name, door, arrival, command, {}, {}, hasRelease})) return;
        notify::callbackDispatcher.Notify(name, command == ConductBeat ? &arrival : nullptr);
    }

    /// What one of a message's commands throws does not keep the next from being given.
    void GiveOrLog(RemoteRequest& request, std::chrono::nanoseconds arrival) {
        try {
            Give(request, arrival);
        } catch (const std::exception& problem) {
            TavoLogException(problem.what(), __FILE__, __LINE__);
        } catch (...) {
            TavoLogException("Unknown exception.", __FILE__, __LINE__);
        }
    }

    void Give(RemoteRequest& request, std::chrono::nanoseconds arrival) {
        if (!request.refusal.empty()) throw std::runtime_error(request.refusal);
        if (request.songNumber) {
            if (!Asks({names::loadSong, request.door, arrival, {}, request.songNumber, {}, false})) return;
            notify::callbackDispatcher.Notify(names::loadSong, &*request.songNumber);
        }
        if (request.command) Give(*request.command, request.door, arrival, false);
        if (!request.locate) return;
        if (!Asks({names::locate, request.door, arrival, {}, {}, request.locate, false})) return;
        notify::callbackDispatcher.Notify(names::locate, &*request.locate);
    }
};

MidiCommands::MidiCommands(MidiMessageDispatcher& dispatcher, const std::string& settingsPath)
    : impl_(std::make_unique<Impl>(dispatcher, settingsPath)) {
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

std::vector<std::string> MidiCommands::GetSettingsWarnings() const {
    const std::lock_guard lock(impl_->mutex);
    return impl_->settings.warnings;
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

void MidiCommands::SetCommandFilter(CommandFilter filter, ReleaseListener released) {
    std::shared_ptr<const Impl::Word> word;
    if (filter || released) word = std::make_shared<Impl::Word>(Impl::Word{std::move(filter), std::move(released)});
    impl_->word.Set(std::move(word));
}

void MidiCommands::SetRemoteControl(const RemoteControl& remoteControl) {
    if (remoteControl.deviceNumber > 126)
        throw std::invalid_argument(
            fmt::format("{} is not a device number: it is above 126", remoteControl.deviceNumber));
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
