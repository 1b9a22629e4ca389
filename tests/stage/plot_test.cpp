#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <numeric>

#include "stage/picture/flow_picture.h"
#include "stage/picture/flow_picture_layout.h"
#include "stage/picture/flow_picture_row.h"
#include "stage/picture/flow_picture_sheet.h"
#include "tests/stage/small_show.h"

namespace {

using namespace stage::flow;
using test_support::ProgramResult;
using test_support::ReadAll;
using test_support::RunStage;
using testing::HasSubstr;
using testing::Not;

constexpr unsigned int BeatTicks = 480;

/// Bars of these beats each, labelled "1", "2" and so on, at 120.
tavo_midi::SongData MakeSong(const std::vector<unsigned int>& beatsOfBars, const std::string& title = "Song") {
    TL::Timeline timeline;
    timeline.SetSongTitle(title);
    timeline.GetTempos().Append(TL::Tempo(0, 500000));
    unsigned int tick = 0;
    unsigned int lastBeats = 0;
    for (std::size_t bar = 0; bar < beatsOfBars.size(); ++bar) {
        if (beatsOfBars[bar] != lastBeats)
            timeline.GetMeters().Append(TL::Meter(tick, static_cast<std::uint8_t>(beatsOfBars[bar]), 4));
        lastBeats = beatsOfBars[bar];
        for (unsigned int beat = 1; beat <= beatsOfBars[bar]; ++beat, tick += BeatTicks)
            timeline.GetBarsBeats().Append(TL::BarsBeats(tick, beat, std::to_string(bar + 1)));
    }
    timeline.SetEndTickIndex(tick);
    return {"7", timeline, BeatTicks};
}

Drawing DrawSong(const tavo_midi::SongData& song, const CL::SongLog& edits) {
    return Draw({song, edits, "Evening", "1.4", "3:12", "8 Next"});
}

std::size_t CountTexts(const Drawing& drawing, const std::string& text) {
    return static_cast<std::size_t>(
        std::count_if(drawing.texts.begin(), drawing.texts.end(), [&](const Text& each) { return each.text == text; }));
}

bool AreApart(const Text& a, const Text& b) {
    constexpr double Ascent = 0.78;
    const bool isBeside = a.start.x + a.width <= b.start.x + 0.01 || b.start.x + b.width <= a.start.x + 0.01;
    const bool isAbove = a.start.y <= b.start.y - b.size * Ascent || b.start.y <= a.start.y - a.size * Ascent;
    return isBeside || isAbove;
}

/// No two texts touch, and everything lies on the paper.
void ExpectReadable(const Drawing& drawing) {
    std::vector<const Text*> byHeight;
    for (const Text& text : drawing.texts) {
        EXPECT_GE(text.start.x, 0) << text.text;
        EXPECT_LE(text.start.x + text.width, PageWidth) << text.text;
        EXPECT_GE(text.start.y - text.size, 0) << text.text;
        EXPECT_LE(text.start.y, drawing.height) << text.text;
        byHeight.push_back(&text);
    }
    std::sort(byHeight.begin(), byHeight.end(), [](auto* a, auto* b) { return a->start.y < b->start.y; });
    for (std::size_t i = 0; i < byHeight.size(); ++i) {
        for (std::size_t j = i + 1; j < byHeight.size() && byHeight[j]->start.y < byHeight[i]->start.y + 30; ++j)
            EXPECT_TRUE(AreApart(*byHeight[i], *byHeight[j])) << byHeight[i]->text << " and " << byHeight[j]->text;
    }
    for (const Box& box : drawing.boxes) {
        EXPECT_GE(box.left, 0);
        EXPECT_LE(box.left + box.width, PageWidth);
        EXPECT_LE(box.top + box.height, drawing.height);
    }
    for (const Arc& arc : drawing.arcs)
        EXPECT_TRUE(arc.left >= 0 && arc.right <= PageWidth && arc.top >= 0 && arc.bottom <= drawing.height);
}

TEST(FlowLayout, Text_IsBrokenAtBlanksAndInsideWordsThatAreTooLong) {
    const double ofSix = MeasureText("aaaaaa", 10, false) + 0.1;
    using Lines = std::vector<std::string>;
    EXPECT_EQ(Lines{}, WrapText("", ofSix, 10, false));
    EXPECT_EQ(Lines{}, WrapText("  ", ofSix, 10, false));
    EXPECT_EQ(Lines{"aaaaaa"}, WrapText("aaaaaa", ofSix, 10, false));
    EXPECT_EQ((Lines{"aaa", "aaaa"}), WrapText("aaa aaaa", ofSix, 10, false));
    EXPECT_EQ((Lines{"aaaaaa", "aa"}), WrapText("aaaaaaaa", ofSix, 10, false));
    EXPECT_EQ((Lines{"a", "b"}), WrapText("ab", 0, 10, false)) << "one character goes into any width";
    EXPECT_EQ(Lines{"No\u00ebl"}, WrapText("No\u00ebl", ofSix, 10, false));
}

TEST(FlowLayout, SpansThatWouldTouch_LieInDifferentLanes) {
    using Lanes = std::vector<std::size_t>;
    EXPECT_EQ(Lanes{}, AssignLanes({}, 2));
    EXPECT_EQ((Lanes{0, 0}), AssignLanes({{0, 10}, {12, 20}}, 2)) << "the gap is kept";
    EXPECT_EQ((Lanes{0, 1}), AssignLanes({{0, 10}, {11.9, 20}}, 2)) << "it is not";
    EXPECT_EQ((Lanes{1, 0, 0}), AssignLanes({{5, 15}, {0, 10}, {12, 20}}, 2)) << "from left to right, lowest first";
}

TEST(FlowLayout, ALoop_LiesAboveThoseInsideIt) {
    using Levels = std::vector<std::size_t>;
    EXPECT_EQ(Levels{}, FindNestingLevels({}));
    EXPECT_EQ((Levels{2, 1, 0}), FindNestingLevels({{0, 100}, {10, 90}, {20, 30}}));
    EXPECT_EQ((Levels{0, 0, 1}), FindNestingLevels({{0, 10}, {10, 20}, {0, 20}})) << "side by side";
    EXPECT_EQ((Levels{0, 1}), FindNestingLevels({{0, 10}, {0, 10}})) << "the same bars twice";
    EXPECT_EQ((Levels{0, 1}), FindNestingLevels({{0, 10}, {5, 20}})) << "crossing ones do not hide each other";
}

TEST(FlowLayout, Rows_AreFullOfEqualBars) {
    const tavo_midi::SongData song = MakeSong(std::vector<unsigned int>(20, 4));
    const auto bars = TL::BarPositions(song.GetTimeline()).GetBars();
    const std::vector<Row> rows = BreakIntoRows(bars, {}, 40, 960);
    ASSERT_EQ(3U, rows.size());
    EXPECT_EQ(8U, rows[0].bars.size());
    EXPECT_EQ(4U, rows[2].bars.size());
    EXPECT_DOUBLE_EQ(rows[0].bars[1].left, rows[1].bars[1].left);
    EXPECT_DOUBLE_EQ(960, rows[0].Right());
    EXPECT_DOUBLE_EQ(40, rows[1].FindX(0)) << "before the row";
    EXPECT_DOUBLE_EQ(40 + 115 / 4.0, rows[1].FindX(8 * 1920 + 480));
    EXPECT_DOUBLE_EQ(960, rows[1].FindX(20 * 1920)) << "behind it";
}

TEST(FlowLayout, ASection_BeginsARowIfTheOneBeforeIsHalfFull) {
    const tavo_midi::SongData song = MakeSong(std::vector<unsigned int>(20, 4));
    const auto bars = TL::BarPositions(song.GetTimeline()).GetBars();
    const auto sizes = [&](unsigned int sectionBar) {
        std::vector<std::size_t> counts;
        for (const Row& row : BreakIntoRows(bars, {(sectionBar - 1) * 1920}, 40, 960))
            counts.push_back(row.bars.size());
        return counts;
    };
    EXPECT_EQ((std::vector<std::size_t>{8, 8, 4}), sizes(4));
    EXPECT_EQ((std::vector<std::size_t>{4, 8, 8}), sizes(5));
    EXPECT_EQ((std::vector<std::size_t>{7, 8, 5}), sizes(8));
}

TEST(FlowLayout, ALongSong_HasMoreBarsInARow) {
    EXPECT_EQ(8U, CountBarsInRow(96));
    EXPECT_EQ(12U, CountBarsInRow(97));
    EXPECT_EQ(12U, CountBarsInRow(256));
    EXPECT_EQ(16U, CountBarsInRow(257));
}

TEST(FlowLayout, Rows_StayOnOnePage) {
    const PagePlan plan = PlacePages({600, 600, 600, 2000, 10}, 100, 50, 36);
    EXPECT_EQ((std::vector<double>{100, 700, 1464, 2878, 4914 + 50}), plan.tops);
    EXPECT_EQ((std::vector<double>{0, 1414, 2828, 4914}), plan.pageTops) << "a page grows with a row that is higher";
    EXPECT_EQ(4914 + 50 + 10 + 36, plan.end);
}

TEST(FlowSheet, TempoSteps_AreScaledAsFarAsTheyCanBePlayed) {
    tavo_midi::SongData song = MakeSong({4, 4, 4, 4});
    song.GetTimeline().GetTempos().Append(TL::Tempo(3840, 1000000));
    CL::SongLog edits;
    edits.GetTempoScales().Add(CL::TempoScale(1920, 3840, 0.75F));
    edits.GetTempoScales().Add(CL::TempoScale(5760, 7680, 3.0F));
    const std::vector<TempoStep> steps = MakeTempoSteps(song, edits);
    ASSERT_EQ(4U, steps.size());
    EXPECT_DOUBLE_EQ(120, steps[0].heard);
    EXPECT_DOUBLE_EQ(90, steps[1].heard);
    EXPECT_DOUBLE_EQ(120, steps[1].written);
    EXPECT_DOUBLE_EQ(60, steps[2].heard);
    EXPECT_DOUBLE_EQ(120, steps[3].heard);
    EXPECT_EQ(5760U, steps[3].startTick);
    EXPECT_EQ(7680U, steps[3].endTick);
}

TEST(FlowSheet, OfARitardando_TheTurningPointsAreTold) {
    const std::vector<TempoStep> steps{{0, 480, 100, 100}, {480, 500, 90, 90},   {500, 520, 80, 80},
                                       {520, 540, 70, 70}, {540, 560, 100, 100}, {560, 2000, 100, 100}};
    EXPECT_EQ((std::vector<bool>{true, false, false, true, true, true}), ChooseToldTempos(steps, 480));
}

TEST(FlowSheet, ACaesura_IsCountedDownOnTheBeatsThatAreHeard) {
    CL::SongLog edits;
    edits.GetCaesuras().Add(CL::Caesura(3840, "door", 0));
    edits.GetClicks().Add(CL::Click(1920, 3840, 4));
    const Sheet sheet = MakeSheet(MakeSong({4, 4, 4}), edits);
    std::string text;
    for (const Item& item : sheet.countdown)
        text += item.label + "@" + std::to_string(item.startTick) + " ";
    EXPECT_EQ("4@2880 3@3120 2@3360 1@3600 ", text);
}

TEST(FlowSheet, EditsOutsideTheSong_StandAtItsEdges) {
    CL::SongLog edits;
    edits.GetVamps().Add(CL::Vamp(4000, 99999));
    edits.GetMarkers().Add(CL::Marker(99999, "late"));
    edits.GetCuts().Add(CL::Cut(1920, 960));
    const Sheet sheet = MakeSheet(MakeSong({4, 4, 4}), edits);
    EXPECT_EQ(5760U, sheet.loops[0].endTick);
    EXPECT_EQ(5760U, sheet.signposts[0].startTick);
    EXPECT_EQ(960U, sheet.holds[0].startTick) << "an inverted range the right way round";
    EXPECT_EQ(1U, CountTexts(DrawSong(MakeSong({4, 4, 4}), edits), "late"));
}

TEST(FlowPicture, EveryKindOfEdit_IsDrawnAndInTheLegend) {
    CL::SongLog edits;
    edits.GetVamps().Add(CL::Vamp(1920, 3840));
    edits.GetVamps().Add(CL::Vamp(1920, 2400, 5));
    edits.GetRepeats().Add(CL::Repeat(0, 9600, 3));
    edits.GetCuts().Add(CL::Cut(11520, 13440));
    edits.GetFermatas().Add(CL::Fermata(5760, 6240));
    edits.GetCaesuras().Add(CL::Caesura(9600, "the door", 0));
    edits.GetTempoScales().Add(CL::TempoScale(0, 3840, 0.9F));
    edits.GetTranspositions().Add(CL::Transposition(0, 9600, -2));
    edits.GetClicks().Add(CL::Click(1920, 3840, 4));
    edits.GetSfxs().Add(CL::Sfx(480, 480, "door.wav"));
    edits.GetSfxAmbients().Add(CL::SfxAmbient(0, 15360, "rain.wav"));
    edits.GetOscs().Add(CL::Osc(960, "lights", "/go"));
    edits.GetMarkers().Add(CL::Marker(0, "Verse"));
    edits.SetAttacca(CL::AttaccaNext);
    tavo_midi::SongData song = MakeSong(std::vector<unsigned int>(8, 4));
    song.GetTimeline().GetPageNums().Append(TL::PageNum(0, 12));
    song.GetTimeline().GetKeys().Append(TL::Key(0, -3, false));
    const Drawing drawing = DrawSong(song, edits);
    ExpectReadable(drawing);
    for (const char* text : {"vamp",
                             "vamp, at most \u00d75",
                             "\u00d73",
                             "cut",
                             "the door",
                             "4",
                             "tempo 90%",
                             "down 2 semitones",
                             "click every 1/8",
                             "\"door.wav\"",
                             "\"rain.wav\"",
                             "/go to lights",
                             "Verse",
                             "p. 12",
                             "Eb major",
                             "attacca: 8 Next",
                             "108",
                             "120",
                             "marker",
                             "cut: left out",
                             "OSC message",
                             "transposition"})
        EXPECT_LE(1U, CountTexts(drawing, text)) << text;
    EXPECT_EQ(5U, drawing.arcs.size()) << "three loops and two in the legend";
    const auto isHatched = [](const Box& box) { return box.fill == Fill::Hatch && box.top < 400; };
    const auto cut = std::find_if(drawing.boxes.begin(), drawing.boxes.end(), isHatched);
    ASSERT_NE(drawing.boxes.end(), cut);
    EXPECT_DOUBLE_EQ(40 + 6 * 115, cut->left);
    EXPECT_DOUBLE_EQ(115, cut->width);
}

TEST(FlowPicture, TheLegend_HoldsOnlyWhatOccurs) {
    const Drawing drawing = DrawSong(MakeSong({4, 4}), {});
    EXPECT_EQ(1U, CountTexts(drawing, "tempo as it is heard, clicks a minute"));
    EXPECT_EQ(0U, CountTexts(drawing, "cut: left out"));
    EXPECT_EQ(0U, CountTexts(drawing, "OSC message"));
}

TEST(FlowPicture, ALoopOverSeveralRows_IsOpenWhereItGoesOn) {
    CL::SongLog edits;
    edits.GetVamps().Add(CL::Vamp(1920, 18 * 1920));
    const Drawing drawing = DrawSong(MakeSong(std::vector<unsigned int>(20, 4)), edits);
    ASSERT_LE(3U, drawing.arcs.size());
    EXPECT_TRUE(drawing.arcs[0].hasStart && !drawing.arcs[0].hasEnd);
    EXPECT_TRUE(!drawing.arcs[1].hasStart && !drawing.arcs[1].hasEnd);
    EXPECT_TRUE(!drawing.arcs[2].hasStart && drawing.arcs[2].hasEnd);
}

TEST(FlowPicture, FiveHundredNestedLoops_StayReadable) {
    CL::SongLog edits;
    for (unsigned int i = 0; i < 500; ++i)
        edits.GetRepeats().Add(CL::Repeat(i * 20, 30720 - i * 20, static_cast<int>(i % 90) + 2));
    const Drawing drawing = DrawSong(MakeSong(std::vector<unsigned int>(16, 4)), edits);
    ExpectReadable(drawing);
    EXPECT_LE(1000U, drawing.arcs.size());
}

TEST(FlowPicture, OneBeatBarsLongLabelsAndDenseCues_StayReadable) {
    CL::SongLog edits;
    const std::string endless(700, 'W');
    edits.GetMarkers().Add(CL::Marker(480, endless));
    edits.GetMarkers().Add(CL::Marker(500, "a marker of many words " + endless.substr(0, 60)));
    edits.GetCaesuras().Add(CL::Caesura(300 * 480, endless, 0));
    for (unsigned int i = 0; i < 200; ++i) {
        edits.GetOscs().Add(CL::Osc(i * 60, "", "/cue/" + std::to_string(i)));
        edits.GetVamps().Add(CL::Vamp(i * 480, i * 480 + 480));
    }
    edits.SetAttacca(CL::AttaccaNext);
    const tavo_midi::SongData song = MakeSong(std::vector<unsigned int>(300, 1), std::string(300, 'M'));
    ExpectReadable(Draw({song, edits, endless, "65535.65535", "1:00:00", endless}));
}

TEST(FlowPicture, ASongWithoutBars_IsOneBar) {
    ExpectReadable(DrawSong(MakeSong({}), {}));
}

TEST(FlowPicture, TheFile_EscapesAllText) {
    CL::SongLog edits;
    edits.GetMarkers().Add(CL::Marker(0, "<b> & \"c\" \x01\xff"));
    const std::string svg = AsSvg(DrawSong(MakeSong({4}, "A<B"), edits), "T & <U>");
    EXPECT_THAT(svg, HasSubstr("&lt;b&gt; &amp; \"c\" \uFFFD\uFFFD</text>"));
    EXPECT_THAT(svg, HasSubstr("7  A&lt;B</text>"));
    EXPECT_THAT(svg, HasSubstr("<title>T &amp; &lt;U&gt;</title>"));
    EXPECT_THAT(svg, HasSubstr("prefers-color-scheme:dark"));
    EXPECT_THAT(svg, Not(HasSubstr("nan")));
}

class StagePlot : public test_support::SmallShow {};

/// Where the text stands whose words begin at `at`.
double ReadTop(const std::string& svg, std::size_t at) {
    constexpr std::string_view Key = " y=\"";
    return std::stod(svg.substr(svg.rfind(Key, at) + Key.size()));
}

TEST_F(StagePlot, OneSong_GoesToTheFileThatIsNamed) {
    ASSERT_EQ(0, Edit("add vamp --song 1 --from 12 --to 15").exitCode);
    const ProgramResult plot = RunStage({"plot", Show(), "--song", "1", "-o", directory_ / "flow.svg"});
    EXPECT_EQ(0, plot.exitCode) << plot.err;
    const std::string svg = ReadAll(directory_ / "flow.svg");
    for (const char* text : {">1  First<", ">vamp<", ">Verse<", "edits of version 1.1<"})
        EXPECT_THAT(svg, HasSubstr(text));
    EXPECT_EQ(svg, RunStage({"plot", Show(), "--song", "1", "-o", "-"}).out);
}

TEST_F(StagePlot, SeveralSongs_GoToNumberedFiles) {
    EXPECT_EQ(0, RunStage({"plot", Show(), "--song", "1..2", "-o", directory_ / "flow.svg"}).exitCode);
    EXPECT_THAT(ReadAll(directory_ / "flow-1.svg"), HasSubstr(">1  First<"));
    EXPECT_THAT(ReadAll(directory_ / "flow-2.svg"), HasSubstr(">2  Second<"));
    EXPECT_EQ("stage: several songs are several pictures: name a file, not the standard output\n",
              RunStage({"plot", Show(), "--song", "1..2", "-o", "-"}).err);
}

TEST_F(StagePlot, NoSong_IsTheWholeShowInOnePicture) {
    const ProgramResult plot = RunStage({"plot", Show(), "-o", "-"});
    EXPECT_EQ(0, plot.exitCode) << plot.err;
    const std::size_t first = plot.out.find(">1  First<");
    const std::size_t second = plot.out.find(">2  Second<");
    ASSERT_NE(std::string::npos, first);
    ASSERT_NE(std::string::npos, second);
    EXPECT_LT(ReadTop(plot.out, first) + 100, ReadTop(plot.out, second));
    EXPECT_THAT(plot.out, HasSubstr("<title>Evening</title>"));
}

}  // namespace
