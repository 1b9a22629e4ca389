#pragma once

#include "stage/picture/flow_picture_sheet.h"

/// The pieces that a picture is put together from; only flow_picture*.cpp and their tests use them.
namespace stage::flow {

/// Where rows begin and end on the page.
inline constexpr double PageLeft = 40;
inline constexpr double PageRight = PageWidth - PageLeft;

/// Height of a line of text of this size.
[[nodiscard]] double LineHeight(double size);

/// Adds a line of text whose baseline begins at `start`.
void AddText(Drawing& drawing, Point start, std::string text, double size, Ink ink, bool isBold = false);

/// One row of bars with all that stands over and under it, from y 0 to the drawing's height. Of the song's items it
/// takes those that lie in it; the first row takes what lies before, the last what lies after.
[[nodiscard]] Drawing DrawRow(const Sheet& sheet, const Row& row, bool isFirst, bool isLast);

}  // namespace stage::flow
