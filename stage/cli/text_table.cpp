#include "stage/cli/text_table.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <utility>

namespace {

struct CodePoint {
    std::uint32_t value = 0;
    std::size_t bytes = 1;
    bool wellFormed = false;
};

CodePoint DecodeFirst(std::string_view text) {
    const auto byte = [&](std::size_t i) { return static_cast<std::uint8_t>(text[i]); };
    const std::uint8_t lead = byte(0);
    if (lead < 0x80) return {lead, 1, true};
    const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC0 ? 2 : 0;
    if (length == 0 || length > text.size()) return {lead, 1, false};
    std::uint32_t value = lead & (0xFFU >> (length + 1));
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80) return {lead, 1, false};
        value = value << 6 | (byte(i) & 0x3F);
    }
    return {value, length, true};
}

using Range = std::pair<std::uint32_t, std::uint32_t>;

template <std::size_t Count>
bool IsInside(const std::array<Range, Count>& ranges, std::uint32_t value) {
    return std::any_of(ranges.begin(), ranges.end(),
                       [&](const Range& range) { return value >= range.first && value <= range.second; });
}

/// Combining marks, joiners and variation selectors.
constexpr std::array<Range, 9> NoColumn{{{0x300, 0x36F},
                                         {0x483, 0x489},
                                         {0x591, 0x5BD},
                                         {0x1AB0, 0x1AFF},
                                         {0x1DC0, 0x1DFF},
                                         {0x200B, 0x200F},
                                         {0x20D0, 0x20FF},
                                         {0xFE00, 0xFE0F},
                                         {0xFE20, 0xFE2F}}};
/// East Asian wide characters and pictures.
constexpr std::array<Range, 9> TwoColumns{{{0x1100, 0x115F},
                                           {0x2E80, 0x303E},
                                           {0x3041, 0xA4CF},
                                           {0xAC00, 0xD7A3},
                                           {0xF900, 0xFAFF},
                                           {0xFE30, 0xFE6F},
                                           {0xFF00, 0xFF60},
                                           {0x1F300, 0x1FAFF},
                                           {0x20000, 0x3FFFD}}};

void AppendCell(std::string& line, const std::string& cell, std::size_t width, TextTable::Align align) {
    const std::string padding(width - std::min(CountColumns(cell), width), ' ');
    line += align == TextTable::Align::Right ? padding + cell : cell + padding;
}

}  // namespace

std::size_t CountColumns(std::string_view text) {
    std::size_t columns = 0;
    while (!text.empty()) {
        const CodePoint point = DecodeFirst(text);
        if (!point.wellFormed || !IsInside(NoColumn, point.value))
            columns += point.wellFormed && IsInside(TwoColumns, point.value) ? 2 : 1;
        text.remove_prefix(point.bytes);
    }
    return columns;
}

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
        widths.push_back(CountColumns(titles[i]));
        for (const auto& row : rows_)
            widths[i] = std::max(widths[i], CountColumns(row[i]));
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
