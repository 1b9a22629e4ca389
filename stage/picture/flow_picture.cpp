#include "stage/picture/flow_picture.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <set>
#include <utility>

#include "stage/picture/flow_picture_row.h"

namespace stage::flow {

namespace {

constexpr double TopMargin = 36;
constexpr double BottomMargin = 36;
constexpr double TitleSize = 28;
constexpr double SubtitleSize = 14;
constexpr double LegendGap = 22;
constexpr double SwatchWidth = 34;

/// Adds the text in as many lines as it needs; returns where the next line's top is.
double AddParagraph(Drawing& drawing, double top, const std::string& text, double size, Ink ink, bool isBold) {
    for (const std::string& line : WrapText(text, PageRight - PageLeft, size, isBold)) {
        AddText(drawing, {PageLeft, top + size}, line, size, ink, isBold);
        top += LineHeight(size);
    }
    return top;
}

std::string MakeTitle(const Subject& subject) {
    const std::string& title = subject.song.GetTitle();
    return subject.song.GetSongNumber() + (title.empty() ? "" : "  " + title);
}

/// The song's title and what belongs to the whole of it.
Drawing DrawHeading(const Subject& subject, std::size_t barCount) {
    Drawing heading;
    double y = AddParagraph(heading, TopMargin, MakeTitle(subject), TitleSize, Ink::Text, true);
    const std::string facts =
        fmt::format("{}  \u00b7  {} bar{}  \u00b7  {} as written  \u00b7  edits of version {}", subject.showTitle,
                    barCount, barCount == 1 ? "" : "s", subject.length, subject.version);
    y = AddParagraph(heading, y + 4, facts, SubtitleSize, Ink::Faint, false);
    if (subject.edits.GetAttacca() == CL::AttaccaSkip)
        y = AddParagraph(heading, y + 4, "This song is skipped: the show passes over it.", SubtitleSize, Ink::Follow,
                         true);
    heading.height = y + 18;
    return heading;
}

std::string DescribeFollowing(const Subject& subject) {
    switch (subject.edits.GetAttacca()) {
        case CL::AttaccaNext:
            return subject.nextSong.empty() ? "attacca, but no song follows" : "attacca: " + subject.nextSong;
        case CL::AttaccaSkip:
            return "skipped";
        default:
            return "";
    }
}

/// How the song follows on, set at the right edge under its last bar.
Drawing DrawFollowing(const std::string& words) {
    constexpr double Width = 420;
    constexpr double Padding = 8;
    Drawing following;
    const std::vector<std::string> lines = WrapText(words, Width, SubtitleSize, true);
    double widest = 0;
    for (const std::string& line : lines)
        widest = std::max(widest, MeasureText(line, SubtitleSize, true));
    const double left = PageRight - widest - 2 * Padding;
    double baseline = Padding / 2 + SubtitleSize;
    for (const std::string& line : lines) {
        AddText(following, {left + Padding, baseline}, line, SubtitleSize, Ink::Follow, true);
        baseline += LineHeight(SubtitleSize);
    }
    const double boxHeight = static_cast<double>(lines.size()) * LineHeight(SubtitleSize) + Padding;
    following.boxes.push_back({left, 0, PageRight - left, boxHeight, Ink::Follow, Fill::None, true, 3});
    following.height = boxHeight + LegendGap;
    return following;
}

struct LegendEntry {
    Ink ink;
    const char* words;
};

constexpr std::array<LegendEntry, 15> LegendEntries{{
    {Ink::Marker, "marker"},
    {Ink::Key, "key"},
    {Ink::Page, "page of the score"},
    {Ink::Vamp, "vamp: goes round until the operator goes on"},
    {Ink::Repeat, "repeat: sounds so often in all"},
    {Ink::Cut, "cut: left out"},
    {Ink::Fermata, "fermata: held until the operator goes on"},
    {Ink::Caesura, "caesura: stops there after the countdown"},
    {Ink::Tempo, "tempo as it is heard, clicks a minute"},
    {Ink::Scale, "tempo scale; dashed: the tempo as written"},
    {Ink::Transposition, "transposition"},
    {Ink::Click, "length of the click"},
    {Ink::Ambience, "ambience, goes round"},
    {Ink::Sound, "sound effect"},
    {Ink::Cue, "OSC message"},
}};

/// A small example of how the ink is drawn, in the space from `left` that a legend leaves.
void AddSwatch(Drawing& drawing, Ink ink, double left, double top) {
    const double middle = top + LabelSize / 2 + 1;
    const double right = left + SwatchWidth - 8;
    switch (ink) {
        case Ink::Marker:
            drawing.boxes.push_back({left, top, right - left, LabelSize + 3, ink, Fill::None, true, 2});
            break;
        case Ink::Key:
            AddText(drawing, {left, top + LabelSize}, "D", LabelSize, ink);
            break;
        case Ink::Page:
            AddText(drawing, {left, top + LabelSize}, "p. 1", LabelSize, ink);
            break;
        case Ink::Vamp:
        case Ink::Repeat:
            drawing.arcs.push_back({left, right, top + 2, top + 14, true, true, ink});
            break;
        case Ink::Cut:
            drawing.boxes.push_back({left, top, right - left, LabelSize + 3, ink, Fill::Hatch, false, 0});
            break;
        case Ink::Fermata:
            drawing.signs.push_back({Sign::Kind::Fermata, {left + 12, middle}, 12, ink});
            break;
        case Ink::Caesura:
            drawing.signs.push_back({Sign::Kind::Caesura, {left + 12, middle}, 12, ink});
            break;
        case Ink::Tempo:
            drawing.curves.push_back(
                {{{left, middle + 3}, {left + 12, middle + 3}, {left + 12, middle - 3}, {right, middle - 3}},
                 ink,
                 1.6,
                 false});
            break;
        case Ink::Cue:
        case Ink::Sound:
            drawing.signs.push_back({Sign::Kind::Cue, {left + 8, middle}, 10, ink});
            break;
        default:
            drawing.boxes.push_back({left, top, right - left, LabelSize + 3, ink, Fill::Tint, false, 0});
            drawing.curves.push_back({{{left + 0.8, top}, {left + 0.8, top + LabelSize + 3}}, ink, 1.6, false});
            drawing.curves.push_back({{{right, top}, {right, top + LabelSize + 3}}, ink, 1.6, false});
            break;
    }
}

Drawing DrawLegend(const Sheet& sheet) {
    Drawing legend;
    legend.curves.push_back({{{PageLeft, 0}, {PageRight, 0}}, Ink::Faint, 0.7, false});
    double x = PageLeft;
    double y = 12;
    constexpr double LegendLineHeight = 22;
    for (const LegendEntry& entry : LegendEntries) {
        if (entry.ink != Ink::Tempo && !sheet.Has(entry.ink)) continue;
        const double width = SwatchWidth + MeasureText(entry.words, LabelSize, false);
        if (x > PageLeft && x + width > PageRight) {
            x = PageLeft;
            y += LegendLineHeight;
        }
        AddSwatch(legend, entry.ink, x, y);
        AddText(legend, {x + SwatchWidth, y + LabelSize}, entry.words, LabelSize, Ink::Text);
        x += width + LegendGap;
    }
    legend.height = y + LegendLineHeight;
    return legend;
}

/// What stands at the top of every page but the first.
Drawing DrawRunningHead(const Subject& subject, std::size_t page, std::size_t pageCount) {
    Drawing head;
    const std::string words =
        fmt::format("{}  \u00b7  {}  \u00b7  page {} of {}", MakeTitle(subject), subject.showTitle, page, pageCount);
    head.height = AddParagraph(head, TopMargin - 12, words, LabelSize, Ink::Faint, false) + 16;
    return head;
}

template <class Marks>
void AppendAll(std::vector<Marks>& marks, const std::vector<Marks>& more, void (*move)(Marks&, double), double down) {
    marks.reserve(marks.size() + more.size());
    for (Marks mark : more) {
        move(mark, down);
        marks.push_back(std::move(mark));
    }
}

}  // namespace

void Drawing::Append(const Drawing& other, double down) {
    AppendAll<Box>(
        boxes, other.boxes, [](Box& box, double dy) { box.top += dy; }, down);
    AppendAll<Curve>(
        curves, other.curves,
        [](Curve& curve, double dy) {
            for (Point& point : curve.points)
                point.y += dy;
        },
        down);
    AppendAll<Arc>(
        arcs, other.arcs, [](Arc& arc, double dy) { arc.top += dy, arc.bottom += dy; }, down);
    AppendAll<Sign>(
        signs, other.signs, [](Sign& sign, double dy) { sign.centre.y += dy; }, down);
    AppendAll<Text>(
        texts, other.texts, [](Text& text, double dy) { text.start.y += dy; }, down);
}

Drawing Draw(const Subject& subject) {
    const Sheet sheet = MakeSheet(subject.song, subject.edits);
    std::set<unsigned int> sectionTicks;
    for (const Item& item : sheet.signposts) {
        if (item.ink == Ink::Marker) sectionTicks.insert(item.startTick);
    }
    const std::vector<Row> rows = BreakIntoRows(sheet.bars, sectionTicks, PageLeft, PageRight);
    std::vector<Drawing> blocks;
    for (std::size_t i = 0; i < rows.size(); ++i)
        blocks.push_back(DrawRow(sheet, rows[i], i == 0, i + 1 == rows.size()));
    const std::string following = DescribeFollowing(subject);
    if (!following.empty()) blocks.push_back(DrawFollowing(following));
    blocks.push_back(DrawLegend(sheet));

    std::vector<double> heights;
    for (const Drawing& block : blocks)
        heights.push_back(block.height);
    Drawing picture = DrawHeading(subject, sheet.bars.size());
    // The number of pages is not known yet; it hardly changes the height of the line that shows it.
    const double headHeight = DrawRunningHead(subject, 99, 99).height;
    const PagePlan plan = PlacePages(heights, picture.height, headHeight, BottomMargin);
    for (std::size_t i = 0; i < blocks.size(); ++i)
        picture.Append(blocks[i], plan.tops[i]);
    for (std::size_t page = 1; page < plan.pageTops.size(); ++page) {
        const double top = plan.pageTops[page];
        picture.Append(DrawRunningHead(subject, page + 1, plan.pageTops.size()), top);
        picture.curves.push_back({{{0, top}, {PageWidth, top}}, Ink::Faint, 0.5, true});
    }
    picture.width = PageWidth;
    picture.height = plan.end;
    return picture;
}

}  // namespace stage::flow
