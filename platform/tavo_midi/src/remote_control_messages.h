#pragma once

#include <chrono>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "tavo_midi/midi_commands.h"

namespace tavo_midi::midi_commands {

/// What a message of MIDI Show Control or machine control asks for, in this order: load a song, then the command, then
/// locate.
struct RemoteRequest {
    CommandDoor door = CommandDoor::ShowControl;
    std::optional<std::string> songNumber;
    std::optional<Command> command;
    std::optional<std::chrono::nanoseconds> locate;
    /// Why there is nothing to do, one sentence; empty where there is.
    std::string refusal;
};

/// What the message asks of this device, in order: a message of machine control may hold several commands. Nothing if
/// it is another kind of message, for another device, or not enabled. Commands of machine control that are not known or
/// damaged are requests with a refusal; behind one that is cut off there is nothing more.
[[nodiscard]] std::vector<RemoteRequest> ReadRemoteMessage(std::span<const unsigned char> message,
                                                           const RemoteControl& remoteControl);

}  // namespace tavo_midi::midi_commands
