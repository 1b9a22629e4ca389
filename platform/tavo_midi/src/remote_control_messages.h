#pragma once

#include <chrono>
#include <optional>
#include <span>
#include <string>

#include "tavo_midi/midi_commands.h"

namespace tavo_midi::midi_commands {

/// What a message of MIDI Show Control or machine control asks for, in this order: load a song, then the command, then
/// locate.
struct RemoteRequest {
    CommandDoor door = CommandDoor::ShowControl;
    std::optional<std::string> songNumber;
    std::optional<Command> command;
    std::optional<std::chrono::nanoseconds> locate;
};

/// What the message asks of this device; nothing if it is another kind of message, for another device, not enabled, not
/// understood or damaged.
[[nodiscard]] std::optional<RemoteRequest> ReadRemoteMessage(std::span<const unsigned char> message,
                                                             const RemoteControl& remoteControl);

}  // namespace tavo_midi::midi_commands
