#include "stage/cli/midi_describer.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <string_view>
#include <vector>

#include "tavo_midi/machine_control.h"
#include "tavo_midi/time_code.h"

namespace {

using Bytes = std::span<const unsigned char>;
using tavo_midi::TimeCode;

struct Named {
    unsigned char number;
    std::string_view name;
};

constexpr unsigned char ToAllDevices = 0x7F;
constexpr std::size_t BytesOfTime = 5;

constexpr Named ShowCommands[] = {{0x01, "GO"},
                                  {0x02, "STOP"},
                                  {0x03, "RESUME"},
                                  {0x04, "TIMED_GO"},
                                  {0x05, "LOAD"},
                                  {0x06, "SET"},
                                  {0x07, "FIRE"},
                                  {0x08, "ALL_OFF"},
                                  {0x09, "RESTORE"},
                                  {0x0A, "RESET"},
                                  {0x0B, "GO_OFF"},
                                  {0x10, "GO/JAM_CLOCK"},
                                  {0x11, "STANDBY_+"},
                                  {0x12, "STANDBY_-"},
                                  {0x13, "SEQUENCE_+"},
                                  {0x14, "SEQUENCE_-"},
                                  {0x15, "START_CLOCK"},
                                  {0x16, "STOP_CLOCK"},
                                  {0x17, "ZERO_CLOCK"},
                                  {0x18, "SET_CLOCK"},
                                  {0x19, "MTC_CHASE_ON"},
                                  {0x1A, "MTC_CHASE_OFF"},
                                  {0x1B, "OPEN_CUE_LIST"},
                                  {0x1C, "CLOSE_CUE_LIST"},
                                  {0x1D, "OPEN_CUE_PATH"},
                                  {0x1E, "CLOSE_CUE_PATH"}};

constexpr Named MachineCommands[] = {{0x01, "stop"},
                                     {0x02, "play"},
                                     {0x03, "deferred play"},
                                     {0x04, "fast forward"},
                                     {0x05, "rewind"},
                                     {0x06, "record strobe"},
                                     {0x07, "record exit"},
                                     {0x08, "record pause"},
                                     {0x09, "pause"},
                                     {0x0A, "eject"},
                                     {0x0B, "chase"},
                                     {0x0C, "command error reset"},
                                     {0x0D, "reset"},
                                     {0x40, "write"},
                                     {0x41, "masked write"},
                                     {0x42, "read"},
                                     {0x43, "update"},
                                     {0x44, "locate"},
                                     {0x45, "variable play"},
                                     {0x46, "search"},
                                     {0x47, "shuttle"},
                                     {0x48, "step"},
                                     {0x49, "assign system master"},
                                     {0x4A, "generator command"},
                                     {0x4B, "time code command"},
                                     {0x4C, "move"},
                                     {0x4D, "add"},
                                     {0x4E, "subtract"},
                                     {0x4F, "drop frame adjust"},
                                     {0x50, "procedure"},
                                     {0x51, "event"},
                                     {0x52, "group"},
                                     {0x53, "command segment"},
                                     {0x54, "deferred variable play"},
                                     {0x55, "record strobe variable"},
                                     {0x7C, "wait"},
                                     {0x7F, "resume"}};

/// By the upper half of the command format's number.
constexpr std::string_view Kinds[] = {"lighting",   "sound",           "machinery",   "video",
                                      "projection", "process control", "pyrotechnics"};

template <std::size_t count>
std::string NameOf(unsigned char number, const Named (&table)[count]) {
    const auto* found =
        std::find_if(std::begin(table), std::end(table), [number](const Named& each) { return each.number == number; });
    return found == std::end(table) ? fmt::format("command {:02X}", number) : std::string(found->name);
}

std::string ListBytes(Bytes bytes) {
    std::string text;
    for (const unsigned char byte : bytes)
        text += fmt::format(" {:02X}", byte);
    return text;
}

std::string DescribeDevice(unsigned char device) {
    return device == ToAllDevices ? "all devices" : fmt::format("device {}", device);
}

/// "01:02:03:04 at 25 frames a second"; the hours carry the frame rate. Or what it is instead.
std::string DescribeTimeCode(unsigned char hours, unsigned char minutes, unsigned char seconds, unsigned char frames) {
    const auto rate = static_cast<FrameRate>(hours >> 5U & 3U);
    const TimeCode timeCode{hours & 0x1F, minutes, seconds, frames};
    if (!tavo_midi::IsTimeCode(timeCode, rate))
        return fmt::format("{:02}:{:02}:{:02}:{:02}, which {} frames a second do not have", timeCode.hours,
                           timeCode.minutes, timeCode.seconds, timeCode.frames, ConvertFrameRateToString(rate));
    return fmt::format("{} at {} frames a second", tavo_midi::ConvertTimeCodeToString(timeCode, rate),
                       ConvertFrameRateToString(rate));
}

/// The time that `data` begins with: hours, minutes, seconds, frames and what is finer.
std::string DescribeTime(Bytes data) {
    return DescribeTimeCode(data[0], data[1], data[2], data[3] & 0x1FU);
}

/// " cue 12.5 of list 1 of path 2": texts that zero bytes part.
std::string DescribeCue(Bytes data) {
    std::string text;
    for (const std::string_view word : {" cue ", " of list ", " of path "}) {
        if (data.empty()) break;
        const auto end = std::find(data.begin(), data.end(), 0);
        const std::string number(data.begin(), end);
        if (number.find_first_not_of("0123456789.") != std::string::npos) return " data" + ListBytes(data);
        if (!number.empty()) text += std::string(word) + number;
        data = data.subspan(std::min(data.size(), number.size() + 1));
    }
    return text;
}

std::string DescribeShowData(unsigned char command, Bytes data) {
    switch (command) {
        case 0x01:
        case 0x02:
        case 0x03:
        case 0x05:
        case 0x0B:
        case 0x10:
            return DescribeCue(data);
        case 0x04:
            if (data.size() < BytesOfTime) return ", cut off";
            return fmt::format("{} in {}", DescribeCue(data.subspan(BytesOfTime)), DescribeTime(data));
        case 0x07:
            return data.empty() ? ", cut off" : fmt::format(" macro {}", data[0]);
        default:
            return data.empty() ? "" : " data" + ListBytes(data);
    }
}

/// What is behind `F0 7F device 02`.
std::string DescribeShowControl(unsigned char device, Bytes data) {
    if (data.size() < 2) return fmt::format("show control to {}, cut off", DescribeDevice(device));
    const std::size_t kind = data[0] >> 4U;
    const std::string to = data[0] == ToAllDevices   ? "all types"
                           : kind < std::size(Kinds) ? std::string(Kinds[kind])
                                                     : fmt::format("type {:02X}", data[0]);
    return fmt::format("show control to {}, {}: {}{}", DescribeDevice(device), to, NameOf(data[1], ShowCommands),
                       DescribeShowData(data[1], data.subspan(2)));
}

std::string DescribeMachineCommand(Bytes command) {
    if (command[0] == 0x00) return "a further command" + ListBytes(command);
    std::string text = NameOf(command[0], MachineCommands);
    const Bytes data = command.size() > 2 ? command.subspan(2) : Bytes();
    const bool isToATime = command[0] == 0x44 && data.size() > BytesOfTime && data[0] == 0x01;
    if (isToATime) return text + " to " + DescribeTime(data.subspan(1));
    return data.empty() ? text : text + ListBytes(data);
}

/// What is behind `F0 7F device 06`.
std::string DescribeMachineControl(unsigned char device, Bytes data) {
    std::string text;
    std::size_t described = 0;
    for (const Bytes command : tavo_midi::SplitMachineControl(data)) {
        text += (text.empty() ? "" : "; ") + DescribeMachineCommand(command);
        described += command.size();
    }
    if (described < data.size() || data.empty()) text += text.empty() ? "cut off" : "; the rest is cut off";
    return fmt::format("machine control to {}: {}", DescribeDevice(device), text);
}

}  // namespace

