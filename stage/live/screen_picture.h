#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace stage {

/// How a part of the screen stands out. A terminal may have no colours: whatever a style tells is also said in words.
enum class ScreenStyle : std::uint8_t {
    Plain,
    Faint,
    Strong,
    Title,  ///< the bar at the top
    Good,
    Warning,  ///< to be kept in sight
    Alarm,    ///< something was refused, or is broken
    Lamp,     ///< lit
};

struct ScreenSize {
    int rows = 24;
    int columns = 80;
    bool isUtf8 = true;  ///< else only ASCII is put on it

    bool operator==(const ScreenSize&) const = default;
};

struct ScreenSpan {
    int column = 0;
    std::string text;
    ScreenStyle style = ScreenStyle::Plain;

    bool operator==(const ScreenSpan&) const = default;
};

/// What a screen is to look like, row by row. What would lie outside of it is cut; control characters become blanks. A
/// value.
class ScreenPicture {
public:
    explicit ScreenPicture(const ScreenSize& size);

    [[nodiscard]] const ScreenSize& GetSize() const { return size_; }
    /// Those that were put later lie above the others.
    [[nodiscard]] const std::vector<ScreenSpan>& GetRow(int row) const { return rows_[static_cast<std::size_t>(row)]; }

    /// Puts the text there, cut with a sign at its end to `width` columns, or at the row's end. Returns the columns
    /// that it takes.
    int Put(int row, int column, std::string_view text, ScreenStyle style = ScreenStyle::Plain, int width = -1);
    /// Puts it so that it ends before the column `end`.
    void PutRight(int row, int end, std::string_view text, ScreenStyle style = ScreenStyle::Plain);
    /// A line across the screen, or from `column` on, with its title in it.
    void PutRule(int row, std::string_view title, int column = 0);
    void ClearRow(int row);
    /// Gives the whole row the style.
    void FillRow(int row, ScreenStyle style);

    /// The rows as they are read, without blanks at their ends, each with its line end.
    [[nodiscard]] std::string AsText() const;

private:
    [[nodiscard]] std::string MakeShowable_(std::string_view text) const;
    [[nodiscard]] bool HasRow_(int row) const { return row >= 0 && row < size_.rows; }

    ScreenSize size_;
    std::vector<std::vector<ScreenSpan>> rows_;
};

/// As much of the text as takes no more than `columns`, cut between characters.
[[nodiscard]] std::string_view CutColumns(std::string_view text, int columns);
/// The text in lines of no more than `columns`, broken at blanks where there are any.
[[nodiscard]] std::vector<std::string> WrapColumns(std::string_view text, int columns);

}  // namespace stage
