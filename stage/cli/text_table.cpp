#include "stage/cli/text_table.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "kit/utf8.h"
#include "kit/words.h"

namespace {

constexpr std::size_t Gap = 2;
constexpr std::size_t NarrowestText = 12;
bool areWide = false;

void AppendCell(std::string& line, const std::string& cell, std::size_t width, TextTable::Align align) {
    const std::string padding(width - std::min(kit::CountColumns(cell), width), ' ');
    line += align == TextTable::Align::Right ? padding + cell : cell + padding;
}

}  // namespace

std::string MakePrintable(std::string text) {
    for (char& c : text) {
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) c = ' ';
    }
    return text;
}

void TextTable::AddRow(std::vector<std::string> cells) {
    for (std::string& cell : cells)
        cell = MakePrintable(std::move(cell));
    cells.resize(columns_.size());
    rows_.push_back(std::move(cells));
}

std::size_t GetTerminalColumns(int fileDescriptor) {
    constexpr std::size_t Usual = 80;
    winsize size{};
    if (::ioctl(fileDescriptor, TIOCGWINSZ, &size) != 0 || size.ws_col < 20) return Usual;
    return size.ws_col;
}

void SetWideTables() {
    areWide = true;
}

std::vector<std::size_t> TextTable::FindWidths_() const {
    std::vector<std::size_t> widths;
    std::size_t line = 0;
    for (std::size_t i = 0; i < columns_.size(); ++i) {
        widths.push_back(kit::CountColumns(columns_[i].title));
        for (const auto& row : rows_)
            widths[i] = std::max(widths[i], kit::CountColumns(row[i]));
        if (!columns_[i].isWhole) line += widths[i] + (i > 0 ? Gap : 0);
    }
    // Numbers are never cut, and no text below what can still be told apart.
    while (!areWide && line > GetTerminalColumns(STDOUT_FILENO)) {
        std::size_t widest = columns_.size();
        for (std::size_t i = 0; i < columns_.size(); ++i) {
            if (columns_[i].align == Align::Right || columns_[i].isWhole || widths[i] <= NarrowestText) continue;
            if (widest == columns_.size() || widths[i] > widths[widest]) widest = i;
        }
        if (widest == columns_.size()) break;
        --widths[widest];
        --line;
    }
    return widths;
}

std::string TextTable::AsText() const {
    std::vector<std::string> titles;
    for (const Column& column : columns_)
        titles.push_back(column.title);
    const std::vector<std::size_t> widths = FindWidths_();
    std::string text;
    const auto appendLine = [&](const std::vector<std::string>& cells) {
        std::string line;
        for (std::size_t i = 0; i < cells.size(); ++i) {
            if (i > 0) line += std::string(Gap, ' ');
            AppendCell(line, kit::CutToColumns(cells[i], widths[i]), widths[i], columns_[i].align);
        }
        line.erase(line.find_last_not_of(' ') + 1);
        text += line + '\n';
    };
    appendLine(titles);
    for (const auto& row : rows_)
        appendLine(row);
    return text;
}
