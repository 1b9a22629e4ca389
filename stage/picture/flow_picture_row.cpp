#include "stage/picture/flow_picture_row.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <optional>
#include <utility>

namespace stage::flow {

namespace {

constexpr double LabelWidth = 340;
constexpr double LabelGap = 6;
constexpr double LaneGap = 3;
constexpr double ZoneGap = 4;
constexpr double MarkerPadding = 4;
constexpr double SignWidth = 16;
constexpr double LevelHeight = 18;
constexpr double ArcFoot = 5;
constexpr double CellHeight = 30;
constexpr double MeterSize = 13;
constexpr double CountSize = 10;
constexpr double TempoHeight = 34;
constexpr double RowGap = 20;

/// A label with what is drawn beside it, placed from left to right.
struct PlacedLabel {
    const Item* item = nullptr;
    std::vector<std::string> lines;
    /// Where the item itself lies.
    Span extent;
    bool hasStart = true;
    bool hasEnd = true;
    /// Left edge of the label with its sign or frame, and its width.
    double left = 0;
    double width = 0;
    double height = 0;
    double top = 0;

    [[nodiscard]] Span Reserved() const { return {std::min(extent.left, left), std::max(extent.right, left + width)}; }
};

/// Gives each label its lane: sets `top`, counted from the zone's top; returns the zone's height. The first lane is the
/// lowest one where `growsUp`, else the highest.
double StackLabels(std::vector<PlacedLabel>& labels, bool growsUp) {
    std::vector<Span> spans;
    for (const PlacedLabel& label : labels)
        spans.push_back(label.Reserved());
    const std::vector<std::size_t> lanes = AssignLanes(spans, LabelGap);
    std::vector<double> heights;
    for (std::size_t i = 0; i < labels.size(); ++i) {
        heights.resize(std::max(heights.size(), lanes[i] + 1), 0);
        heights[lanes[i]] = std::max(heights[lanes[i]], labels[i].height);
    }
    std::vector<double> offsets;
    double total = 0;
    for (const double height : heights) {
        offsets.push_back(total);
        total += height + LaneGap;
    }
    for (std::size_t i = 0; i < labels.size(); ++i)
        labels[i].top = growsUp ? total - LaneGap - offsets[lanes[i]] - labels[i].height : offsets[lanes[i]];
    return total;
}

class RowDrawer {
public:
    RowDrawer(const Sheet& sheet, const Row& row, bool isFirst, bool isLast)
        : sheet_(sheet), row_(row), isFirst_(isFirst), isLast_(isLast) {}

    Drawing Draw() {
        DrawSignposts();
        DrawLoops();
        DrawHolds();
        DrawBarLabels();
        DrawBars();
        DrawLeaders();
        DrawCountdown();
        DrawTempo();
        for (const auto& group : sheet_.groups)
            DrawGroup(group);
        drawing_.width = PageWidth;
        drawing_.height = y_ + RowGap;
        return std::move(drawing_);
    }

private:
    [[nodiscard]] bool Holds(const Item& item) const {
        const bool beginsBeforeEnd = isLast_ || item.startTick < row_.EndTick();
        if (item.IsPoint()) return beginsBeforeEnd && (isFirst_ || item.startTick >= row_.StartTick());
        // A range that only touches the row lies in another, unless it stands at the song's very edge.
        if (isLast_ && item.startTick >= row_.EndTick()) return true;
        if (isFirst_ && item.endTick <= row_.StartTick()) return true;
        return item.startTick < row_.EndTick() && item.endTick > row_.StartTick();
    }

