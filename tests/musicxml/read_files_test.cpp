#include <gtest/gtest.h>

#include "kit/zip_archive.h"
#include "tests/musicxml/support/score_text.h"

namespace {

using stage::musicxml::WrittenScore;
using namespace test_support;

const std::string Container =
    "<?xml version=\"1.0\"?><container><rootfiles><rootfile full-path=\"score.xml\"/></rootfiles></container>";

std::string Archive(const std::vector<std::pair<std::string, std::string>>& members) {
    kit::ZipWriter archive;
    for (const auto& [name, bytes] : members)
        archive.Add(name, bytes);
    return archive.Finish();
}

std::string InUtf16(const std::string& ascii, bool isBigEndian, bool hasMark) {
    std::string bytes;
    const auto add = [&](char high, char low) {
        bytes += isBigEndian ? std::string{high, low} : std::string{low, high};
    };
    if (hasMark) add('\xFE', '\xFF');
    for (const char character : ascii)
        add('\0', character);
    return bytes;
}

TEST(ReadFile, PartwiseAndTimewise_GiveTheSameScore) {
    const std::string list =
        "<part-list><score-part id=\"P1\"><part-name>Violin</part-name></score-part><score-part id=\"P2\">"
        "<part-name>Horn</part-name></score-part></part-list>";
    const auto part = [](const std::string& id, const std::string& notes) {
        return "<part id=\"" + id + "\">" + notes + "</part>";
    };
    const WrittenScore partwise = Read(
        Partwise("<score-part id=\"P1\"/><score-part id=\"P2\"/>",
                 part("P1", Measure("7", Divisions + Note("C4", 4), "implicit=\"yes\"") + Measure("8", Note("D4", 4))) +
                     part("P2", Measure("7", Divisions + Note("E4", 4)) + Measure("8", Note("F4", 4)))));
    const WrittenScore timewise =
        Read("<score-timewise>" + list +
             Measure("7", part("P1", Divisions + Note("C4", 4)) + part("P2", Divisions + Note("E4", 4)),
                     "implicit=\"yes\"") +
             Measure("8", part("P1", Note("D4", 4)) + part("P2", Note("F4", 4))) + "</score-timewise>");
    EXPECT_EQ("60@1:0+1 64@1:0+1 62@2:0+1 65@2:0+1", NotesOf(partwise));
    EXPECT_EQ(NotesOf(partwise), NotesOf(timewise));
    for (std::size_t bar = 0; bar < 2; ++bar) {
        EXPECT_EQ(partwise.bars[bar].label, timewise.bars[bar].label);
        EXPECT_EQ(partwise.bars[bar].isImplicit, timewise.bars[bar].isImplicit);
    }
    EXPECT_EQ("Horn", timewise.parts[1].name);
}

TEST(ReadFile, TimewiseWithoutAPartInAMeasure_HasThatBarEmpty) {
    const WrittenScore score =
        Read("<score-timewise><part-list><score-part id=\"P1\"/><score-part id=\"P2\"/></part-list>" +
             Measure("1", "<part id=\"P1\">" + Divisions + Note("C4", 4) + "</part>") +
             Measure("2", "<part id=\"P2\">" + Divisions + Note("E4", 4) + "</part>") + "</score-timewise>");
    EXPECT_EQ("60@1:0+1 64@2:0+1", NotesOf(score));
    EXPECT_TRUE(score.warnings.empty());
}

TEST(ReadFile, Title_IsOfTheMovementElseOfTheWork) {
    const auto title = [](const std::string& head) {
        return Read("<score-partwise>" + head + "<part-list><score-part id=\"P1\"/></part-list><part id=\"P1\">" +
                    Measure("1", "") + "</part></score-partwise>")
            .title;
    };
    EXPECT_EQ("Das Wandern",
              title("<work><work-title>Op. 25</work-title></work><movement-title>Das  Wandern</movement-title>"));
    EXPECT_EQ("Op. 25", title("<work><work-title>Op. 25</work-title></work>"));
    EXPECT_EQ("", title(""));
    EXPECT_EQ("a & \xC3\xA9", title("<movement-title>a &amp; &#xE9;</movement-title>"));
}

TEST(ReadFile, EveryEncoding) {
    const std::string text = Score({Note("C4", 4)});
    EXPECT_EQ("60@1:0+1", NotesOf(Read("\xEF\xBB\xBF" + text)));
    for (const bool isBigEndian : {false, true})
        for (const bool hasMark : {false, true})
            EXPECT_EQ("60@1:0+1", NotesOf(Read(InUtf16(text, isBigEndian, hasMark)))) << isBigEndian << hasMark;
    const std::string latin =
        "<?xml version='1.0' encoding='ISO-8859-1'?><score-partwise><movement-title>No\xEBl"
        "</movement-title><part id=\"P1\">" +
        Measure("1", "") + "</part></score-partwise>";
    EXPECT_EQ("No\xC3\xABl", Read(latin).title);
}

TEST(ReadFile, DocumentTypeAndEntities_AreNotFollowed) {
    const std::string bomb =
        "<!DOCTYPE score-partwise PUBLIC \"-//X//DTD\" \"http://localhost/none.dtd\" [<!ENTITY a \"aaaaaaaaaa\">"
        "<!ENTITY b \"&a;&a;&a;&a;&a;&a;&a;&a;\"><!ENTITY c SYSTEM \"file:///etc/passwd\">]>";
    EXPECT_EQ("&b; &c;", Read(bomb + "<score-partwise><movement-title>&b; &c;</movement-title><part id=\"P1\">" +
                              Measure("1", "") + "</part></score-partwise>")
                             .title);
}

TEST(ReadFile, Nested100000Deep_IsReadWithoutAStackOverflow) {
    std::string deep;
    for (int depth = 0; depth < 100000; ++depth)
        deep += "<a>";
    for (int depth = 0; depth < 100000; ++depth)
        deep += "</a>";
    EXPECT_EQ("60@1:0+1", NotesOf(Read(Score({deep + Note("C4", 4)}))));
}

TEST(ReadMxl, ScoreIsWhatTheContainerNames) {
    const std::string score = Score({Note("C4", 4)});
    EXPECT_EQ("60@1:0+1", NotesOf(Read(Archive({{"META-INF/container.xml", Container}, {"score.xml", score}}))));
    const std::string pdfFirst =
        "<container><rootfiles><rootfile full-path=\"a.pdf\" media-type=\"application/pdf\"/><rootfile "
        "full-path=\"b/c.musicxml\""
        " media-type=\"application/vnd.recordare.musicxml+xml\"/></rootfiles></container>";
    EXPECT_EQ("60@1:0+1", NotesOf(Read(Archive({{"b/c.musicxml", score}, {"META-INF/container.xml", pdfFirst}}))));
}

TEST(ReadMxl, Wrong_IsRefusedInOneSentence) {
    const std::string good = Archive({{"META-INF/container.xml", Container}, {"score.xml", Score({""})}});
    EXPECT_EQ("\"a.xml\", member \"META-INF/container.xml\" is missing", Refuse(Archive({{"score.xml", Score({""})}})));
    EXPECT_EQ("\"a.xml\", member \"score.xml\" is missing", Refuse(Archive({{"META-INF/container.xml", Container}})));
    EXPECT_EQ("\"a.xml\", member \"META-INF/container.xml\" names no score",
              Refuse(Archive({{"META-INF/container.xml", "<container/>"}})));
    EXPECT_EQ("\"a.xml\", member \"META-INF/container.xml\" is not XML: line 1 cannot be read",
              Refuse(Archive({{"META-INF/container.xml", "<container"}})));
    EXPECT_EQ("\"a.xml\" is not XML: line 1 cannot be read",
              Refuse(Archive({{"META-INF/container.xml", Container}, {"score.xml", "music"}})));
    EXPECT_EQ(0u, Refuse(good.substr(0, good.size() - 9)).find("\"a.xml\" is not a readable ZIP archive: "));
    std::string damaged = good;
    damaged[damaged.find("<score-partwise") + 1] = 'x';
    EXPECT_EQ(0u, Refuse(damaged).find("\"a.xml\", member \"score.xml\" is damaged: "));
}

TEST(ReadMxl, MemberBeyond64Megabytes_IsRefusedUnread) {
    const std::string huge(stage::musicxml::MaxScoreFileBytes + 1, ' ');
    EXPECT_EQ("\"a.xml\", member \"score.xml\" is larger than the 67108864 bytes allowed",
              Refuse(Archive({{"META-INF/container.xml", Container}, {"score.xml", huge}})));
}

TEST(RefuseFile, BeyondItsSize) {
    EXPECT_EQ("\"a.xml\" is larger than 64 MB", Refuse(std::string(stage::musicxml::MaxScoreFileBytes + 1, ' ')));
}

TEST(RefuseFile, OfMoreElementsThanMemoryHolds) {
    std::string elements;
    while (elements.size() < std::size_t{16} << 20U)
        elements += "<a/><a/><a/><a/><a/><a/><a/><a/>";
    EXPECT_EQ("\"a.xml\" holds more elements than 128 MB of memory take", Refuse(Score({elements})));
}

TEST(RefuseFile, NotAScore) {
    EXPECT_EQ("\"a.xml\" is not XML: line 1 cannot be read", Refuse(""));
    EXPECT_EQ("\"a.xml\" is not XML: line 1 cannot be read", Refuse("MThd"));
    EXPECT_EQ("\"a.xml\" is not XML: line 3 cannot be read", Refuse("<score-partwise>\n<part>\n</wrong>\n"));
    for (const bool isBigEndian : {false, true})
        EXPECT_EQ("\"a.xml\" is not XML: line 3 cannot be read",
                  Refuse(InUtf16("<score-partwise>\n<part>\n</wrong>\n", isBigEndian, true)));
    EXPECT_EQ("\"a.xml\" is not XML: line 4 cannot be read",
              Refuse("<?xml version='1.0' encoding='latin1'?>\n<a>\n\xE9\xE9\xE9\xE9\xE9\xE9\xE9\xE9\n</b>\n\n\n\n\n"));
    EXPECT_EQ("\"a.xml\": this is not a MusicXML score", Refuse("<html/>"));
    EXPECT_EQ("\"a.xml\": the score has no parts", Refuse("<score-partwise/>"));
    EXPECT_EQ("\"a.xml\": the score has no parts", Refuse("<score-timewise><measure number=\"1\"/></score-timewise>"));
    EXPECT_EQ("\"a.xml\": the score has no measures", Refuse(Partwise("<score-part id=\"P1\"/>", "<part id=\"P1\"/>")));
    const std::string part = "<part id=\"P1\">" + Measure("1", "") + "</part>";
    EXPECT_EQ("\"a.xml\": the part P1 stands twice in the score",
              Refuse(Partwise("<score-part id=\"P1\"/>", part + part)));
    EXPECT_EQ("\"a.xml\": the part P1 stands twice in measure 3",
              Refuse("<score-timewise>" + Measure("3", "<part id=\"P1\"/><part id=\"P1\"/>") + "</score-timewise>"));
}

TEST(RefuseFile, MoreMeasuresOrPartsThanAreRead) {
    std::string measures;
    for (int index = 0; index <= 100000; ++index)
        measures += "<measure/>";
    EXPECT_EQ("\"a.xml\": the part P1 has more than 100000 measures",
              Refuse(Partwise("<score-part id=\"P1\"/>", "<part id=\"P1\">" + measures + "</part>")));
    std::string parts;
    for (int index = 0; index <= 1000; ++index)
        parts += "<part id=\"P" + std::to_string(index) + "\"/>";
    EXPECT_EQ("\"a.xml\": the score has more than 1000 parts", Refuse(Partwise("", parts)));
}

TEST(RefuseMusic, SaysPartMeasureAndWhatIsWrong) {
    const std::string place = "\"a.xml\", part P1 (Violin), measure 2: ";
    const auto divisions = [](const std::string& text) {
        return "<attributes><divisions>" + text + "</divisions></attributes>";
    };
    const auto note = [](const std::string& content) { return "<note>" + content + "</note>"; };
    const auto pitch = [&](const std::string& text) {
        return note("<pitch>" + text + "</pitch><duration>4</duration>");
    };
    const std::vector<std::pair<std::string, std::string>> rows{
        {note("<rest/>"), "a note has no duration"},
        {"<forward/>", "a forward has no duration"},
        {"<backup/>", "a backup has no duration"},
        {note("<rest/><duration>-4</duration>"), "the duration -4 of a note is negative"},
        {"<backup><duration>-4</duration></backup>", "the duration -4 of a backup is negative"},
        {note("<rest/><duration>x</duration>"), "the duration \"x\" of a note is not a number"},
        {note("<rest/><duration>1e3</duration>"), "the duration \"1e3\" of a note is not a number"},
        {note("<rest/><duration>40001</duration>"), "the duration 40001 of a note is longer than 10000 quarter notes"},
        {note("<rest/><duration>99999999999999999999</duration>"),
         "the duration 99999999999999999999 of a note is longer than 10000 quarter notes"},
        {note("<rest/><duration>40000</duration>") + note("<rest/><duration>1</duration>"),
         "the measure is longer than 10000 quarter notes"},
        {divisions("0"), "the divisions \"0\" are not a whole number from 1 to 1000000"},
        {divisions("1.5"), "the divisions \"1.5\" are not a whole number from 1 to 1000000"},
        {divisions("-4"), "the divisions \"-4\" are not a whole number from 1 to 1000000"},
        {note("<duration>4</duration>"), "a note has neither pitch nor rest"},
        {pitch("<step>H</step><octave>4</octave>"), "the pitch H  4 cannot be read"},
        {pitch("<step>C</step>"), "the pitch C   cannot be read"},
        {pitch("<step>C</step><alter>x</alter><octave>4</octave>"), "the pitch C x 4 cannot be read"},
        {pitch("<step>A</step><octave>9</octave>"), "the pitch A9 sounds as MIDI key 129, beyond 0 to 127"},
        {pitch("<step>C</step><alter>-1</alter><octave>-1</octave>"),
         "the pitch C-1 sounds as MIDI key -1, beyond 0 to 127"},
    };
    for (const auto& [measure, sentence] : rows)
        EXPECT_EQ(place + sentence, Refuse(Score({"", measure}))) << measure;
}

TEST(RefuseMusic, DurationBeforeTheDivisions) {
    const auto refuse = [](const std::string& content) {
        return Refuse(Partwise("<score-part id=\"P1\"/>", "<part id=\"P1\">" + Measure("X1", content) + "</part>"));
    };
    EXPECT_EQ("\"a.xml\", part P1, measure X1: a note stands before the divisions of a quarter note",
              refuse(Note("C4", 4)));
    EXPECT_EQ("\"a.xml\", part P1, measure X1: a forward stands before the divisions of a quarter note",
              refuse("<forward><duration>4</duration></forward>"));
}

TEST(RefuseMusic, InAMeasureWithoutALabel_SaysItsPlace) {
    EXPECT_EQ(
        "\"a.xml\", part P1, measure at place 2: a note has no duration",
        Refuse(Partwise("<score-part id=\"P1\"/>",
                        "<part id=\"P1\"><measure number=\"7\"/><measure><note><rest/></note></measure></part>")));
}

TEST(RefuseMusic, DivisionsWithoutACommonMeasure) {
    std::string measure;
    for (const char* prime : {"999983", "999979", "999961"})
        measure += "<attributes><divisions>" + std::string(prime) + "</divisions></attributes>";
    EXPECT_EQ("\"a.xml\": the parts divide the quarter note in too many ways", Refuse(Score({measure})));
}

TEST(RefuseMusic, MoreMarksThanAreRead) {
    std::string measure;
    for (int index = 0; index <= 200000; ++index)
        measure += "<barline><coda/></barline>";
    EXPECT_EQ("\"a.xml\", part P1 (Violin), measure 1: the score has more than 200000 marks", Refuse(Score({measure})));
}

TEST(ReadOdd, IsReadWithAWarning) {
    const auto warn = [](const std::string& text) {
        const WrittenScore score = Read(text);
        return score.warnings.empty() ? "" : score.warnings.front();
    };
    const std::string place = "\"a.xml\", part P1 (Violin), measure 1: ";
    EXPECT_EQ(place + "a backup goes back beyond the beginning of the measure",
              warn(Score({"<backup><duration>1</duration></backup>"})));
    EXPECT_EQ(place + "a chord has no first note", warn(Score({Note("C4", 4, "<chord/>")})));
    EXPECT_EQ(place + "a note without length is left out", warn(Score({Note("C4", 0)})));
    EXPECT_EQ(place + "a note names an instrument that the part does not have",
              warn(Score({Note("C4", 4, "<instrument id=\"X\"/>")})));
    EXPECT_EQ(place + "slashes stand for what the player chooses and stay silent",
              warn(Score({Note("C4", 4, "<notehead>slash</notehead>")})));
    EXPECT_EQ(place + "a change of the instrument's sound inside the song is not read",
              warn(Score({"<sound><midi-instrument id=\"P1\"/></sound>"})));
    EXPECT_EQ("\"a.xml\": the part P9 is not in the list of parts",
              warn(Partwise("", "<part id=\"P9\">" + Measure("1", "") + "</part>")));
    EXPECT_EQ("\"a.xml\": the part P2 has no music and is left out",
              warn(Partwise("<score-part id=\"P1\"/><score-part id=\"P2\"/>",
                            "<part id=\"P1\">" + Measure("1", "") + "</part>")));
}

TEST(ReadOdd, PartsOfDifferentLength_AreReadWithAWarningAndEmptyBars) {
    const WrittenScore score =
        Read(Partwise("<score-part id=\"P1\"/><score-part id=\"P2\"/>",
                      "<part id=\"P1\">" + Measure("1", Divisions + Note("C4", 4)) + "</part><part id=\"P2\">" +
                          Measure("1", Divisions + Note("C4", 4)) + Measure("2", Note("C4", 8)) + "</part>"));
    ASSERT_EQ(2u, score.bars.size());
    EXPECT_EQ("2", score.bars[1].label);
    EXPECT_EQ(2, InQuarters(score, score.bars[1].length));
    EXPECT_EQ(std::vector<std::string>{"\"a.xml\": the part P1 has 1 of the score's 2 measures"}, score.warnings);
}

TEST(ReadOdd, ManyOddities_AreToldUpToAHundred) {
    std::string measure;
    for (int index = 0; index < 1000; ++index)
        measure += "<backup><duration>1</duration></backup>";
    const WrittenScore score = Read(Score({measure}));
    ASSERT_EQ(101u, score.warnings.size());
    EXPECT_EQ("\"a.xml\": there is more that is odd", score.warnings.back());
}

}  // namespace
