#include "stage/osc/osc_command.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <optional>
#include <span>
#include <stdexcept>
#include <string_view>
#include <vector>

#include "kit/utf8.h"
#include "kit/words.h"

namespace stage {

namespace {

constexpr std::string_view Folder = "/tavo/";
/// What a desk has buttons for, and other programs call the same.
constexpr std::array<Verb, 6> ShortVerbs{Verb::Go, Verb::Stop, Verb::Panic, Verb::Pause, Verb::Next, Verb::Previous};

bool IsShort(Verb verb) {
    return std::ranges::find(ShortVerbs, verb) != ShortVerbs.end();
}

const VerbRow& FindRow(const std::string& address) {
    if (address.find_first_of("*?[]{}") != std::string::npos)
        throw std::invalid_argument(fmt::format("{} is a pattern: name one command", kit::Quote(address)));
    const bool isLong = address.starts_with(Folder);
    const std::string_view name = std::string_view(address).substr(isLong ? Folder.size() : 1);
    const VerbRow* const row = FindVerbRow(name);
    if (row != nullptr && (isLong || IsShort(row->verb))) return *row;
    std::vector<std::string_view> known;
    for (const VerbRow& each : GetVerbRows())
        known.push_back(each.name);
    const std::string_view nearest = kit::FindNearest(name, known);
    throw std::invalid_argument(
        fmt::format("{} is not an address of this show{}", kit::Quote(address),
                    nearest.empty() ? "" : fmt::format(": did you mean {}{}?", Folder, nearest)));
}

/// A number of either kind; many senders know only one of them.
std::optional<double> FindNumber(const OscValue& value) {
    if (const auto* const whole = std::get_if<std::int64_t>(&value)) return static_cast<double>(*whole);
    if (const auto* const number = std::get_if<double>(&value)) return *number;
    return std::nullopt;
}

/// The words that the value stands for in a script's line.
std::string WriteWhole(const OscValue& value, const ArgumentRow& row) {
    if (const auto* const text = std::get_if<std::string>(&value)) return *text;
    const std::optional<double> number = FindNumber(value);
    if (!number) throw std::invalid_argument(fmt::format("{} must be a text or a whole number", row.name));
    if (std::abs(*number) > std::numeric_limits<std::int32_t>::max() || *number != std::round(*number))
        throw std::invalid_argument(fmt::format("{} must be a whole number or a text, not {}", row.name, *number));
    return fmt::format("{:.0f}", *number);
}

double ReadInRange(const OscValue& value, const ArgumentRow& row, std::string_view hint = "") {
    const std::optional<double> number = FindNumber(value);
    if (!number || !(*number >= row.lowest && *number <= row.highest))
        throw std::invalid_argument(
            fmt::format("{} must be a number from {} to {}{}", row.name, row.lowest, row.highest, hint));
    return *number;
}

double ReadOnOff(const OscValue& value, const ArgumentRow& row) {
    if (const auto* const truth = std::get_if<bool>(&value)) return *truth ? 1 : 0;
    const std::optional<double> number = FindNumber(value);
    if (!number || (*number != 0 && *number != 1))
        throw std::invalid_argument(fmt::format("{} must be 1, 0, true, false, \"on\" or \"off\"", row.name));
    return *number;
}

/// A text is read as in a script: "90%", "17:3", "62.5s", "on".
CommandArgument ReadText(const std::string& text, const VerbRow& verb, const ArgumentRow& row,
                         const tavo_midi::ShowData& show, std::string song) {
    // It may come to stand in a take, whose lines end with one.
    const auto isControl = [](unsigned char c) { return c < ' ' || c == 0x7F; };
    if (!kit::IsUtf8(text) || std::ranges::any_of(text, isControl))
        throw std::invalid_argument(fmt::format("{} must be one line of UTF-8", row.name));
    if (row.kind == ArgumentKind::Text) return text;
    if (row.kind == ArgumentKind::Place) {
        const std::vector<std::string_view> words = SplitWords(text);
        std::span<const std::string_view> rest(words);
        if (song.empty()) throw std::invalid_argument("a place means nothing before a song is loaded");
        return FindTick(show, song, TakePlace(rest));
    }
    if (row.kind == ArgumentKind::Word) return text;
    const std::vector<std::string_view> words{verb.name, text};
    return ParseCommand(words, show, song).arguments.at(0);
}

CommandArgument ReadArgument(const OscValue& value, const VerbRow& verb, const ArgumentRow& row,
                             const tavo_midi::ShowData& show, const std::string& song) {
    if (const auto* const text = std::get_if<std::string>(&value)) return ReadText(*text, verb, row, show, song);
    switch (row.kind) {
        case ArgumentKind::Place:
        case ArgumentKind::Song:
            return ReadText(WriteWhole(value, row), verb, row, show, song);
        case ArgumentKind::Percent:
            return ReadInRange(value, row, ", or a text such as \"90%\"");
        case ArgumentKind::Time:
            return std::chrono::nanoseconds(std::llround(ReadInRange(value, row) * 1e9));
        case ArgumentKind::Semitones: {
            const double number = ReadInRange(value, row);
            if (number != std::round(number))
                throw std::invalid_argument(fmt::format("{} must be a whole number, not {}", row.name, number));
            return number;
        }
        case ArgumentKind::Seconds:
            return ReadInRange(value, row);
        case ArgumentKind::OnOff:
            return ReadOnOff(value, row);
        default:
            throw std::invalid_argument(fmt::format("{} must be a text", row.name));
    }
}

/// A button sends something when it is pressed and 0 when it is let go.
bool IsRelease(const OscMessage& message) {
    if (message.arguments.empty()) return false;
    const OscValue& value = message.arguments.front();
    if (const auto* const truth = std::get_if<bool>(&value)) return !*truth;
    const std::optional<double> number = FindNumber(value);
    if (!number || message.arguments.size() > 1)
        throw std::invalid_argument(
            fmt::format("{} takes nothing, or one number as a button sends it: 0 when it is released",
                        kit::Quote(message.address)));
    return *number == 0;
}

struct ArgumentForm {
    std::string types;
    std::string range;
};

ArgumentForm Describe(const ArgumentRow& row) {
    const std::string numbers = fmt::format("{} to {}", row.lowest, row.highest);
    switch (row.kind) {
        case ArgumentKind::Place:
            return {"`s`, `i` or `f`", "a place of the song: bar `17`, `\"17:3\"`, `\"tick 960\"`"};
        case ArgumentKind::Song:
            return {"`s`, `i` or `f`", "the number of a song of the show: `3`, `\"12a\"`"};
        case ArgumentKind::Time:
            return {"`f`, `i` or `s`", fmt::format("{} seconds; as a text `\"62.5s\"`", numbers)};
        case ArgumentKind::Percent:
            return {"`f`, `i` or `s`", fmt::format("{}; as a text `\"90%\"`", numbers)};
        case ArgumentKind::Semitones:
            return {"`i`, `f` or `s`", fmt::format("{}, whole", numbers)};
        case ArgumentKind::Seconds:
            return {"`f`, `i` or `s`", fmt::format("{} seconds", numbers)};
        case ArgumentKind::OnOff:
            return {"`T`, `F`, `i`, `f` or `s`", "1 or 0; as a text `\"on\"` or `\"off\"`"};
        case ArgumentKind::Word:
            if (row.words.empty()) return {"`s`", "the name of an output group"};
            return {"`s`", fmt::format("`\"{}\"`{}", fmt::join(row.words, "\"`, `\""),
                                       row.mayBeGroup ? " or the name of an output group" : "")};
        case ArgumentKind::Text:
            return {"`s`", fmt::format("{}, as in a script", row.name)};
    }
    return {};
}

}  // namespace

OscPress ReadOscPress(const OscMessage& message, const tavo_midi::ShowData& show, const std::string& song) {
    const VerbRow& row = FindRow(message.address);
    OscPress press;
    press.command.verb = row.verb;
    if (row.arguments.empty()) {
        press.isRelease = IsRelease(message);
        return press;
    }
    const std::size_t given = message.arguments.size();
    const std::size_t most = row.arguments.size();
    const std::size_t fewest = row.arguments.back().isOptional ? most - 1 : most;
    if (given < fewest || given > most)
        throw std::invalid_argument(
            fmt::format("{} takes {} argument{}, not {}", kit::Quote(message.address),
                        fewest == most ? fmt::format("{}", most) : fmt::format("{} or {}", fewest, most),
                        most == 1 ? "" : "s", given));
    try {
        for (std::size_t i = 0; i < given; ++i)
            press.command.arguments.push_back(ReadArgument(message.arguments[i], row, row.arguments[i], show, song));
    } catch (const std::out_of_range& problem) {
        throw std::invalid_argument(problem.what());
    }
    const std::string problem = CheckCommand(press.command, show);
    if (!problem.empty()) throw std::invalid_argument(problem);
    return press;
}

std::string MakeOscVerbTable() {
    std::string text = "| address | arguments | range | what it does |\n|---|---|---|---|\n";
    for (const VerbRow& row : GetVerbRows()) {
        std::string types;
        std::string ranges;
        for (const ArgumentRow& argument : row.arguments) {
            const ArgumentForm form = Describe(argument);
            types += fmt::format("{}{}{}", types.empty() ? "" : "; then ", form.types,
                                 argument.isOptional ? ", may be left out" : "");
            ranges += fmt::format("{}{}", ranges.empty() ? "" : "; then ", form.range);
        }
        text += fmt::format("| `{}{}`{} | {} | {} | {} |\n", Folder, row.name,
                            IsShort(row.verb) ? fmt::format(", `/{}`", row.name) : "", types, ranges, row.help);
    }
    return text;
}

}  // namespace stage
