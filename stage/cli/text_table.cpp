#include "stage/cli/text_table.h"

#include <algorithm>
#include <utility>

#include "kit/utf8.h"

namespace {

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

std::string TextTable::AsText() const {
    std::vector<std::string> titles;
    for (const Column& column : columns_)
        titles.push_back(column.title);
    std::vector<std::size_t> widths;
    for (std::size_t i = 0; i < columns_.size(); ++i) {
        widths.push_back(kit::CountColumns(titles[i]));
        for (const auto& row : rows_)
            widths[i] = std::max(widths[i], kit::CountColumns(row[i]));
    }
    std::string text;
    const auto appendLine = [&](const std::vector<std::string>& cells) {
        std::string line;
        for (std::size_t i = 0; i < cells.size(); ++i) {
            if (i > 0) line += "  ";
            AppendCell(line, cells[i], widths[i], columns_[i].align);
        }
        line.erase(line.find_last_not_of(' ') + 1);
        text += line + '\n';
    };
    appendLine(titles);
    for (const auto& row : rows_)
        appendLine(row);
    return text;
}
