#include "stage/picture/flow_picture_layout.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <iterator>
#include <limits>
#include <numeric>
#include <utility>

#include "kit/utf8.h"
#include "tavo_midi/tempo_map.h"

namespace stage::flow {

namespace {

/// In parts of the size, as wide as the widest of the usual sans serif letter forms.
double MeasureCharacter(const kit::Character& character) {
    if (character.columns != 1) return character.columns == 0 ? 0 : 1.05;
    if (!character.isWellFormed || character.value > 0x7E) return 0.8;
    const char c = static_cast<char>(character.value);
    constexpr std::string_view Narrow = "ijl.,:;'|!I";
    constexpr std::string_view Slim = " ()[]{}/\\frt-`\"";
    constexpr std::string_view Wide = "mwMW@%";
    if (Narrow.find(c) != std::string_view::npos) return 0.36;
    if (Slim.find(c) != std::string_view::npos) return 0.48;
    if (Wide.find(c) != std::string_view::npos) return 1.0;
    const bool isUpper = c >= 'A' && c <= 'Z';
    if (isUpper || std::string_view("+=<>~#^&").find(c) != std::string_view::npos) return 0.84;
    return 0.65;
}

constexpr double BoldFactor = 1.1;

/// The bytes of the longest beginning that fits, at least one character.
std::size_t CountFittingBytes(std::string_view text, double width, double size, bool isBold) {
    const double scale = size * (isBold ? BoldFactor : 1);
    double used = 0;
    std::size_t bytes = 0;
    while (bytes < text.size()) {
        const kit::Character character = kit::ReadCharacter(text.substr(bytes));
        used += MeasureCharacter(character) * scale;
        if (used > width && bytes > 0) break;
        bytes += character.bytes;
    }
    return bytes;
}

}  // namespace

double MeasureText(std::string_view text, double size, bool isBold) {
    double width = 0;
    while (!text.empty()) {
        const kit::Character character = kit::ReadCharacter(text);
        width += MeasureCharacter(character);
        text.remove_prefix(character.bytes);
    }
    return width * size * (isBold ? BoldFactor : 1);
}

std::vector<std::string> WrapText(std::string_view text, double width, double size, bool isBold) {
    std::vector<std::string> lines;
    while (true) {
        text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
        if (text.empty()) return lines;
        std::size_t bytes = CountFittingBytes(text, width, size, isBold);
        if (bytes < text.size()) {
            const std::size_t blank = text.rfind(' ', bytes);
            if (blank != std::string_view::npos && blank > 0) bytes = blank;
        }
        std::string_view line = text.substr(0, bytes);
        line = line.substr(0, line.find_last_not_of(' ') + 1);
        lines.emplace_back(line);
        text.remove_prefix(bytes);
    }
}

std::vector<std::size_t> AssignLanes(const std::vector<Span>& spans, double gap) {
    std::vector<std::size_t> order(spans.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::sort(order.begin(), order.end(),
              [&](std::size_t a, std::size_t b) { return std::pair(spans[a].left, a) < std::pair(spans[b].left, b); });
    using Busy = std::pair<double, std::size_t>;
    std::priority_queue<Busy, std::vector<Busy>, std::greater<>> busy;
    std::set<std::size_t> freeLanes;
    std::size_t laneCount = 0;
    std::vector<std::size_t> lanes(spans.size());
    for (const std::size_t index : order) {
        for (; !busy.empty() && busy.top().first + gap <= spans[index].left; busy.pop())
            freeLanes.insert(busy.top().second);
        if (freeLanes.empty()) freeLanes.insert(laneCount++);
        lanes[index] = *freeLanes.begin();
        freeLanes.erase(freeLanes.begin());
        busy.emplace(spans[index].right, lanes[index]);
    }
    return lanes;
}

namespace {

/// How many loops lie over each place so far.
class Skyline {
public:
    /// Puts a span on top of what lies under it; returns how many lie under it.
    std::size_t Put(const Span& span) {
        Split(span.left);
        Split(span.right);
        const auto first = levels_.find(span.left);
        const auto last = levels_.find(span.right);
        std::size_t level = 0;
        for (auto piece = first; piece != last; ++piece)
            level = std::max(level, piece->second);
        levels_.erase(std::next(first), last);
        first->second = level + 1;
        return level;
    }

private:
    void Split(double x) {
        const auto after = levels_.upper_bound(x);
        const std::size_t level = after == levels_.begin() ? 0 : std::prev(after)->second;
        levels_.try_emplace(x, level);
    }

    std::map<double, std::size_t> levels_;
};

}  // namespace

std::vector<std::size_t> FindNestingLevels(const std::vector<Span>& spans) {
    std::vector<std::size_t> order(spans.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
        return std::pair(spans[a].right - spans[a].left, a) < std::pair(spans[b].right - spans[b].left, b);
    });
    Skyline skyline;
    std::vector<std::size_t> levels(spans.size());
    for (const std::size_t index : order) {
        Span span = spans[index];
        if (!(span.right > span.left)) span.right = std::nextafter(span.left, std::numeric_limits<double>::max());
        levels[index] = skyline.Put(span);
    }
    return levels;
}

double Row::FindX(unsigned int tick) const {
    if (tick <= StartTick()) return Left();
    if (tick >= EndTick()) return Right();
    const auto after = std::upper_bound(bars.begin(), bars.end(), tick, [](unsigned int t, const PlacedBar& placed) {
        return t < placed.bar.startTick;
    });
    const PlacedBar& placed = *std::prev(after);
    const double part = static_cast<double>(tick - placed.bar.startTick) / (placed.bar.endTick - placed.bar.startTick);
    return placed.left + part * placed.width;
}

std::size_t CountBarsInRow(std::size_t barCount) {
    constexpr std::size_t ShortSong = 96;
    constexpr std::size_t LongSong = 256;
    return barCount <= ShortSong ? 8 : barCount <= LongSong ? 12 : 16;
}

namespace {

constexpr double BarLabelPadding = 8;

unsigned int FindUsualLength(const std::vector<TL::BarPositions::Bar>& bars) {
    std::map<unsigned int, std::size_t> counts;
    for (const auto& bar : bars)
        ++counts[bar.endTick - bar.startTick];
    const auto most = std::max_element(counts.begin(), counts.end(),
                                       [](const auto& a, const auto& b) { return a.second < b.second; });
    return std::max(most->first, 1U);
}

double ChooseBarWidth(const TL::BarPositions::Bar& bar, double unit, unsigned int usualLength, double rowWidth) {
    // Half steps keep the bars of different rows below one another.
    const double ratio = std::sqrt(static_cast<double>(bar.endTick - bar.startTick) / usualLength);
    const double steps = std::clamp(std::round(ratio * 2), 1.0, 4.0);
    const double forLabel = std::min(MeasureText(bar.label, LabelSize, false) + BarLabelPadding, 2 * unit);
    const double labelSteps = std::ceil(2 * forLabel / unit - 1e-9);
    return std::min(std::max(steps, labelSteps) * unit / 2, rowWidth);
}

}  // namespace

std::vector<Row> BreakIntoRows(const std::vector<TL::BarPositions::Bar>& bars,
                               const std::set<unsigned int>& sectionTicks, double left, double right) {
    std::vector<Row> rows;
    if (bars.empty()) return rows;
    const double rowWidth = right - left;
    const double unit = rowWidth / static_cast<double>(CountBarsInRow(bars.size()));
    const unsigned int usualLength = FindUsualLength(bars);
    for (const auto& bar : bars) {
        const double width = ChooseBarWidth(bar, unit, usualLength, rowWidth);
        const double used = rows.empty() ? rowWidth : rows.back().Right() - left;
        const auto section = sectionTicks.lower_bound(bar.startTick);
        const bool beginsSection = section != sectionTicks.end() && *section < bar.endTick;
        if (used + width > rowWidth + 1e-6 || (beginsSection && used >= rowWidth / 2)) rows.emplace_back();
        Row& row = rows.back();
        const double barLeft = row.bars.empty() ? left : row.Right();
        row.bars.push_back({bar, barLeft, width});
    }
    return rows;
}

namespace {

double FindScaleAt(const CL::SongLog& edits, unsigned int tick) {
    const auto& scales = edits.GetTempoScales();
    const auto after = std::upper_bound(scales.begin(), scales.end(), tick,
                                        [](unsigned int t, const auto& edit) { return t < edit.abs_time(); });
    if (after == scales.begin() || tick >= std::prev(after)->end()) return 1;
    return static_cast<double>(
        std::clamp(std::prev(after)->float_value(), CL::TempoScale::LowestPlayable, CL::TempoScale::HighestPlayable));
}

}  // namespace

std::vector<TempoStep> MakeTempoSteps(const tavo_midi::SongData& song, const CL::SongLog& edits) {
    const TL::Timeline& timeline = song.GetTimeline();
    const unsigned int start = timeline.GetStartTickIndex();
    const unsigned int end = timeline.GetEndTickIndex();
    const tavo_midi::TempoMap tempos(timeline.GetTempos(), song.GetTicksPerQuarter());
    std::set<unsigned int> ticks{start};
    const auto insert = [&](unsigned int tick) {
        if (tick > start && tick < end) ticks.insert(tick);
    };
    for (const auto& segment : tempos.GetSegments())
        insert(segment.tick);
    for (const CL::TempoScale& edit : edits.GetTempoScales())
        insert(edit.abs_time()), insert(edit.end());

    std::vector<TempoStep> steps;
    for (auto tick = ticks.begin(); tick != ticks.end(); ++tick) {
        const auto next = std::next(tick);
        const double written = 60e6 / tempos.GetSegments()[tempos.FindSegment(*tick)].microsecondsPerQuarter;
        const double heard = written * FindScaleAt(edits, *tick);
        if (!steps.empty() && steps.back().written == written && steps.back().heard == heard) {
            steps.back().endTick = next == ticks.end() ? end : *next;
            continue;
        }
        steps.push_back({*tick, next == ticks.end() ? std::max(end, *tick) : *next, written, heard});
    }
    return steps;
}

std::vector<bool> ChooseToldTempos(const std::vector<TempoStep>& steps, unsigned int ticksPerQuarter) {
    std::vector<bool> isTold(steps.size(), false);
    for (std::size_t i = 0; i < steps.size(); ++i) {
        const bool isLong = steps[i].endTick - steps[i].startTick >= ticksPerQuarter;
        const bool hasNeighbours = i > 0 && i + 1 < steps.size();
        const bool turns =
            hasNeighbours && (steps[i].heard > steps[i - 1].heard) != (steps[i + 1].heard > steps[i].heard);
        isTold[i] = i == 0 || isLong || turns;
    }
    return isTold;
}

PagePlan PlacePages(const std::vector<double>& heights, double firstTop, double top, double bottom) {
    PagePlan plan;
    plan.pageTops.push_back(0);
    double y = firstTop;
    bool isPageEmpty = true;
    for (const double height : heights) {
        const double pageTop = plan.pageTops.back();
        const double pageEnd = std::max(pageTop + PageHeight, y + bottom);
        if (!isPageEmpty && y + height + bottom > pageTop + PageHeight) {
            plan.pageTops.push_back(pageEnd);
            y = pageEnd + top;
        }
        plan.tops.push_back(y);
        y += height;
        isPageEmpty = false;
    }
    plan.end = y + bottom;
    return plan;
}

}  // namespace stage::flow
