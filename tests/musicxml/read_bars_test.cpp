#include <gtest/gtest.h>

#include "tests/musicxml/support/score_text.h"

namespace {

using stage::musicxml::WrittenBar;
using stage::musicxml::WrittenKey;
using stage::musicxml::WrittenMeter;
using stage::musicxml::WrittenScore;
using namespace test_support;

struct MeterRow {
    std::string time;
    std::optional<WrittenMeter> meter;
    /// Of an empty bar.
    double quarters;
};

TEST(ReadMeter, EveryForm_GivesGroupsBeatTypeAndLengthOfAnEmptyBar) {
    const std::vector<MeterRow> rows{
        {"<time><beats>4</beats><beat-type>4</beat-type></time>", WrittenMeter{{4}, 4}, 4},
        {"<time><beats> 6 </beats><beat-type>8</beat-type></time>", WrittenMeter{{6}, 8}, 3},
        {"<time><beats>3+2</beats><beat-type>8</beat-type></time>", WrittenMeter{{3, 2}, 8}, 2.5},
        {"<time><beats>2</beats><beat-type>4</beat-type><beats>3</beats><beat-type>8</beat-type></time>",
         WrittenMeter{{4, 3}, 8}, 3.5},
        {"<time><beats>3</beats><beat-type>8</beat-type><beats>2</beats><beat-type>4</beat-type></time>",
         WrittenMeter{{3, 4}, 8}, 3.5},
        {"<time symbol=\"common\"><beats>4</beats><beat-type>4</beat-type></time>", WrittenMeter{{4}, 4}, 4},
        {"<time symbol=\"cut\"><beats>2</beats><beat-type>2</beat-type></time>", WrittenMeter{{2}, 2}, 4},
        {"<time><senza-misura/></time>", WrittenMeter{{}, 4}, 4},
        {"<time><beats>3</beats><beat-type>4</beat-type><interchangeable><beats>6</beats><beat-type>8</beat-type>"
         "</interchangeable></time>",
         WrittenMeter{{3}, 4}, 3},
        {"<time number=\"2\"><beats>3</beats><beat-type>4</beat-type></time>", std::nullopt, 4},
        {"<time number=\"1\"><beats>3</beats><beat-type>4</beat-type></time>", WrittenMeter{{3}, 4}, 3},
        {"<time><beats>1</beats><beat-type>64</beat-type></time>", WrittenMeter{{1}, 64}, 0.0625},
        {"<time><beats>255</beats><beat-type>4</beat-type></time>", WrittenMeter{{255}, 4}, 255},
    };
    for (const MeterRow& row : rows) {
        const WrittenScore score = Read(Score({"<attributes>" + row.time + "</attributes>"}));
        EXPECT_EQ(row.meter, score.bars[0].meter) << row.time;
        EXPECT_EQ(row.quarters, InQuarters(score, score.bars[0].length)) << row.time;
        EXPECT_TRUE(score.warnings.empty()) << row.time;
    }
}

TEST(ReadMeter, OneThatCannotBeCounted_IsLeftOutWithAWarning) {
    for (const char* time : {"<time><beats>0</beats><beat-type>4</beat-type></time>",
                             "<time><beats>4</beats><beat-type>3</beat-type></time>",
                             "<time><beats>4</beats><beat-type>128</beat-type></time>",
                             "<time><beats>256</beats><beat-type>4</beat-type></time>",
                             "<time><beats>3+</beats><beat-type>4</beat-type></time>",
                             "<time><beats>-3</beats><beat-type>4</beat-type></time>", "<time/>"}) {
        const WrittenScore score = Read(Score({"<attributes>" + std::string(time) + "</attributes>"}));
        EXPECT_EQ(std::nullopt, score.bars[0].meter) << time;
        EXPECT_EQ(
            std::vector<std::string>{"\"a.xml\", part P1 (Violin), measure 1: a meter cannot be read and is left out"},
            score.warnings)
            << time;
    }
}

TEST(ReadMeter, OfAnotherPart_StaysLocalWithAWarning) {
    const WrittenScore score = Read(TwoParts(Time("4", "4"), Time("2", "2")));
    EXPECT_EQ((WrittenMeter{{4}, 4}), score.bars[0].meter);
    EXPECT_EQ(std::vector<std::string>{"\"a.xml\", part P2 (Horn in F), measure 1: the part's meter 2/2 differs from "
                                       "4/4, which is the score's; the part is not named again"},
              score.warnings);
}

TEST(ReadMeter, OfTwoParts_IsTheFirstOnesThatIsAsLongAsTheBar) {
    const std::string whole = Note("C4", 16);
    const WrittenMeter twelve{{12}, 8};
    const WrittenMeter four{{4}, 4};
    EXPECT_EQ(four, Read(TwoParts(Time("12", "8") + whole, Time("4", "4") + whole)).bars[0].meter);
    EXPECT_EQ(four, Read(TwoParts(Time("4", "4") + whole, Time("12", "8") + whole)).bars[0].meter);
    EXPECT_EQ(twelve, Read(TwoParts(Time("12", "8") + Note("C4", 24), Time("4", "4") + whole)).bars[0].meter);
    EXPECT_EQ(twelve, Read(TwoParts(Time("12", "8") + Note("C4", 4), Time("4", "4"))).bars[0].meter) << "none fits";
    EXPECT_EQ(twelve, Read(TwoParts(Time("12", "8"), Time("4", "4"))).bars[0].meter) << "an empty bar";
}

TEST(ReadMeter, OfTheFirstPartAlone_LeavesTheBarsTheirsAndIsToldOfOnce) {
    const std::string whole = Note("C4", 16);
    const std::string half = Note("C4", 8);
    const auto bars = [](const std::string& first, const std::string& second, const std::string& third) {
        return first + "</measure><measure number=\"2\">" + second + "</measure><measure number=\"3\">" + third;
    };
    const WrittenScore score =
        Read(TwoParts(bars(Time("4", "4") + whole, Time("12", "8") + whole, Time("6", "8") + half),
                      bars(Time("4", "4") + whole, whole, Time("2", "4") + half)));
    ASSERT_EQ(3u, score.bars.size());
    EXPECT_EQ((WrittenMeter{{4}, 4}), score.bars[0].meter);
    EXPECT_EQ(std::nullopt, score.bars[1].meter);
    EXPECT_EQ((WrittenMeter{{2}, 4}), score.bars[2].meter);
    EXPECT_EQ(std::vector<std::string>{"\"a.xml\", part P1 (Violin), measure 2: the part's meter 12/8 differs from "
                                       "4/4, which is the score's; the part is not named again"},
              score.warnings);
}

TEST(ReadMeter, StatedByALaterPartOnlyInTheFirstBar_IsTheScores) {
    EXPECT_EQ((WrittenMeter{{3}, 4}), Read(TwoParts("", Time("3", "4"))).bars[0].meter);
}

TEST(ReadMeter, InsideAMeasure_HoldsFromTheNextOneOn) {
    const WrittenScore score = Read(Score({Note("C4", 4) + Time("3", "4") + Note("C4", 4), ""}));
    EXPECT_EQ(std::nullopt, score.bars[0].meter);
    EXPECT_EQ((WrittenMeter{{3}, 4}), score.bars[1].meter);
    EXPECT_EQ(1u, score.warnings.size());
}

TEST(ReadKey, EveryMode_IsMajorOrMinor) {
    const std::vector<std::pair<std::string, WrittenKey>> rows{
        {"<fifths>0</fifths>", {0, false}},
        {"<fifths>-7</fifths><mode>major</mode>", {-7, false}},
        {"<fifths>7</fifths><mode>none</mode>", {7, false}},
        {"<fifths>-3</fifths><mode>minor</mode>", {-3, true}},
        {"<fifths>1</fifths><mode>aeolian</mode>", {1, true}},
        {"<fifths>1</fifths><mode>dorian</mode>", {1, true}},
        {"<fifths>1</fifths><mode>phrygian</mode>", {1, true}},
        {"<fifths>1</fifths><mode>mixolydian</mode>", {1, false}},
        {"<cancel>2</cancel><fifths>1</fifths>", {1, false}},
    };
    for (const auto& [key, expected] : rows)
        EXPECT_EQ(expected, Read(Score({"<attributes><key>" + key + "</key></attributes>"})).bars[0].key) << key;
}

TEST(ReadKey, NotTraditionalOrBeyondSeven_IsLeftOutWithAWarning) {
    for (const char* key :
         {"<key-step>F</key-step><key-alter>1</key-alter>", "<fifths>8</fifths>", "<fifths>x</fifths>"}) {
        const WrittenScore score = Read(Score({"<attributes><key>" + std::string(key) + "</key></attributes>"}));
        EXPECT_EQ(std::nullopt, score.bars[0].key) << key;
        EXPECT_EQ(1u, score.warnings.size()) << key;
    }
}

TEST(ReadKey, OfATransposingInstrument_IsTakenBackToConcertPitch) {
    const auto clarinet = [](const std::string& fifths, const std::string& transpose) {
        return Read(Score({"<attributes><key><fifths>" + fifths + "</fifths></key><transpose>" + transpose +
                           "</transpose></attributes>"}))
            .bars[0]
            .key->fifths;
    };
    EXPECT_EQ(-2, clarinet("0", "<diatonic>-1</diatonic><chromatic>-2</chromatic>")) << "in B flat";
    EXPECT_EQ(3, clarinet("0", "<diatonic>-2</diatonic><chromatic>-3</chromatic>")) << "in A";
    EXPECT_EQ(-1, clarinet("0", "<chromatic>-7</chromatic>")) << "horn in F";
    EXPECT_EQ(2, clarinet("2", "<diatonic>0</diatonic><chromatic>0</chromatic><octave-change>-1</octave-change>"));
    EXPECT_EQ(1, clarinet("7", "<diatonic>-4</diatonic><chromatic>-6</chromatic>")) << "13 sharps are written as 1";
}

TEST(ReadKey, SameConcertKeyInATransposingPart_IsNoOddity) {
    const std::string horn =
        "<attributes><key><fifths>1</fifths></key><transpose><diatonic>-4</diatonic><chromatic>-7</chromatic>"
        "</transpose></attributes>";
    EXPECT_TRUE(Read(TwoParts("<attributes><key><fifths>0</fifths></key></attributes>", horn)).warnings.empty());
    EXPECT_EQ(std::vector<std::string>{"\"a.xml\", part P2 (Horn in F), measure 1: the part's key, no sharps or flats, "
                                       "major, differs from 2 flats, major, which is the score's"},
              Read(TwoParts("<attributes><key><fifths>-2</fifths></key></attributes>", horn)).warnings);
}

TEST(ReadLabels, EveryForm) {
    struct Row {
        std::string attributes;
        std::string label;
        bool isImplicit;
    };
    for (const Row& row : std::vector<Row>{
             {"number=\"1\"", "1", false},
             {"number=\"0\" implicit=\"yes\"", "0", true},
             {"number=\"X1\" implicit=\"yes\"", "X1", true},
             {"number=\"7\" text=\"7a\"", "7a", false},
             {"number=\"7\" text=\"\"", "", false},
             {"number=\" 12  b \"", "12 b", false},
             {"number=\"5\" implicit=\"no\"", "5", false},
             {"", "", false},
         }) {
        const WrittenScore score =
            Read(Partwise("<score-part id=\"P1\"/>", "<part id=\"P1\"><measure " + row.attributes + "/></part>"));
        EXPECT_EQ(row.label, score.bars[0].label) << row.attributes;
        EXPECT_EQ(row.isImplicit, score.bars[0].isImplicit) << row.attributes;
    }
}

TEST(ReadLabels, RestartingNumbers_StayAsPrinted) {
    const WrittenScore score =
        Read(Partwise("<score-part id=\"P1\"/>",
                      "<part id=\"P1\">" + Measure("1", "") + Measure("2", "") + Measure("1", "") + "</part>"));
    EXPECT_EQ("1", score.bars[2].label);
}

TEST(ReadLength, IsWhatTheLongestPartFills) {
    struct Row {
        std::string first;
        std::string second;
        double quarters;
    };
    for (const Row& row : std::vector<Row>{
             {Time("4", "4") + Note("C4", 4), "", 1},
             {Time("4", "4"), Note("rest", 2), 0.5},
             {Note("C4", 4), Note("C4", 4) + Note("D4", 4), 2},
             {Note("C4", 12) + "<backup><duration>12</duration></backup>" + Note("E4", 4), "", 3},
             {Note("C4", 4) + "<forward><duration>8</duration></forward>", "", 3},
             {"<backup><duration>12</duration></backup>" + Note("C4", 4), "", 1},
             {Note("C4", 4) + Note("E4", 8, "<chord/>"), "", 1},
             {Time("3", "8"), "", 1.5},
             {"<attributes><time><senza-misura/></time></attributes>" + Note("C4", 44), "", 11},
         }) {
        const WrittenScore score = Read(TwoParts(row.first, row.second));
        EXPECT_EQ(row.quarters, InQuarters(score, score.bars[0].length)) << row.first;
    }
}

TEST(ReadLength, EmptyBarWithoutAMeter_IsAWholeNote) {
    const WrittenScore score = Read(Score({"", "<attributes><time><senza-misura/></time></attributes>"}));
    EXPECT_EQ(4, InQuarters(score, score.bars[0].length));
    EXPECT_EQ(4, InQuarters(score, score.bars[1].length));
}

TEST(ReadLength, LongerThanTheMeter_IsReadWithAWarning) {
    const WrittenScore score = Read(Score({Time("3", "4") + Note("C4", 16)}));
    EXPECT_EQ(4, InQuarters(score, score.bars[0].length));
    EXPECT_EQ(std::vector<std::string>{"\"a.xml\": measure 1 is longer than its meter, 3/4"}, score.warnings);
}

TEST(ReadLength, MeasureStyles_ChangeNothing) {
    const auto style = [](const std::string& content) {
        return "<attributes><measure-style>" + content + "</measure-style></attributes>" + Time("3", "4");
    };
    for (const char* content : {"<multiple-rest>4</multiple-rest>", "<measure-repeat type=\"start\">1</measure-repeat>",
                                "<slash type=\"start\"/>"}) {
        const WrittenScore score = Read(Score({style(content), Note("C4", 12)}));
        EXPECT_EQ("60@2:0+3", NotesOf(score)) << content;
        EXPECT_EQ(3, InQuarters(score, score.bars[0].length)) << content;
        EXPECT_EQ(2u, score.bars.size()) << content;
    }
}

/// Twelve eighths in the time of eight: rests are given as they sound, notes as they look.
TEST(ReadLength, TwelveEightAgainstFourFour_FitsWhereTheScoreGivesNotesAsTheyLook) {
    const std::string wholeBarRest = "<note><rest measure=\"yes\"/><duration>16</duration></note>";
    const auto note = [](int duration, const std::string& type) {
        return Note("C4", duration, "<type>" + type + "</type><dot/>");
    };
    const std::string parts =
        "<part id=\"P1\">" + Measure("1", Divisions + Time("4", "4") + Note("C4", 16)) + Measure("2", Note("C4", 16)) +
        "</part><part id=\"P2\">" + Measure("1", Divisions + Time("12", "8") + wholeBarRest) +
        Measure("2", note(12, "half") + note(6, "quarter") + Note("rest", 4, "<type>quarter</type><dot/>")) + "</part>";
    const WrittenScore score = Read(Partwise("<score-part id=\"P1\"/><score-part id=\"P2\"/>", parts));
    EXPECT_EQ(4, InQuarters(score, score.bars[1].length));
    EXPECT_EQ("60@1:0+4 60@2:0+4 60@2:0+2 60@2:2+1", NotesOf(score));
}

TEST(ReadUnits, DivisionsOfSeveralParts_StayExact) {
    const auto part = [](const std::string& divisions, const std::string& notes) {
        return Measure("1", "<attributes><divisions>" + divisions + "</divisions></attributes>" + notes);
    };
    const WrittenScore score = Read(Partwise("<score-part id=\"P1\"/><score-part id=\"P2\"/>",
                                             "<part id=\"P1\">" + part("7", Note("C4", 1)) + "</part><part id=\"P2\">" +
                                                 part("9", Note("C4", 1)) + "</part>"));
    EXPECT_EQ(0, score.unitsPerQuarter % 63);
    EXPECT_EQ(0, score.unitsPerQuarter % 480);
    EXPECT_EQ(score.unitsPerQuarter, 7 * score.notes[0].length);
    EXPECT_EQ(score.unitsPerQuarter, 9 * score.notes[1].length);
}

TEST(ReadUnits, DivisionsThatChangeInside_StayExact) {
    const std::string three = "<attributes><divisions>3</divisions></attributes>";
    EXPECT_EQ("60@1:0+1 62@1:1+1 64@1:2+2",
              NotesOf(Read(Score({Note("C4", 4) + three + Note("D4", 3) + Note("E4", 6)}))));
}

TEST(ReadUnits, FractionOfADivision_IsRoundedWithAWarning) {
    const std::string note = "<note><pitch><step>C</step><octave>4</octave></pitch><duration>1.0001</duration></note>";
    const WrittenScore score = Read(Score({note}));
    EXPECT_EQ("60@1:0+0.25", NotesOf(score));
    EXPECT_EQ(1u, score.warnings.size());
    EXPECT_TRUE(Read(Score({"<note><rest/><duration>4.5</duration></note>"})).warnings.empty());
}

TEST(ReadPages, BreaksOfTheFirstPart_AndTheFirstBarOfAScoreThatMarksThem) {
    const WrittenScore score =
        Read(Score({"", "<print new-system=\"yes\"/>", "<print new-page=\"yes\" page-number=\"iv\"/>", ""}));
    std::string pages;
    std::string systems;
    for (const WrittenBar& bar : score.bars) {
        pages += bar.startsPage ? 'p' : '.';
        systems += bar.startsSystem ? 's' : '.';
    }
    EXPECT_EQ("p.p.", pages);
    EXPECT_EQ("sss.", systems);
    EXPECT_EQ("iv", score.bars[2].pageNumber);
}

TEST(ReadPages, ScoreThatMarksNone_HasNone) {
    const WrittenScore score = Read(Score({"<print page-number=\"2\"/>", "<print new-page=\"no\"/>"}));
    EXPECT_FALSE(score.bars[0].startsPage || score.bars[1].startsPage || score.bars[0].startsSystem);
    EXPECT_EQ("2", score.bars[0].pageNumber);
}

}  // namespace