    [[nodiscard]] PlacedLabel Place(const Item& item, double signWidth, double padding, bool isBold) const {
        PlacedLabel label;
        label.item = &item;
        label.extent = {row_.FindX(item.startTick), row_.FindX(item.endTick)};
        label.hasStart = isFirst_ || item.startTick >= row_.StartTick();
        label.hasEnd = isLast_ || item.endTick <= row_.EndTick();
        label.lines = WrapText(item.label, LabelWidth, LabelSize, isBold);
        double textWidth = 0;
        for (const std::string& line : label.lines)
            textWidth = std::max(textWidth, MeasureText(line, LabelSize, isBold));
        label.width = signWidth + textWidth + 2 * padding;
        label.left = std::max(std::min(label.extent.left, PageRight - label.width), PageLeft);
        label.height = std::max(1.0, static_cast<double>(label.lines.size())) * LineHeight(LabelSize) + padding;
        return label;
    }

    [[nodiscard]] std::vector<PlacedLabel> PlaceAll(const std::vector<Item>& items, double signWidth, double padding,
                                                    bool isBold) const {
        std::vector<PlacedLabel> labels;
        for (const Item& item : items) {
            if (Holds(item)) labels.push_back(Place(item, signWidth, padding, isBold));
        }
        return labels;
    }

    void AddLines(const PlacedLabel& label, double left, double top, bool isBold) {
        double baseline = top + LabelSize;
        for (const std::string& line : label.lines) {
            AddText(drawing_, {left, baseline}, line, LabelSize, label.item->ink, isBold);
            baseline += LineHeight(LabelSize);
        }
    }

    void DrawSignposts() {
        std::vector<PlacedLabel> labels;
        for (const Item& item : sheet_.signposts) {
            if (!Holds(item)) continue;
            const bool isMarker = item.ink == Ink::Marker;
            labels.push_back(Place(item, isMarker ? 0 : 2, isMarker ? MarkerPadding : 0, isMarker));
        }
        const double height = StackLabels(labels, true);
        for (const PlacedLabel& label : labels) {
            const bool isMarker = label.item->ink == Ink::Marker;
            const double top = y_ + label.top;
            if (isMarker)
                drawing_.boxes.push_back(
                    {label.left, top, label.width, label.height, Ink::Marker, Fill::None, true, 2});
            AddLines(label, label.left + (isMarker ? MarkerPadding : 2), top + (isMarker ? MarkerPadding / 2 : 0),
                     isMarker);
            leaders_.push_back({label.extent.left, top + label.height});
        }
        y_ += labels.empty() ? 0 : height + ZoneGap;
    }

    void DrawLoops() {
        std::vector<PlacedLabel> labels;
        std::vector<Span> spans;
        for (const Item& item : sheet_.loops) {
            if (!Holds(item)) continue;
            PlacedLabel label;
            label.item = &item;
            label.extent = {row_.FindX(item.startTick), row_.FindX(item.endTick)};
            label.hasStart = item.startTick >= row_.StartTick();
            label.hasEnd = item.endTick <= row_.EndTick();
            label.width = MeasureText(item.label, LabelSize, true);
            const double centre = (label.extent.left + label.extent.right - label.width) / 2;
            label.left = std::max(std::min(centre, PageRight - label.width), PageLeft);
            spans.push_back(label.Reserved());
            labels.push_back(std::move(label));
        }
        if (labels.empty()) return;
        const std::vector<std::size_t> levels = FindNestingLevels(spans);
        const std::size_t count = *std::max_element(levels.begin(), levels.end()) + 1;
        const double bottom = y_ + static_cast<double>(count) * LevelHeight + ArcFoot;
        for (std::size_t i = 0; i < labels.size(); ++i) {
            const PlacedLabel& label = labels[i];
            const double top = y_ + static_cast<double>(count - levels[i]) * LevelHeight - 3;
            drawing_.arcs.push_back(
                {label.extent.left, label.extent.right, top, bottom, label.hasStart, label.hasEnd, label.item->ink});
            AddText(drawing_, {label.left, top - 3}, label.item->label, LabelSize, label.item->ink, true);
        }
        y_ = bottom + ZoneGap;
    }