std::string MidiDescriber::Describe(Bytes message) {
    if (message.size() == 2 && message[0] == 0xF1) return DescribeQuarterFrame_(message[1]);
    const bool isRealTimeUniversal =
        message.size() >= 5 && message[0] == 0xF0 && message[1] == 0x7F && message.back() == 0xF7;
    if (!isRealTimeUniversal) return "";
    const Bytes data = message.subspan(4, message.size() - 5);
    switch (message[3]) {
        case 0x01:
            if (data.size() != BytesOfTime || data[0] != 0x01) return "";
            piecesInOrder_ = 0;
            return "time code " + DescribeTimeCode(data[1], data[2], data[3], data[4]) + ", full frame";
        case 0x02:
            return DescribeShowControl(message[2], data);
        case 0x06:
            return DescribeMachineControl(message[2], data);
        case 0x07:
            return fmt::format("machine control, a response of {}", DescribeDevice(message[2]));
        default:
            return "";
    }
}

std::string MidiDescriber::DescribeQuarterFrame_(unsigned char data) {
    const int piece = data >> 4U & 7U;
    const int step = piece == (lastPiece_ + 1) % 8 ? 1 : piece == (lastPiece_ + 7) % 8 ? -1 : 0;
    const bool goesOn = lastPiece_ >= 0 && step != 0 && (direction_ == 0 || step == direction_ || piecesInOrder_ == 0);
    lastPiece_ = piece;
    direction_ = goesOn ? step : 0;
    piecesInOrder_ = goesOn ? piecesInOrder_ + 1 : 1;
    halves_[static_cast<std::size_t>(piece)] = data & 0x0FU;
    const bool isLast = piecesInOrder_ >= 8 && piece == (direction_ > 0 ? 7 : 0);
    if (!isLast) return "";
    piecesInOrder_ = 0;
    const auto whole = [this](std::size_t low) {
        return static_cast<unsigned char>(halves_[low] | halves_[low + 1] << 4U);
    };
    return fmt::format("time code {}{}", DescribeTimeCode(whole(6), whole(4), whole(2), whole(0)),
                       direction_ > 0 ? "" : ", running backwards");
}
