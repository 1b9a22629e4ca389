#include "remote_control_messages.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

#include "tavo_midi/machine_control.h"
#include "tavo_midi/time_code.h"

namespace tavo_midi::midi_commands {

namespace {

using Bytes = std::span<const unsigned char>;

constexpr unsigned char AllDevices = 0x7F;
constexpr std::size_t TimeBytes = 5;

/// The cue number at the front of `data`: digits and points up to a zero byte or the end. A list and a path may follow.
std::optional<std::string> ReadCueNumber(Bytes data) {
    const auto end = std::find(data.begin(), data.end(), 0);
    std::string number(data.begin(), end);
    const bool isNumber = number.find_first_not_of("0123456789.") == std::string::npos;
    if (number.empty() || !isNumber) return std::nullopt;
    return number;
}

/// Show Control: the data after `F0 7F device 02 format`, without the end.
std::optional<RemoteRequest> ReadShowControl(unsigned char command, Bytes data) {
    RemoteRequest request;
    switch (command) {
        case 0x04:  // TIMED_GO: the time of the transition means nothing to a song
            if (data.size() < TimeBytes) return std::nullopt;
            data = data.subspan(TimeBytes);
            [[fallthrough]];
        case 0x01:  // GO
            request.command = Play;
            break;
        case 0x02:  // STOP halts so that RESUME can go on
            request.command = Pause;
            break;
        case 0x03:  // RESUME
            request.command = Play;
            break;
        case 0x05:  // LOAD
            break;
        case 0x08:  // ALL_OFF
        case 0x0A:  // RESET
            request.command = Stop;
            return request;
        default:
            return std::nullopt;
    }
    const bool namesSong = command == 0x01 || command == 0x04 || command == 0x05;
    if (namesSong) request.songNumber = ReadCueNumber(data);
    const bool isDamaged = namesSong && !request.songNumber && !data.empty();
    if (isDamaged || (command == 0x05 && !request.songNumber)) return std::nullopt;
    return request;
}

/// The time of a locate: `06 01 hr mn sc fr ff`, the frame rate in the hours' upper bits.
std::optional<std::chrono::nanoseconds> ReadLocate(Bytes data) {
    if (data.size() < 7 || data[0] < 6 || data[1] != 0x01) return std::nullopt;
    const auto frameRate = static_cast<FrameRate>(data[2] >> 5U & 3U);
    const TimeCode timeCode{data[2] & 0x1F, data[3], data[4], data[5] & 0x1F};
    if (!IsTimeCode(timeCode, frameRate)) return std::nullopt;
    return std::chrono::nanoseconds(
        ConvertFramesToNanoseconds(ConvertTimeCodeToFrames(timeCode, frameRate), frameRate));
}

/// One command of machine control.
RemoteRequest ReadMachineControl(Bytes command) {
    RemoteRequest request{CommandDoor::MachineControl, {}, {}, {}, {}};
    switch (command[0]) {
        case 0x01:
            request.command = Stop;
            return request;
        case 0x02:
        case 0x03:  // play as soon as a locate is done; ours are done at once
            request.command = Play;
            return request;
        case 0x09:
            request.command = Pause;
            return request;
        case 0x44:
            request.locate = ReadLocate(command.subspan(1));
            if (!request.locate) request.refusal = "a locate of machine control names no time and is ignored";
            return request;
        default:
            request.refusal =
                fmt::format("the machine control command {:02X} is not known and is ignored", fmt::join(command, " "));
            return request;
    }
}

/// The data after `F0 7F device 06`, without the end.
std::vector<RemoteRequest> ReadMachineControls(Bytes data) {
    std::vector<RemoteRequest> requests;
    for (const Bytes command : SplitMachineControl(data))
        requests.push_back(ReadMachineControl(command));
    return requests;
}

}  // namespace

std::vector<RemoteRequest> ReadRemoteMessage(Bytes message, const RemoteControl& remoteControl) {
    const bool isRealTimeUniversal =
        message.size() >= 6 && message[0] == 0xF0 && message[1] == 0x7F && message.back() == 0xF7;
    if (!isRealTimeUniversal) return {};
    if (message[2] != remoteControl.deviceNumber && message[2] != AllDevices) return {};
    const Bytes rest = message.subspan(4, message.size() - 5);
    constexpr unsigned char ShowControl = 0x02;
    constexpr unsigned char MachineControl = 0x06;
    if (message[3] == ShowControl && remoteControl.showControl && rest.size() >= 2) {
        const bool isForUs = rest[0] == AllDevices || (rest[0] & 0xF0U) == 0x10;  // all types, and sound
        const auto request = isForUs ? ReadShowControl(rest[1], rest.subspan(2)) : std::nullopt;
        if (request) return {*request};
    }
    if (message[3] == MachineControl && remoteControl.machineControl) return ReadMachineControls(rest);
    return {};
}

}  // namespace tavo_midi::midi_commands