    void DrawHolds() {
        std::vector<PlacedLabel> labels = PlaceAll(sheet_.holds, SignWidth, 0, true);
        // The sign of a fermata stands over its middle, that of a cut is the word itself.
        for (PlacedLabel& label : labels) {
            if (label.item->ink != Ink::Fermata) continue;
            const double centre = (label.extent.left + label.extent.right - label.width) / 2;
            label.left = std::max(std::min(centre, PageRight - label.width), PageLeft);
        }
        const double height = StackLabels(labels, true);
        for (const PlacedLabel& label : labels) {
            const double top = y_ + label.top;
            const double middle = top + LabelSize / 2 + 2;
            if (label.item->ink == Ink::Fermata) {
                drawing_.signs.push_back(
                    {Sign::Kind::Fermata, {label.left + SignWidth / 2, middle}, 12, label.item->ink});
            } else if (label.item->ink == Ink::Caesura) {
                drawing_.signs.push_back(
                    {Sign::Kind::Caesura, {label.left + SignWidth / 2, middle}, 12, label.item->ink});
                leaders_.push_back({label.extent.left, top + label.height});
            }
            AddLines(label, label.left + (label.item->ink == Ink::Cut ? 4 : SignWidth), top, true);
        }
        y_ += labels.empty() ? 0 : height;
    }

    void DrawBarLabels() {
        std::vector<std::vector<std::string>> labels;
        std::size_t mostLines = 1;
        for (const PlacedBar& placed : row_.bars) {
            labels.push_back(WrapText(placed.bar.label, std::max(placed.width - 5, 1.0), LabelSize, false));
            mostLines = std::max(mostLines, labels.back().size());
        }
        const double height = static_cast<double>(mostLines) * LineHeight(LabelSize);
        for (std::size_t i = 0; i < labels.size(); ++i) {
            double baseline = y_ + height - LineHeight(LabelSize) * static_cast<double>(labels[i].size()) + LabelSize;
            for (const std::string& line : labels[i]) {
                AddText(drawing_, {row_.bars[i].left + 3, baseline}, line, LabelSize, Ink::Text);
                baseline += LineHeight(LabelSize);
            }
        }
        y_ += height;
    }

    void DrawBars() {
        cellTop_ = y_;
        for (const PlacedBar& placed : row_.bars) {
            drawing_.boxes.push_back({placed.left, y_, placed.width, CellHeight, Ink::Bar, Fill::None, true, 0});
            for (auto beat = std::upper_bound(sheet_.beatTicks.begin(), sheet_.beatTicks.end(), placed.bar.startTick);
                 beat != sheet_.beatTicks.end() && *beat < placed.bar.endTick; ++beat) {
                const double x = row_.FindX(*beat);
                drawing_.curves.push_back({{{x, y_ + CellHeight - 6}, {x, y_ + CellHeight}}, Ink::Beat, 1, false});
            }
        }
        for (const Item& item : sheet_.holds) {
            if (item.IsPoint() || !Holds(item)) continue;
            const double left = row_.FindX(item.startTick);
            const Fill fill = item.ink == Ink::Cut ? Fill::Hatch : Fill::Tint;
            drawing_.boxes.push_back({left, y_, row_.FindX(item.endTick) - left, CellHeight, item.ink, fill, false, 0});
        }
        for (const TL::Meter& meter : sheet_.meters) {
            if (!Holds({meter.abs_time(), meter.abs_time(), Ink::Meter, ""})) continue;
            const double x = row_.FindX(meter.abs_time()) + 4;
            AddText(drawing_, {x, y_ + 13}, fmt::format("{}", meter.numerator()), MeterSize, Ink::Meter, true);
            AddText(drawing_, {x, y_ + 26}, fmt::format("{}", meter.denominator()), MeterSize, Ink::Meter, true);
        }
        y_ += CellHeight;
        if (isLast_) {
            const double x = row_.Right() - 2;
            drawing_.curves.push_back({{{x, cellTop_}, {x, y_}}, Ink::Bar, 4, false});
        }
        y_ += ZoneGap;
    }

