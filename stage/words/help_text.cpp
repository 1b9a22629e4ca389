#include "stage/words/help_text.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "kit/utf8.h"

namespace stage {

namespace {

constexpr std::size_t WidestNames = 28;

bool IsFlag(const CLI::Option& option) {
    return option.get_items_expected_max() == 0;
}

bool IsRepeated(const CLI::Option& option) {
    return option.get_items_expected_max() > 1;
}

std::vector<const CLI::Option*> FindOptions(const CLI::App& command, bool arePositional) {
    // Those of no group are for tests.
    return command.get_options([=](const CLI::Option* option) {
        return option->get_positional() == arePositional && !option->get_group().empty();
    });
}

/// "-o,--output FILE", as the list of options names it.
std::string DescribeNames(const CLI::Option& option) {
    if (option.get_positional()) return DescribeOption(option);
    std::string names = option.get_name(false, true);
    for (std::size_t comma = names.find(','); comma != std::string::npos; comma = names.find(',', comma + 2))
        names.insert(comma + 1, " ");
    return IsFlag(option) ? names : names + ' ' + option.get_type_name();
}

void AppendWrapped(std::string& out, std::string_view text, std::size_t column, std::size_t indent) {
    while (!text.empty()) {
        text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
        const std::string_view word = text.substr(0, text.find(' '));
        if (word.empty()) return;
        text.remove_prefix(word.size());
        const std::size_t width = kit::CountColumns(word);
        const bool isFirst = column == indent;
        if (!isFirst && column + 1 + width > HelpColumns) {
            out += '\n' + std::string(indent, ' ');
            column = indent;
        } else if (!isFirst) {
            out += ' ';
            ++column;
        }
        out += word;
        column += width;
    }
}

using Rows = std::vector<HelpRow>;

void AppendRows(std::string& out, const std::string& title, const Rows& rows) {
    if (rows.empty()) return;
    std::size_t widest = 0;
    for (const auto& [names, text] : rows)
        widest = std::max(widest, kit::CountColumns(names));
    const std::size_t indent = 2 + std::min(widest, WidestNames) + 2;
    out += '\n' + title + ":\n";
    for (const auto& [names, text] : rows) {
        const std::string left = "  " + names;
        const std::size_t width = kit::CountColumns(left);
        out += left;
        if (width + 2 > indent) {
            out += '\n' + std::string(indent, ' ');
        } else {
            out += std::string(indent - width, ' ');
        }
        AppendWrapped(out, text, indent, indent);
        out += '\n';
    }
}

}  // namespace

std::string DescribePathTo(const CLI::App& command) {
    std::vector<const CLI::App*> levels;
    for (const CLI::App* level = &command; level != nullptr; level = level->get_parent())
        levels.insert(levels.begin(), level);
    std::string path;
    for (const CLI::App* level : levels) {
        path += (path.empty() ? "" : " ") + level->get_name();
        if (level == &command) break;
        for (const CLI::Option* option : FindOptions(*level, true))
            path += ' ' + DescribeOption(*option);
    }
    return path;
}

std::string DescribeUsage(const CLI::App& command) {
    std::string usage = DescribePathTo(command);
    for (const CLI::Option* option : FindOptions(command, true))
        usage += option->get_required() ? ' ' + DescribeOption(*option) : fmt::format(" [{}]", DescribeOption(*option));
    bool hasMore = false;
    for (const CLI::Option* option : FindOptions(command, false)) {
        if (option->get_required()) {
            usage += ' ' + DescribeOption(*option);
        } else {
            hasMore = hasMore || option != command.get_help_ptr();
        }
    }
    if (hasMore) usage += " [OPTIONS]";
    if (command.get_require_subcommand_min() > 0) usage += " COMMAND ...";
    const bool hasCommands = !command.get_subcommands([](const CLI::App*) { return true; }).empty();
    if (hasCommands && command.get_require_subcommand_min() == 0) usage += " [COMMAND ...]";
    return usage;
}

std::string DescribeOption(const CLI::Option& option) {
    if (option.get_positional()) return option.get_name(true) + (IsRepeated(option) ? "..." : "");
    const std::string name = option.get_name();
    return IsFlag(option) ? name : name + ' ' + option.get_type_name();
}

std::vector<HelpRow> ListHelpRows(const CLI::App& command, bool arePositional) {
    Rows rows;
    for (const CLI::Option* option : FindOptions(command, arePositional)) {
        std::string text = option->get_description();
        if (!option->get_default_str().empty()) text += fmt::format(" ({})", option->get_default_str());
        rows.emplace_back(DescribeNames(*option), text);
    }
    return rows;
}

std::string WrapParagraphs(std::string_view text) {
    std::string out;
    std::string paragraph;
    const auto endParagraph = [&] {
        if (paragraph.empty()) return;
        AppendWrapped(out, paragraph, 0, 0);
        out += '\n';
        paragraph.clear();
    };
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        const std::string_view line = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        if (line.empty() || line.front() == ' ') {
            endParagraph();
            out += std::string(line) + '\n';
        } else {
            paragraph += (paragraph.empty() ? "" : " ") + std::string(line);
        }
    }
    endParagraph();
    return out;
}

std::string HelpFormatter::make_help(const CLI::App* command, std::string /*name*/, CLI::AppFormatMode /*mode*/) const {
    std::string help = WrapParagraphs(command->get_description() + '.');
    const std::string usage = "Usage: ";
    help += usage;
    AppendWrapped(help, DescribeUsage(*command), usage.size(), usage.size());
    help += '\n';
    AppendRows(help, "Words", ListHelpRows(*command, true));
    AppendRows(help, "Options", ListHelpRows(*command, false));
    Rows commands;
    for (const CLI::App* sub : command->get_subcommands([](const CLI::App*) { return true; }))
        commands.emplace_back(sub->get_name(), sub->get_description());
    AppendRows(help, "Commands", commands);
    const std::string footer = command->get_footer();
    const std::size_t begin = footer.find_first_not_of('\n');
    return begin == std::string::npos ? help : help + '\n' + WrapParagraphs(footer.substr(begin));
}

}  // namespace stage
