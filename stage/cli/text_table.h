#pragma once

#include <string>
#include <vector>

/// The text with a blank for every control character, so that a title cannot disturb the terminal.
[[nodiscard]] std::string MakePrintable(std::string text);

/// Columns of the terminal behind the file descriptor; 80 where it is none.
[[nodiscard]] std::size_t GetTerminalColumns(int fileDescriptor);

/// Every table is printed whole from now on.
void SetWideTables();

/// A table with aligned columns.
class TextTable {
public:
    enum class Align { Left, Right };
    struct Column {
        std::string title;
        Align align = Align::Left;
        /// Sentences, the last column: never cut, however long its lines become.
        bool isWhole = false;
    };

    explicit TextTable(std::vector<Column> columns) : columns_(std::move(columns)) {}

    /// As many cells as there are columns.
    void AddRow(std::vector<std::string> cells);
    /// The rows under their titles, two blanks between columns, none at a line's end. Control characters become blanks.
    /// Where the lines would be longer than the terminal, or than 80 columns where there is none, the widest texts are
    /// cut with an ellipsis, unless SetWideTables was called.
    [[nodiscard]] std::string AsText() const;

private:
    [[nodiscard]] std::vector<std::size_t> FindWidths_() const;

    std::vector<Column> columns_;
    std::vector<std::vector<std::string>> rows_;
};