    void DrawLeaders() {
        for (const Point& start : leaders_)
            drawing_.curves.push_back({{start, {start.x, cellTop_}}, Ink::Faint, 0.7, false});
    }

    void DrawCountdown() {
        std::vector<PlacedLabel> labels;
        for (const Item& item : sheet_.countdown) {
            if (!Holds(item)) continue;
            PlacedLabel label;
            label.item = &item;
            label.width = MeasureText(item.label, CountSize, true) + 4;
            label.height = CountSize + 3;
            const double x = row_.FindX(item.startTick);
            label.extent = {x, x};
            label.left = std::max(x - label.width / 2, PageLeft - 8);
            labels.push_back(std::move(label));
        }
        if (labels.empty()) return;
        const double height = StackLabels(labels, false);
        for (const PlacedLabel& label : labels) {
            const double top = y_ + label.top;
            drawing_.boxes.push_back({label.left, top, label.width, label.height, Ink::Caesura, Fill::Tint, false, 3});
            AddText(drawing_, {label.left + 2, top + CountSize}, label.item->label, CountSize, Ink::Caesura, true);
        }
        y_ += height;
    }

    void DrawTempo();
    double DrawTempoLabels(const std::vector<TempoStep>& steps, const std::vector<bool>& isTold);

    void DrawGroup(const std::vector<Item>& items) {
        std::vector<PlacedLabel> labels;
        for (const Item& item : items) {
            if (!Holds(item)) continue;
            labels.push_back(Place(item, item.IsPoint() ? SignWidth : 0, item.IsPoint() ? 0 : 3, false));
            // Clear of the bar line that the point or the range begins at.
            labels.back().extent.right = std::max(labels.back().extent.right, labels.back().extent.left + 2);
        }
        if (labels.empty()) return;
        const double height = StackLabels(labels, false);
        for (const PlacedLabel& label : labels) {
            const double top = y_ + label.top;
            if (label.item->IsPoint()) {
                drawing_.signs.push_back(
                    {Sign::Kind::Cue, {label.left + SignWidth / 2, top + LabelSize / 2 + 2}, 10, label.item->ink});
                drawing_.curves.push_back(
                    {{{label.extent.left, cellTop_ + CellHeight}, {label.extent.left, top}}, Ink::Faint, 0.7, false});
                AddLines(label, label.left + SignWidth, top, false);
            } else {
                DrawRange(label, top);
                AddLines(label, label.left + 4, top + 1, false);
            }
        }
        y_ += height;
    }

    void DrawRange(const PlacedLabel& label, double top) {
        const Ink ink = label.item->ink;
        drawing_.boxes.push_back(
            {label.extent.left, top, label.extent.right - label.extent.left, label.height, ink, Fill::Tint, false, 0});
        const auto addEdge = [&](double x) {
            drawing_.curves.push_back({{{x, top}, {x, top + label.height}}, ink, 1.6, false});
        };
        if (label.hasStart) addEdge(label.extent.left + 0.8);
        if (label.hasEnd) addEdge(label.extent.right - 0.8);
    }

