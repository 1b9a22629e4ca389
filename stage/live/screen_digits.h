#pragma once

#include <string_view>

#include "stage/live/screen_picture.h"

namespace stage {

/// Big characters made of blocks. A scale of 1 makes them five rows high and six columns wide, with two between them.
struct BigText {
    /// `isNarrow` halves the width.
    int scale = 1;
    bool isNarrow = false;

    [[nodiscard]] int GetRows() const;
    [[nodiscard]] int CountColumns(std::string_view text) const;
    /// Its upper left corner at the row and column. What is neither a digit nor one of "abcd-" is put as it is.
    void Put(ScreenPicture& picture, int row, int column, std::string_view text, ScreenStyle style) const;
};

}  // namespace stage
