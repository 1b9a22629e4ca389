#include "stage/live/screen_picture.h"

#include <algorithm>
#include <utility>

#include "kit/utf8.h"

namespace stage {

namespace {

bool IsControl(std::uint32_t value) {
    return value < 0x20 || (value >= 0x7F && value < 0xA0);
}

int ColumnsOf(std::string_view text) {
    return static_cast<int>(kit::CountColumns(text));
}

}  // namespace

std::string_view CutColumns(std::string_view text, int columns) {
    std::size_t bytes = 0;
    int taken = 0;
    while (bytes < text.size()) {
        const kit::Character character = kit::ReadCharacter(text.substr(bytes));
        taken += static_cast<int>(character.columns);
        if (taken > columns) break;
        bytes += character.bytes;
    }
    return text.substr(0, bytes);
}

std::vector<std::string> WrapColumns(std::string_view text, int columns) {
    std::vector<std::string> lines;
    while (ColumnsOf(text) > columns) {
        std::string_view line = CutColumns(text, columns);
        if (line.empty()) break;
        // The blank after the line's last word may be the first character that does not fit.
        std::size_t blank = text.substr(0, line.size() + 1).rfind(' ');
        if (blank != std::string_view::npos && blank > 0) line = text.substr(0, blank);
        lines.emplace_back(line);
        text.remove_prefix(line.size());
        while (text.starts_with(' '))
            text.remove_prefix(1);
    }
    if (!text.empty() || lines.empty()) lines.emplace_back(text);
    return lines;
}

ScreenPicture::ScreenPicture(const ScreenSize& size)
    : size_(size), rows_(static_cast<std::size_t>(std::max(size.rows, 0))) {}

std::string ScreenPicture::MakeShowable_(std::string_view text) const {
    std::string shown;
    while (!text.empty()) {
        const kit::Character character = kit::ReadCharacter(text);
        if (character.isWellFormed && IsControl(character.value)) {
            shown += ' ';
        } else if (character.isWellFormed && (size_.isUtf8 || character.value < 0x80)) {
            shown += text.substr(0, character.bytes);
        } else {
            shown.append(character.columns, '?');
        }
        text.remove_prefix(character.bytes);
    }
    return shown;
}

int ScreenPicture::Put(int row, int column, std::string_view text, ScreenStyle style, int width) {
    const int room = size_.columns - column;
    if (!HasRow_(row) || column < 0 || room <= 0 || width == 0) return 0;
    const int most = width < 0 ? room : std::min(width, room);
    std::string shown = MakeShowable_(text);
    if (ColumnsOf(shown) > most) shown = std::string(CutColumns(shown, most - 1)) + (size_.isUtf8 ? "…" : "~");
    if (shown.empty()) return 0;
    const int columns = ColumnsOf(shown);
    rows_[static_cast<std::size_t>(row)].push_back({column, std::move(shown), style});
    return columns;
}

void ScreenPicture::PutRight(int row, int end, std::string_view text, ScreenStyle style) {
    Put(row, std::max(0, end - ColumnsOf(MakeShowable_(text))), text, style);
}

void ScreenPicture::PutRule(int row, std::string_view title, int column) {
    std::string rule;
    for (int i = column; i < size_.columns; ++i)
        rule += size_.isUtf8 ? "─" : "-";
    Put(row, column, rule, ScreenStyle::Faint);
    if (!title.empty()) Put(row, column + 2, " " + std::string(title) + " ", ScreenStyle::Faint);
}

void ScreenPicture::ClearRow(int row) {
    if (HasRow_(row)) rows_[static_cast<std::size_t>(row)].clear();
}

void ScreenPicture::FillRow(int row, ScreenStyle style) {
    Put(row, 0, std::string(static_cast<std::size_t>(std::max(size_.columns, 0)), ' '), style);
}

std::string ScreenPicture::AsText() const {
    std::string text;
    for (const auto& spans : rows_) {
        std::vector<std::string> cells(static_cast<std::size_t>(size_.columns), " ");
        for (const ScreenSpan& span : spans) {
            std::string_view rest = span.text;
            std::size_t at = static_cast<std::size_t>(span.column);
            while (!rest.empty()) {
                const kit::Character character = kit::ReadCharacter(rest);
                const std::string sign(rest.substr(0, character.bytes));
                rest.remove_prefix(character.bytes);
                if (character.columns == 0 && at > 0) {
                    cells[at - 1] += sign;
                    continue;
                }
                // A wide character's second cell is part of the first.
                for (std::size_t i = 0; i < character.columns && at < cells.size(); ++i, ++at)
                    cells[at] = i == 0 ? sign : "";
            }
        }
        std::string line;
        for (const std::string& cell : cells)
            line += cell;
        line.erase(line.find_last_not_of(' ') + 1);
        text += line + "\n";
    }
    return text;
}

}  // namespace stage