    const Sheet& sheet_;
    const Row& row_;
    const bool isFirst_;
    const bool isLast_;
    Drawing drawing_;
    double y_ = 0;
    double cellTop_ = 0;
    std::vector<Point> leaders_;
};

std::string DescribeTempo(double perMinute) {
    const double tenths = std::round(perMinute * 10) / 10;
    return fmt::format("{:g}", perMinute < 100000 ? tenths : perMinute);
}

double RowDrawer::DrawTempoLabels(const std::vector<TempoStep>& steps, const std::vector<bool>& isTold) {
    std::vector<Item> items;
    std::vector<TempoUnit> units;
    items.reserve(steps.size());
    for (std::size_t i = 0; i < steps.size(); ++i) {
        if (!isTold[i]) continue;
        const TempoUnit unit = FindTempoUnit(sheet_.meters, steps[i].startTick);
        std::string text = DescribeTempo(steps[i].heard / unit.quarters);
        // A number that the eye has just read is not shown again.
        if (!items.empty() && items.back().label == text && units.back().note == unit.note) continue;
        items.push_back({steps[i].startTick, steps[i].startTick, Ink::Tempo, std::move(text)});
        units.push_back(unit);
    }
    std::vector<PlacedLabel> labels;
    std::vector<std::optional<Sign::Kind>> notes;
    for (std::size_t i = 0; i < items.size(); ++i) {
        const bool showsUnit = i == 0 || units[i].note != units[i - 1].note;
        notes.push_back(showsUnit ? std::optional(units[i].note) : std::nullopt);
        labels.push_back(Place(items[i], showsUnit ? SignWidth : 0, 0, false));
    }
    const double height = StackLabels(labels, true);
    for (std::size_t i = 0; i < labels.size(); ++i) {
        const PlacedLabel& label = labels[i];
        const double top = y_ + label.top;
        if (notes[i]) drawing_.signs.push_back({*notes[i], {label.left + 7, top + LabelSize / 2}, 11, Ink::Tempo});
        AddLines(label, label.left + (notes[i] ? SignWidth : 0), top, false);
    }
    return height;
}

void RowDrawer::DrawTempo() {
    std::vector<TempoStep> steps;
    std::vector<bool> isTold;
    for (std::size_t i = 0; i < sheet_.tempos.size(); ++i) {
        TempoStep step = sheet_.tempos[i];
        if (step.endTick <= row_.StartTick() || step.startTick >= row_.EndTick()) continue;
        step.startTick = std::max(step.startTick, row_.StartTick());
        step.endTick = std::min(step.endTick, row_.EndTick());
        isTold.push_back(sheet_.isTempoTold[i] || steps.empty());
        steps.push_back(step);
    }
    // A tempo that never changes is shown once.
    const bool isFlat = sheet_.highestTempo / sheet_.lowestTempo < 1.005;
    if (steps.empty() || (isFlat && !isFirst_)) return;
    y_ += DrawTempoLabels(steps, isTold);

    const double height = isFlat ? 4 : TempoHeight;
    const auto findY = [&](double tempo) {
        if (isFlat) return y_ + 2;
        return y_ +
               height * (1 - std::log(tempo / sheet_.lowestTempo) / std::log(sheet_.highestTempo / sheet_.lowestTempo));
    };
    Curve heard{{}, Ink::Tempo, 1.6, false};
    Curve written{{}, Ink::Scale, 1, true};
    const auto finishWritten = [&] {
        if (!written.points.empty()) drawing_.curves.push_back(written);
        written.points.clear();
    };
    for (const TempoStep& step : steps) {
        const Span span{row_.FindX(step.startTick), row_.FindX(step.endTick)};
        heard.points.push_back({span.left, findY(step.heard)});
        heard.points.push_back({span.right, findY(step.heard)});
        if (step.heard == step.written) {
            finishWritten();
            continue;
        }
        written.points.push_back({span.left, findY(step.written)});
        written.points.push_back({span.right, findY(step.written)});
    }
    finishWritten();
    drawing_.curves.push_back(std::move(heard));
    y_ += height + ZoneGap + 2;
}

}  // namespace

double LineHeight(double size) {
    return size * 1.25;
}

void AddText(Drawing& drawing, Point start, std::string text, double size, Ink ink, bool isBold) {
    const double width = MeasureText(text, size, isBold);
    drawing.texts.push_back({start, size, width, ink, isBold, std::move(text)});
}

Drawing DrawRow(const Sheet& sheet, const Row& row, bool isFirst, bool isLast) {
    return RowDrawer(sheet, row, isFirst, isLast).Draw();
}

}  // namespace stage::flow
