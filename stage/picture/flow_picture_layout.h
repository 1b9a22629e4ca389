#pragma once

#include <cstddef>
#include <map>
#include <queue>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "stage/picture/flow_picture.h"
#include "tavo_core/bar_positions.h"

/// The rules of layout that a picture of a song's flow is made by; only flow_picture*.cpp and their tests use them.
namespace stage::flow {

/// Size of all small text.
inline constexpr double LabelSize = 11.5;

/// Width of the text in wide letter forms.
[[nodiscard]] double MeasureText(std::string_view text, double size, bool isBold);

/// The text in lines that are no wider than `width`, broken at blanks, inside a word only where it is too long for a
/// line. Nothing is left out but the blanks at the breaks. An empty text has no line.
[[nodiscard]] std::vector<std::string> WrapText(std::string_view text, double width, double size, bool isBold);

struct Span {
    double left = 0;
    double right = 0;
};

/// Puts spans into as few lanes as possible, so that none of one lane come nearer than `gap`: the lane of each. Of the
/// free lanes the lowest is taken, from left to right.
[[nodiscard]] std::vector<std::size_t> AssignLanes(const std::vector<Span>& spans, double gap);

/// Levels for loops: one lies above all that it covers, or overlaps and is not longer than itself; the innermost have
/// level 0. n log n.
[[nodiscard]] std::vector<std::size_t> FindNestingLevels(const std::vector<Span>& spans);

/// A bar at its place in a row.
struct PlacedBar {
    TL::BarPositions::Bar bar;
    double left = 0;
    double width = 0;
};

/// Bars side by side.
struct Row {
    std::vector<PlacedBar> bars;

    [[nodiscard]] unsigned int StartTick() const { return bars.front().bar.startTick; }
    [[nodiscard]] unsigned int EndTick() const { return bars.back().bar.endTick; }
    [[nodiscard]] double Left() const { return bars.front().left; }
    [[nodiscard]] double Right() const { return bars.back().left + bars.back().width; }
    /// The place of a tick; those outside stand at the row's ends.
    [[nodiscard]] double FindX(unsigned int tick) const;
};

/// How many bars of the usual length a row holds: few in a short song, many in a long one.
[[nodiscard]] std::size_t CountBarsInRow(std::size_t barCount);

/// Breaks the bars into rows between `left` and `right`. Bars of one length are equally wide in all rows; a longer bar,
/// or one with a long label, is wider. A row also ends before a bar with one of the `sectionTicks`, if at least half of
/// it is full.
[[nodiscard]] std::vector<Row> BreakIntoRows(const std::vector<TL::BarPositions::Bar>& bars,
                                             const std::set<unsigned int>& sectionTicks, double left, double right);

/// A stretch of one tempo, in quarter notes a minute.
struct TempoStep {
    unsigned int startTick = 0;
    unsigned int endTick = 0;
    double written = 0;
    /// With the tempo scales of the edits; one that cannot be played counts as the nearest that can.
    double heard = 0;
};

/// The song's tempo from `startTick` to `endTick`, without gaps.
[[nodiscard]] std::vector<TempoStep> MakeTempoSteps(const tavo_midi::SongData& song, const CL::SongLog& edits);

/// Whether a step is given in figures: the first, one that lasts a quarter note, a turning point.
[[nodiscard]] std::vector<bool> ChooseToldTempos(const std::vector<TempoStep>& steps, unsigned int ticksPerQuarter);

/// Where rows and pages begin, counted from the first page's top, and where the last page ends.
struct PagePlan {
    std::vector<double> tops;
    std::vector<double> pageTops;
    double end = 0;
};

/// Puts rows of these heights on pages. The rows of the first page begin at `firstTop`, those of the others at `top`
/// after the page's own; `bottom` is the margin.
[[nodiscard]] PagePlan PlacePages(const std::vector<double>& heights, double firstTop, double top, double bottom);

}  // namespace stage::flow
