#pragma once

#include <string>
#include <vector>

/// The text with a blank for every control character, so that a title cannot disturb the terminal.
[[nodiscard]] std::string MakePrintable(std::string text);

/// A table with aligned columns.
class TextTable {
public:
    enum class Align { Left, Right };
    struct Column {
        std::string title;
        Align align = Align::Left;
    };

    explicit TextTable(std::vector<Column> columns) : columns_(std::move(columns)) {}

    /// As many cells as there are columns.
    void AddRow(std::vector<std::string> cells);
    /// The rows under their titles, two blanks between columns, none at a line's end. Control characters become blanks.
    [[nodiscard]] std::string AsText() const;

private:
    std::vector<Column> columns_;
    std::vector<std::vector<std::string>> rows_;
};
