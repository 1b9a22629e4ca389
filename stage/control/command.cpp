// Commands as text, and whether their arguments are those of their verbs.

#include "stage/control/command.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <stdexcept>

#include "kit/words.h"
#include "tavo_core/bar_positions.h"

namespace stage {

namespace {

using std::chrono::nanoseconds;

constexpr std::string_view Blanks = " \t\r";

/// The factor in percent, with no more digits than it needs to be read as the same factor again: 90%, not
/// 90.00000000000001%.
std::string WritePercent(double factor) {
    std::string text;
    for (int digits = 6; digits <= std::numeric_limits<double>::max_digits10; ++digits) {
        text = fmt::format("{:.{}g}", factor * 100, digits);
        if (std::stod(text) / 100 == factor) break;
    }
    return text + "%";
}

double ReadPercent(std::string_view text, const ArgumentRow& row) {
    if (!text.ends_with('%')) throw std::invalid_argument(fmt::format("{} must be a percentage such as 90%", row.name));
    text.remove_suffix(1);
    return ReadNumber(text, row.lowest * 100, row.highest * 100, row.name) / 100;
}

nanoseconds ReadTime(std::string_view text, const ArgumentRow& row) {
    if (!text.ends_with('s')) throw std::invalid_argument(fmt::format("{} must be in seconds such as 62.5s", row.name));
    text.remove_suffix(1);
    return nanoseconds(std::llround(ReadNumber(text, row.lowest, row.highest, row.name) * 1e9));
}

double ReadOnOff(std::string_view text, const ArgumentRow& row) {
    if (text != "on" && text != "off") throw std::invalid_argument(fmt::format("{} is \"on\" or \"off\"", row.name));
    return text == "on" ? 1 : 0;
}

/// "master, music or click".
std::string ListWords(std::span<const std::string_view> words) {
    std::string text(words.front());
    for (std::size_t i = 1; i < words.size(); ++i)
        text += fmt::format("{}{}", i + 1 == words.size() ? " or " : ", ", words[i]);
    return text;
}

std::string CheckWord(std::string_view word, const ArgumentRow& row) {
    if (std::ranges::find(row.words, word) != row.words.end()) return "";
    if (row.mayBeGroup) {
        const bool isWord = !word.empty() && word.find_first_of(" \t\r#") == std::string_view::npos;
        return isWord ? "" : fmt::format("{} must be one word", row.name);
    }
    return fmt::format("{} must be {}, not {}", row.name, ListWords(row.words), kit::Quote(word));
}

std::string ReadWord(std::string_view word, const ArgumentRow& row) {
    const std::string problem = CheckWord(word, row);
    if (!problem.empty()) throw std::invalid_argument(problem);
    return std::string(word);
}

std::string_view TakeWord(std::span<const std::string_view>& words, std::string_view wanted) {
    if (words.empty()) throw std::invalid_argument(fmt::format("{} is missing", wanted));
    const std::string_view word = words.front();
    words = words.subspan(1);
    return word;
}

/// As it is written in the line, whatever the blanks between its words.
std::string TakeRest(std::span<const std::string_view>& words, std::string_view wanted) {
    const std::string_view first = TakeWord(words, wanted);
    const std::string_view last = words.empty() ? first : words.back();
    words = {};
    return {first.data(), last.data() + last.size()};
}

std::string_view WantedWord(const ArgumentRow& row) {
    return row.kind == ArgumentKind::OnOff ? "\"on\" or \"off\"" : row.name;
}

CommandArgument ReadArgument(std::span<const std::string_view>& words, const ArgumentRow& row,
                             const tavo_midi::ShowData& show, std::string& song) {
    if (row.kind == ArgumentKind::Place) return FindTick(show, song, TakePlace(words));
    if (row.kind == ArgumentKind::Text) return TakeRest(words, row.name);
    const std::string_view word = TakeWord(words, WantedWord(row));
    switch (row.kind) {
        case ArgumentKind::Song:
            song = word;
            static_cast<void>(show.GetSongData(song));
            return song;
        case ArgumentKind::Time:
            return ReadTime(word, row);
        case ArgumentKind::Percent:
            return ReadPercent(word, row);
        case ArgumentKind::Semitones:
            return std::round(ReadNumber(word, row.lowest, row.highest, row.name));
        case ArgumentKind::OnOff:
            return ReadOnOff(word, row);
        case ArgumentKind::Word:
            return ReadWord(word, row);
        default:
            return ReadNumber(word, row.lowest, row.highest, row.name);
    }
}

std::string WriteArgument(const CommandArgument& argument, const ArgumentRow& row) {
    switch (row.kind) {
        case ArgumentKind::Place:
            return fmt::format("tick {}", std::get<std::uint32_t>(argument));
        case ArgumentKind::Song:
        case ArgumentKind::Word:
        case ArgumentKind::Text:
            return std::get<std::string>(argument);
        case ArgumentKind::Time:
            return fmt::format("{:.9f}s", static_cast<double>(std::get<nanoseconds>(argument).count()) / 1e9);
        case ArgumentKind::Percent:
            return WritePercent(std::get<double>(argument));
        case ArgumentKind::OnOff:
            return std::get<double>(argument) > 0 ? "on" : "off";
        default:
            return fmt::format("{}", std::get<double>(argument));
    }
}

std::string DescribeUnknownVerb(std::string_view name) {
    std::vector<std::string_view> known;
    for (const VerbRow& row : GetVerbRows())
        known.push_back(row.name);
    const std::string_view nearest = kit::FindNearest(name, known);
    return fmt::format("an operator cannot {}{}", kit::Quote(name),
                       nearest.empty() ? "" : fmt::format("; did you mean {}?", nearest));
}

std::string CheckNumber(double number, const ArgumentRow& row) {
    const double unit = row.kind == ArgumentKind::Percent ? 100 : 1;
    const double lowest = row.kind == ArgumentKind::OnOff ? 0 : row.lowest;
    const double highest = row.kind == ArgumentKind::OnOff ? 1 : row.highest;
    if (number >= lowest && number <= highest) return "";
    return fmt::format("{} must be a number from {} to {}", row.name, lowest * unit, highest * unit);
}

std::string CheckArgument(const CommandArgument& argument, const ArgumentRow& row, const tavo_midi::ShowData& show) {
    const auto isOfType = [&](auto type) { return std::holds_alternative<decltype(type)>(argument); };
    const std::string wrongType = fmt::format("{} is not of the type that it must have", row.name);
    switch (row.kind) {
        case ArgumentKind::Place:
            return isOfType(std::uint32_t{}) ? "" : wrongType;
        case ArgumentKind::Song: {
            if (!isOfType(std::string{})) return wrongType;
            try {
                static_cast<void>(show.GetSongData(std::get<std::string>(argument)));
                return "";
            } catch (const std::out_of_range& problem) {
                return problem.what();
            }
        }
        case ArgumentKind::Word:
            return isOfType(std::string{}) ? CheckWord(std::get<std::string>(argument), row) : wrongType;
        case ArgumentKind::Text:
            return isOfType(std::string{}) ? "" : wrongType;
        case ArgumentKind::Time:
            if (!isOfType(nanoseconds{})) return wrongType;
            return CheckNumber(static_cast<double>(std::get<nanoseconds>(argument).count()) / 1e9, row);
        default:
            return isOfType(double{}) ? CheckNumber(std::get<double>(argument), row) : wrongType;
    }
}

}  // namespace

std::uint32_t Command::GetTick() const {
    return std::get<std::uint32_t>(arguments.at(0));
}

double Command::GetNumber() const {
    return std::get<double>(arguments.at(0));
}

nanoseconds Command::GetTime() const {
    return std::get<nanoseconds>(arguments.at(0));
}

const std::string& Command::GetSong() const {
    return std::get<std::string>(arguments.at(0));
}

const std::string& Command::GetText() const {
    return std::get<std::string>(arguments.at(0));
}

std::string DescribeArguments(const VerbRow& row) {
    std::string text;
    for (const ArgumentRow& argument : row.arguments) {
        if (!text.empty()) text += ' ';
        switch (argument.kind) {
            case ArgumentKind::Place:
                text += "PLACE";
                break;
            case ArgumentKind::Song:
                text += "SONG";
                break;
            case ArgumentKind::OnOff:
                text += "on|off";
                break;
            case ArgumentKind::Text:
                text += argument.name == "the state" ? "STATE" : "CHANGE";
                break;
            case ArgumentKind::Word:
                text += argument.words.empty() ? "GROUP" : argument.isOptional ? "[OF]" : "OF";
                break;
            case ArgumentKind::Percent:
                text += fmt::format("{}%..{}%", argument.lowest * 100, argument.highest * 100);
                break;
            case ArgumentKind::Time:
                text += fmt::format("{}s..{}s", argument.lowest, argument.highest);
                break;
            default:
                text += fmt::format("{}..{}", argument.lowest, argument.highest);
        }
    }
    return text;
}

std::string MakeVerbHelp() {
    std::string text;
    for (const VerbRow& row : GetVerbRows()) {
        const std::string arguments = DescribeArguments(row);
        text += fmt::format("  {:<19} {}\n",
                            arguments.empty() ? std::string(row.name) : fmt::format("{} {}", row.name, arguments),
                            row.help);
    }
    return text;
}

std::string MakeVerbTable() {
    std::string text = "| press | what it does | guarded |\n|---|---|---|\n";
    for (const VerbRow& row : GetVerbRows()) {
        std::string press = fmt::format("`{}{}{}`", row.name, row.arguments.empty() ? "" : " ", DescribeArguments(row));
        // In a table of Markdown a bar parts the columns, in code as well.
        for (std::size_t bar = press.find('|'); bar != std::string::npos; bar = press.find('|', bar + 2))
            press.insert(bar, 1, '\\');
        text += fmt::format("| {} | {} | {} |\n", press, row.help, row.goesOn ? "yes" : "");
    }
    return text;
}

std::string CheckCommand(const Command& command, const tavo_midi::ShowData& show) {
    const VerbRow& row = GetVerbRow(command.verb);
    const std::size_t given = command.arguments.size();
    const bool isShort = given + 1 == row.arguments.size() && row.arguments.back().isOptional;
    if (given != row.arguments.size() && !isShort)
        return fmt::format("\"{}\" takes {} argument{}, not {}", row.name, row.arguments.size(),
                           row.arguments.size() == 1 ? "" : "s", given);
    for (std::size_t i = 0; i < given; ++i) {
        std::string problem = CheckArgument(command.arguments[i], row.arguments[i], show);
        if (!problem.empty()) return problem;
    }
    return "";
}

Command ParseCommand(std::span<const std::string_view> words, const tavo_midi::ShowData& show, std::string& song) {
    const std::string_view name = TakeWord(words, "what the operator does");
    const VerbRow* row = FindVerbRow(name);
    if (row == nullptr) throw std::invalid_argument(DescribeUnknownVerb(name));
    Command command;
    command.verb = row->verb;
    try {
        for (const ArgumentRow& argument : row->arguments) {
            if (argument.isOptional && words.empty()) break;
            command.arguments.push_back(ReadArgument(words, argument, show, song));
        }
    } catch (const std::out_of_range& problem) {
        throw std::invalid_argument(problem.what());
    }
    if (!words.empty()) throw std::invalid_argument(fmt::format("{} is one word too many", kit::Quote(words.front())));
    return command;
}

std::string AsText(const Command& command) {
    const VerbRow& row = GetVerbRow(command.verb);
    std::string text(row.name);
    for (std::size_t i = 0; i < command.arguments.size(); ++i)
        text += " " + WriteArgument(command.arguments.at(i), row.arguments[i]);
    return text;
}

std::vector<std::string_view> SplitWords(std::string_view line) {
    std::vector<std::string_view> words;
    while (true) {
        line.remove_prefix(std::min(line.find_first_not_of(Blanks), line.size()));
        if (line.empty() || line.front() == '#') return words;
        const std::size_t end = std::min(line.find_first_of(Blanks), line.size());
        words.push_back(line.substr(0, end));
        line.remove_prefix(end);
    }
}

double ReadNumber(std::string_view text, double lowest, double highest, std::string_view what) {
    if (text.starts_with('+')) text.remove_prefix(1);
    double number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size() || !(number >= lowest && number <= highest))
        throw std::invalid_argument(fmt::format("{} must be a number from {} to {}", what, lowest, highest));
    return number;
}

std::string TakePlace(std::span<const std::string_view>& words) {
    std::string place(TakeWord(words, "the place"));
    if (place == "tick") place += " " + std::string(TakeWord(words, "the tick"));
    return place;
}

std::uint32_t FindTick(const tavo_midi::ShowData& show, const std::string& song, const std::string& place) {
    try {
        return TL::BarPositions(show.GetSongData(song).GetTimeline()).FindStartTick(place);
    } catch (const std::logic_error& problem) {
        throw std::invalid_argument(fmt::format("in song {}, {}", song, problem.what()));
    }
}

}  // namespace stage
