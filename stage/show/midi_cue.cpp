#include "stage/show/midi_cue.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <iterator>
#include <limits>
#include <span>
#include <stdexcept>
#include <string_view>

#include "kit/words.h"

namespace stage {

namespace {

using Bytes = std::vector<unsigned char>;
using Arguments = std::vector<CL::OscArgument>;

constexpr int HighestData = 127;
constexpr std::size_t LongestCueText = 32;

struct ShowCommand {
    std::string_view word;
    unsigned char number;
    bool takesCue;
};

/// MIDI Show Control 1.0, the general commands; those that take a cue may do without.
constexpr ShowCommand MidiShowCommands[] = {
    {"go", 0x01, true},       {"stop", 0x02, true},     {"resume", 0x03, true}, {"load", 0x05, true},
    {"all-off", 0x08, false}, {"restore", 0x09, false}, {"reset", 0x0A, false}, {"go-off", 0x0B, true},
};

struct DeviceKind {
    std::string_view word;
    unsigned char number;
};

constexpr DeviceKind DeviceKinds[] = {
    {"lighting", 0x01},   {"moving-lights", 0x02},   {"sound", 0x10},        {"machinery", 0x20}, {"video", 0x30},
    {"projection", 0x40}, {"process-control", 0x50}, {"pyrotechnics", 0x60}, {"all", 0x7F},
};

template <class Row, std::size_t count>
const Row& FindWord(const Row (&rows)[count], const std::string& word, std::string_view what) {
    const auto* const found = std::ranges::find(rows, std::string_view(word), &Row::word);
    if (found != std::end(rows)) return *found;
    std::string words;
    for (const Row& row : rows)
        words += fmt::format("{}{}", words.empty() ? "" : ", ", row.word);
    throw std::invalid_argument(fmt::format("{} {} is none of {}", what, kit::Quote(word), words));
}

unsigned char TakeNumber(const Arguments& arguments, std::size_t at, std::string_view what, int lowest, int highest) {
    double number = std::numeric_limits<double>::quiet_NaN();
    if (at < arguments.size()) {
        if (const auto* const whole = std::get_if<int>(&arguments[at])) number = *whole;
        if (const auto* const real = std::get_if<float>(&arguments[at])) number = static_cast<double>(*real);
    }
    if (!(number >= lowest && number <= highest) || number != std::round(number))
        throw std::invalid_argument(fmt::format("{} must be a whole number from {} to {}", what, lowest, highest));
    return static_cast<unsigned char>(number);
}

void RequireCount(const Arguments& arguments, std::size_t fewest, std::size_t most, std::string_view holds) {
    if (arguments.size() < fewest || arguments.size() > most)
        throw std::invalid_argument(fmt::format("its arguments must be {}", holds));
}

std::string TakeWord(const Arguments& arguments, std::size_t at, std::string_view what) {
    const auto* const text = std::get_if<std::string>(&arguments.at(at));
    if (text == nullptr) throw std::invalid_argument(fmt::format("{} must be a text", what));
    return *text;
}

/// Digits and dots, as the standard has them in cue numbers, lists and paths.
std::string TakeCueText(const CL::OscArgument& argument, std::string_view what) {
    std::string text;
    if (const auto* const whole = std::get_if<int>(&argument)) text = fmt::format("{}", *whole);
    if (const auto* const real = std::get_if<float>(&argument)) text = fmt::format("{:g}", *real);
    if (const auto* const written = std::get_if<std::string>(&argument)) text = *written;
    const bool isWhole = !text.empty() && text.size() <= LongestCueText &&
                         std::ranges::all_of(text, [](char c) { return (c >= '0' && c <= '9') || c == '.'; });
    if (!isWhole)
        throw std::invalid_argument(fmt::format("{} must be digits and dots, {} at most", what, LongestCueText));
    return text;
}

Bytes MakeShowControl(const Arguments& arguments) {
    RequireCount(arguments, 3, 6, "the command, the device, its kind, and then the cue, its list and its path");
    const ShowCommand& command =
        FindWord(MidiShowCommands, TakeWord(arguments, 0, "the show control command"), "the show control command");
    const unsigned char device = TakeNumber(arguments, 1, "the device", 0, HighestData);
    const DeviceKind& kind = FindWord(DeviceKinds, TakeWord(arguments, 2, "the kind of device"), "the kind of device");
    Bytes bytes{0xF0, 0x7F, device, 0x02, kind.number, command.number};
    if (!command.takesCue && arguments.size() > 3)
        throw std::invalid_argument(fmt::format("the show control command \"{}\" takes no cue", command.word));
    constexpr std::string_view Names[] = {"the cue", "the cue list", "the cue path"};
    for (std::size_t i = 3; i < arguments.size(); ++i) {
        if (i > 3) bytes.push_back(0);
        const std::string text = TakeCueText(arguments[i], Names[i - 3]);
        bytes.insert(bytes.end(), text.begin(), text.end());
    }
    bytes.push_back(0xF7);
    return bytes;
}

}  // namespace

std::vector<unsigned char> MakeMidiCue(const CL::Osc& edit) {
    const Arguments& arguments = edit.arguments();
    if (edit.address() == "/midi/show-control") return MakeShowControl(arguments);
    const bool isProgram = edit.address() == "/midi/program";
    if (!isProgram && edit.address() != "/midi/control")
        throw std::invalid_argument(fmt::format("{} is none of /midi/program, /midi/control and /midi/show-control",
                                                kit::Quote(edit.address())));
    RequireCount(arguments, isProgram ? 2 : 3, isProgram ? 2 : 3,
                 isProgram ? "the channel and the program" : "the channel, the controller and its value");
    const auto channel = static_cast<unsigned char>(TakeNumber(arguments, 0, "the channel", 1, 16) - 1);
    if (isProgram)
        return {static_cast<unsigned char>(0xC0U | channel), TakeNumber(arguments, 1, "the program", 0, HighestData)};
    return {static_cast<unsigned char>(0xB0U | channel), TakeNumber(arguments, 1, "the controller", 0, HighestData),
            TakeNumber(arguments, 2, "the value", 0, HighestData)};
}

}  // namespace stage
