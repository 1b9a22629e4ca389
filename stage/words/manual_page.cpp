#include "stage/words/manual_page.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>
#include <vector>

#include "stage/words/help_text.h"

namespace stage {

namespace {

/// As it is to be read: what roff would take for its own, or for typographic signs, is escaped.
std::string EscapeForRoff(std::string_view text) {
    std::string out = text.starts_with('.') || text.starts_with('\'') ? "\\&" : "";
    for (const char c : text) {
        switch (c) {
            case '\\':
                out += "\\e";
                break;
            case '-':
                out += "\\-";
                break;
            case '\'':
                out += "\\(aq";
                break;
            case '`':
                out += "\\(ga";
                break;
            case '^':
                out += "\\(ha";
                break;
            case '~':
                out += "\\(ti";
                break;
            default:
                out += c;
        }
    }
    return out;
}

std::vector<const CLI::App*> ListCommands(const CLI::App& command) {
    return command.get_subcommands([](const CLI::App*) { return true; });
}

/// Paragraphs, and indented lines as they are. "Examples:" is a heading where the page has room for one.
void AppendParagraphs(std::string& page, std::string_view text, bool hasHeadings) {
    bool isIndented = false;
    const auto endIndented = [&] {
        if (isIndented) page += ".RE\n.fi\n";
        isIndented = false;
    };
    bool isDue = !hasHeadings;
    const auto beginParagraph = [&] {
        if (isDue) page += ".PP\n";
        isDue = false;
    };
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        std::string_view line = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        if (line.starts_with(' ')) {
            beginParagraph();
            if (!isIndented) page += ".nf\n.RS 4\n";
            isIndented = true;
            line.remove_prefix(std::min<std::size_t>(2, line.find_first_not_of(' ')));
            page += EscapeForRoff(line) + '\n';
            continue;
        }
        endIndented();
        if (line.empty()) {
            isDue = true;
        } else if (hasHeadings && (line == "Example:" || line == "Examples:")) {
            page += line == "Example:" ? ".SH EXAMPLE\n" : ".SH EXAMPLES\n";
            isDue = false;
        } else {
            beginParagraph();
            page += EscapeForRoff(line) + '\n';
        }
    }
    endIndented();
}

void AppendRows(std::string& page, const std::vector<HelpRow>& rows) {
    for (const auto& [names, text] : rows)
        page += fmt::format(".TP\n\\fB{}\\fR\n{}\n", EscapeForRoff(names), EscapeForRoff(text));
}

/// The help option is on each page once.
std::vector<HelpRow> ListRowsBut(const CLI::Option* helpOption, std::vector<HelpRow> rows) {
    if (helpOption != nullptr)
        std::erase_if(rows, [&](const HelpRow& row) { return row.first.find("--help") != std::string::npos; });
    return rows;
}

std::string_view WithoutLineEnds(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of('\n'), text.size()));
    return text;
}

void AppendCommandsBelow(std::string& page, const CLI::App& command) {
    for (const CLI::App* sub : ListCommands(command)) {
        page += fmt::format(".SS {}\n{}.\n", EscapeForRoff(DescribeUsage(*sub)), EscapeForRoff(sub->get_description()));
        AppendRows(page, ListHelpRows(*sub, true));
        AppendRows(page, ListRowsBut(sub->get_help_ptr(), ListHelpRows(*sub, false)));
        const std::string footer = sub->get_footer();
        if (!footer.empty() && footer != command.get_footer()) AppendParagraphs(page, WithoutLineEnds(footer), false);
        AppendCommandsBelow(page, *sub);
    }
}

void AppendSection(std::string& page, const char* title, const std::vector<HelpRow>& rows) {
    if (rows.empty()) return;
    page += fmt::format(".SH {}\n", title);
    AppendRows(page, rows);
}

std::string InSmall(std::string text) {
    if (!text.empty() && text[0] >= 'A' && text[0] <= 'Z') text[0] = static_cast<char>(text[0] - 'A' + 'a');
    return text;
}

std::string ListPagesBeside(const CLI::App& command) {
    if (command.get_parent() != nullptr)
        return fmt::format("\\fB{}\\fR(1)\n", EscapeForRoff(command.get_parent()->get_name()));
    std::string list;
    for (const CLI::App* sub : ListCommands(command))
        list += fmt::format("{}\\fB{}\\fR(1)", list.empty() ? "" : ",\n", EscapeForRoff(MakeManualName(*sub)));
    return list + '\n';
}

}  // namespace

std::string MakeManualName(const CLI::App& command) {
    const CLI::App* parent = command.get_parent();
    return (parent == nullptr ? "" : MakeManualName(*parent) + '-') + command.get_name();
}

std::string MakeManualPage(const CLI::App& command, const std::string& version) {
    const std::string name = EscapeForRoff(MakeManualName(command));
    std::string title = name;
    std::transform(title.begin(), title.end(), title.begin(),
                   [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; });
    std::string page = fmt::format(".TH {} 1 \"\" \"stage {}\" \"User Commands\"\n", title, version);
    page += fmt::format(".SH NAME\n{} \\- {}\n", name, EscapeForRoff(InSmall(command.get_description())));
    page += fmt::format(".SH SYNOPSIS\n\\fB{}\\fR\n", EscapeForRoff(DescribeUsage(command)));
    page += fmt::format(".SH DESCRIPTION\n{}.\n", EscapeForRoff(command.get_description()));
    AppendSection(page, "WORDS", ListHelpRows(command, true));
    AppendSection(page, "OPTIONS", ListHelpRows(command, false));
    if (!ListCommands(command).empty()) page += ".SH COMMANDS\n";
    if (command.get_parent() != nullptr) {
        AppendCommandsBelow(page, command);
    } else {
        std::vector<HelpRow> rows;
        for (const CLI::App* sub : ListCommands(command))
            rows.emplace_back(sub->get_name(), sub->get_description());
        AppendRows(page, rows);
    }
    if (const std::string footer = command.get_footer(); !footer.empty()) {
        page += ".SH NOTES\n";
        AppendParagraphs(page, WithoutLineEnds(footer), true);
    }
    page +=
        ".SH EXIT STATUS\n0, or 1 after a failure, which is one sentence on the standard error stream, or 2 after a "
        "command line\n"
        "that cannot be understood.\n";
    return page + ".SH SEE ALSO\n" + ListPagesBeside(command);
}

}  // namespace stage
