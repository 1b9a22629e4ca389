#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace stage {

/// What a line of help may be long.
inline constexpr std::size_t HelpColumns = 80;

/// The words that lead to a command, with the places for what stands between them: "stage edit SHOW add vamp".
[[nodiscard]] std::string DescribePathTo(const CLI::App& command);
/// The whole line that can be typed: the path, what must follow it, and "[OPTIONS]" where more may.
[[nodiscard]] std::string DescribeUsage(const CLI::App& command);
/// An option as it is written: "--song N", "SHOW".
[[nodiscard]] std::string DescribeOption(const CLI::Option& option);

/// What can be written, "-o, --output FILE", and what it means.
using HelpRow = std::pair<std::string, std::string>;
/// The words that follow the command, or its options; those that are for tests are left out.
[[nodiscard]] std::vector<HelpRow> ListHelpRows(const CLI::App& command, bool arePositional);

/// The text in lines of at most HelpColumns: lines that are not indented are one paragraph until an empty or an
/// indented one; indented lines stay as they are.
[[nodiscard]] std::string WrapParagraphs(std::string_view text);

/// Writes the help of every command in one form. A footer's paragraphs are wrapped.
class HelpFormatter : public CLI::FormatterBase {
public:
    std::string make_help(const CLI::App* command, std::string name, CLI::AppFormatMode mode) const override;
};

}  // namespace stage
