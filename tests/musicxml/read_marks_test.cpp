#include <gtest/gtest.h>

#include "tests/musicxml/support/score_text.h"

namespace {

using stage::musicxml::WrittenBar;
using stage::musicxml::WrittenScore;
using namespace test_support;

std::string Barline(const std::string& location, const std::string& content, const std::string& attributes = {}) {
    return "<barline location=\"" + location + "\" " + attributes + ">" + content + "</barline>";
}

std::string Metronome(const std::string& content) {
    return "<metronome>" + content + "</metronome>";
}

/// The repeat signs and endings of all bars: "|: [1,2 ] :|3 after".
std::string RepeatsOf(const WrittenScore& score) {
    std::string text;
    const auto numbers = [](const std::vector<int>& list) {
        std::string joined;
        for (const int number : list)
            joined += (joined.empty() ? "" : ",") + std::to_string(number);
        return joined;
    };
    for (const WrittenBar& bar : score.bars) {
        text += text.empty() ? "" : " / ";
        if (bar.startsRepeat) text += "|:";
        if (bar.endingStart) text += "[" + numbers(bar.endingStart->numbers);
        text += bar.label;
        if (bar.endingStop) text += "]" + numbers(bar.endingStop->numbers);
        if (bar.endsRepeat)
            text += ":|" + std::to_string(bar.repeatTimes) + (bar.repeatsAfterJump ? " after jump" : "");
    }
    return text;
}

TEST(ReadTempo, EveryForm_InQuarterNotesAMinute) {
    const std::vector<std::pair<std::string, std::string>> rows{
        {Metronome("<beat-unit>quarter</beat-unit><per-minute>120</per-minute>"), "0 tempo 120"},
        {Metronome("<beat-unit>quarter</beat-unit><beat-unit-dot/><per-minute>80</per-minute>"), "0 tempo 120"},
        {Metronome("<beat-unit>half</beat-unit><per-minute>60</per-minute>"), "0 tempo 120"},
        {Metronome("<beat-unit>eighth</beat-unit><beat-unit-dot/><beat-unit-dot/><per-minute>80</per-minute>"),
         "0 tempo 70"},
        {Metronome("<beat-unit>quarter</beat-unit><per-minute>c. 80</per-minute>"), "0 tempo 80"},
        {Metronome("<beat-unit>quarter</beat-unit><per-minute>76-80</per-minute>"), "0 tempo 76"},
        {Metronome("<beat-unit>quarter</beat-unit><per-minute>= 62.5</per-minute>"), "0 tempo 62.5"},
        {Metronome("<beat-unit>quarter</beat-unit><per-minute>fast</per-minute>"), ""},
        {Metronome("<beat-unit>quarter</beat-unit><beat-unit-tied><beat-unit>eighth</beat-unit></beat-unit-tied>"
                   "<per-minute>80</per-minute>"),
         ""},
        {Metronome("<beat-unit>sixth</beat-unit><per-minute>80</per-minute>"), ""},
    };
    for (const auto& [metronome, marks] : rows) {
        const WrittenScore score = Read(Score({Direction(metronome)}));
        EXPECT_EQ(marks, MarksOf(score, 0)) << metronome;
    }
}

TEST(ReadTempo, SoundInTheSameDirection_WinsOverTheMetronome) {
    const std::string metronome = Metronome("<beat-unit>quarter</beat-unit><per-minute>60</per-minute>");
    EXPECT_EQ("0 tempo 66", MarksOf(Read(Score({Direction(metronome, "<sound tempo=\"66\"/>")})), 0));
    EXPECT_EQ("0 tempo 66", MarksOf(Read(Score({Direction(metronome) + "<sound tempo=\"66\"/>"})), 0));
    EXPECT_EQ("0 tempo 66", MarksOf(Read(Score({"<sound tempo=\"66\"/>" + Direction(metronome)})), 0));
}

TEST(ReadTempo, OfTwoPartsAtOnePlace_TheFirstPartsHolds) {
    EXPECT_EQ("0 tempo 66", MarksOf(Read(TwoParts("<sound tempo=\"66\"/>", "<sound tempo=\"90\"/>")), 0));
    EXPECT_EQ("0 tempo 90", MarksOf(Read(TwoParts("", "<sound tempo=\"90\"/>")), 0));
}

TEST(ReadTempo, QuarterBecomesDottedQuarter_ComesFromTheRunningTempo) {
    const std::string change =
        Metronome("<beat-unit>quarter</beat-unit><beat-unit>quarter</beat-unit><beat-unit-dot/>");
    const std::string notes = Metronome(
        "<metronome-note><metronome-type>half</metronome-type></metronome-note><metronome-relation>equals"
        "</metronome-relation><metronome-note><metronome-type>quarter</metronome-type></metronome-note>");
    const WrittenScore score = Read(Score({"<sound tempo=\"80\"/>", Direction(change), Direction(notes)}));
    EXPECT_EQ("0 tempo 120", MarksOf(score, 1));
    EXPECT_EQ("0 tempo 60", MarksOf(score, 2));
}

TEST(ReadTempo, Swing_IsNoTempo) {
    const std::string note = "<metronome-note><metronome-type>eighth</metronome-type></metronome-note>";
    const std::string swing = Metronome(note + note + "<metronome-relation>equals</metronome-relation>" + note + note);
    EXPECT_EQ("", MarksOf(Read(Score({Direction(swing)})), 0));
}

TEST(ReadTempo, Absurd_IsLeftOutWithAWarning) {
    for (const char* tempo : {"0", "-5", "2001"}) {
        const WrittenScore score = Read(Score({"<sound tempo=\"" + std::string(tempo) + "\"/>"}));
        EXPECT_EQ("", MarksOf(score, 0)) << tempo;
        EXPECT_EQ(std::vector<std::string>{"\"a.xml\", part P1 (Violin), measure 1: the tempo " + std::string(tempo) +
                                           " is left out"},
                  score.warnings);
    }
}

TEST(ReadMarks, StandWhereTheCursorSaysAndAnOffsetThatSounds) {
    const std::string words = "<words>Vamp</words>";
    EXPECT_EQ("1 words Vamp", MarksOf(Read(Score({Note("C4", 4) + Direction(words) + Note("C4", 4)})), 0));
    const auto moved = [&](const std::string& offset) {
        return MarksOf(Read(Score({Note("C4", 4) + Direction(words, offset) + Note("C4", 4)})), 0);
    };
    EXPECT_EQ("0.5 words Vamp", moved("<offset sound=\"yes\">-2</offset>"));
    EXPECT_EQ("0 words Vamp", moved("<offset sound=\"yes\">-6</offset>"));
    EXPECT_EQ("2 words Vamp", moved("<offset sound=\"yes\">9</offset>")) << "no further than the bar goes";
    EXPECT_EQ("0.75 tempo 90",
              MarksOf(Read(Score({Note("C4", 4) + "<sound tempo=\"90\"><offset>-1</offset></sound>"})), 0));
}

TEST(ReadMarks, OffsetThatOnlyDraws_MovesNothingThatSounds) {
    for (const char* offset : {"<offset>-2</offset>", "<offset sound=\"no\">2</offset>"}) {
        const std::string words = Direction("<words>Vamp</words>", offset);
        EXPECT_EQ("1 words Vamp", MarksOf(Read(Score({Note("C4", 4) + words + Note("C4", 4)})), 0)) << offset;
        const std::string tempo = Direction("<words>Allegro</words>", std::string(offset) + "<sound tempo=\"90\"/>");
        EXPECT_EQ("1 words Allegro, 1 tempo 90", MarksOf(Read(Score({Note("C4", 4) + tempo + Note("C4", 4)})), 0));
        const std::string pedal = Direction("<pedal type=\"start\"/>", offset);
        const WrittenScore score = Read(Score({Note("C4", 4) + pedal + Note("C4", 4)}));
        ASSERT_EQ(1U, score.pedals.size());
        EXPECT_EQ(1, InQuarters(score, score.pedals[0].position));
    }
}

TEST(ReadWords, PiecesOfOneText_AreJoinedAndPunctuationAloneIsNone) {
    EXPECT_EQ("0 words 1o Tempo",
              MarksOf(Read(Score({Direction("<words>1</words><words>o</words><words> Tempo</words>")})), 0));
    EXPECT_EQ("", MarksOf(Read(Score({Direction("<words>.</words>") + Direction("<words/>")})), 0));
    EXPECT_EQ("0 words poco rall. \xC3\xA9",
              MarksOf(Read(Score({Direction("<words> poco \n rall.  \xC3\xA9 </words>")})), 0));
}

TEST(ReadWords, SameInSeveralParts_StandOnce) {
    const std::string vamp = Direction("<words>Vamp</words>");
    EXPECT_EQ("0 words Vamp", MarksOf(Read(TwoParts(vamp, vamp)), 0));
    EXPECT_EQ("0 words Vamp, 0 words tacet", MarksOf(Read(TwoParts(vamp, Direction("<words>tacet</words>"))), 0));
}

TEST(ReadWords, Attacca_StaysWords) {
    EXPECT_EQ("0 words attacca", MarksOf(Read(Score({Direction("<words>attacca</words>")})), 0));
}

TEST(ReadMarks, RehearsalMarks) {
    EXPECT_EQ("0 rehearsal A", MarksOf(Read(Score({Direction("<rehearsal>A</rehearsal>")})), 0));
}

TEST(ReadFermata, OverNoteRestChordAndBarLine) {
    const std::string fermata = "<notations><fermata/></notations>";
    EXPECT_EQ("1 fermata for 2", MarksOf(Read(Score({Note("C4", 4) + Note("D4", 8, fermata)})), 0));
    EXPECT_EQ("0 fermata for 1", MarksOf(Read(Score({Note("rest", 4, fermata)})), 0));
    const std::string chord =
        "<note><chord/><pitch><step>E</step><octave>4</octave></pitch><duration>4</duration>" + fermata + "</note>";
    EXPECT_EQ("0 fermata for 1", MarksOf(Read(Score({Note("C4", 4) + chord})), 0)) << "on its second note";
    EXPECT_EQ("2 fermata", MarksOf(Read(Score({Barline("right", "<fermata/>") + Note("C4", 8)})), 0));
    EXPECT_EQ("0 fermata", MarksOf(Read(Score({Note("C4", 8) + Barline("left", "<fermata/>")})), 0));
    EXPECT_EQ("1 fermata", MarksOf(Read(Score({Note("C4", 4) + Barline("middle", "<fermata/>") + Note("C4", 4)})), 0));
}

TEST(ReadFermata, InSeveralParts_IsOneAsLongAsTheLongest) {
    const std::string fermata = "<notations><fermata/></notations>";
    EXPECT_EQ("0 fermata for 4", MarksOf(Read(TwoParts(Note("C4", 4, fermata), Note("C3", 16, fermata))), 0));
}

TEST(ReadMarks, BreathAndCaesura_StandBehindTheirNote) {
    const auto sign = [](const std::string& name) {
        return "<notations><articulations><" + name + "/></articulations></notations>";
    };
    EXPECT_EQ("1 breath", MarksOf(Read(Score({Note("C4", 4, sign("breath-mark")) + Note("C4", 4)})), 0));
    EXPECT_EQ("2 caesura", MarksOf(Read(Score({Note("C4", 8, sign("caesura"))})), 0));
}

TEST(ReadJumps, SoundAttributes) {
    const std::vector<std::pair<std::string, std::string>> rows{
        {"dacapo=\"yes\"", "0 da capo"},
        {"dacapo=\"no\"", ""},
        {"dalsegno=\"s1\"", "0 dal segno s1"},
        {"segno=\"s1\"", "0 segno s1"},
        {"coda=\"c\"", "0 coda c"},
        {"tocoda=\"c\"", "0 to coda c"},
        {"fine=\"yes\"", "0 fine"},
        {"fine=\"4\"", "0 fine"},
        {"dacapo=\"yes\" time-only=\"1, 3\"", "0 da capo #1 #3"},
        {"tempo=\"90\" time-only=\"2\"", "0 tempo 90 #2"},
    };
    for (const auto& [attributes, marks] : rows) {
        EXPECT_EQ(marks, MarksOf(Read(Score({"<sound " + attributes + "/>"})), 0)) << attributes;
        EXPECT_EQ(marks, MarksOf(Read(Score({Direction("<symbol/>", "<sound " + attributes + "/>")})), 0))
            << attributes;
    }
}

TEST(ReadJumps, PlainWords) {
    const std::vector<std::pair<std::string, std::string>> rows{
        {"D.C.", "da capo"},
        {"D.C. al Fine", "da capo"},
        {"Da Capo al Coda", "da capo"},
        {"DC al fine", "da capo"},
        {"D. C. senza rep.", "da capo"},
        {"D.C. al Fine e poi la Coda", "da capo"},
        {"D.S.", "dal segno"},
        {"D.S. al Coda", "dal segno"},
        {"Dal Segno al Fine", "dal segno"},
        {"Dal S.", "dal segno"},
        {"D.S. 2", "dal segno 2"},
        {"D.S.2 al Coda 2", "dal segno 2"},
        {"D.S. al Coda 2", "dal segno"},
        {"Fine", "fine"},
        {"FINE.", "fine"},
        {"To Coda", "to coda"},
        {"To Coda 2", "to coda 2"},
        {"al Coda", "to coda"},
        {"Coda", "coda"},
        {"(Coda)", "coda"},
        {"Fine of the scene", "words Fine of the scene"},
        {"D.C. as before", "words D.C. as before"},
        {"dcx", "words dcx"},
        {"Codetta", "words Codetta"},
        {"To", "words To"},
    };
    for (const auto& [words, mark] : rows)
        EXPECT_EQ("0 " + mark, MarksOf(Read(Score({Direction("<words>" + words + "</words>")})), 0)) << words;
}

TEST(ReadJumps, WordsBesideTheirSoundAttribute_AreOneMark) {
    EXPECT_EQ("0 dal segno s",
              MarksOf(Read(Score({Direction("<words>D.S. al Coda</words>", "<sound dalsegno=\"s\"/>")})), 0));
    EXPECT_EQ("0 segno s", MarksOf(Read(Score({Direction("<segno/>", "<sound segno=\"s\"/>")})), 0));
    EXPECT_EQ("0 coda", MarksOf(Read(Score({Direction("<coda/>")})), 0));
    EXPECT_EQ("0 segno", MarksOf(Read(Score({Direction("<segno/>")})), 0));
}

TEST(ReadJumps, WordsBesideTheirSoundAttribute_SayWhatTheJumpLeadsTo) {
    using stage::musicxml::JumpAim;
    const auto aim = [](const std::string& words, const std::string& sound) {
        return Read(Score({Direction("<words>" + words + "</words>", sound)})).bars[0].marks.at(0).aim;
    };
    for (const char* sound : {"", "<sound dacapo=\"yes\"/>"}) {
        EXPECT_EQ(JumpAim::Any, aim("D.C.", sound));
        EXPECT_EQ(JumpAim::Fine, aim("D.C. al Fine", sound));
        EXPECT_EQ(JumpAim::Coda, aim("D.C. al Coda", sound));
        EXPECT_EQ(JumpAim::FineThenCoda, aim("D.C. al Fine e poi la Coda", sound));
    }
    EXPECT_EQ(JumpAim::Fine, aim("D.S. al Fine", "<sound dalsegno=\"s\"/>"));
}

TEST(ReadJumps, WordsWithASign_AreOneOrderAndNotTheSignsPlace) {
    const auto marks = [](const std::string& words, const std::string& sign, const std::string& behind = {}) {
        return MarksOf(Read(Score({Direction(
                           "<words>" + words + "</words></direction-type><direction-type><" + sign + "/>", behind)})),
                       0);
    };
    EXPECT_EQ("0 to coda", marks("To", "coda"));
    EXPECT_EQ("0 to coda", marks("To Coda", "coda"));
    EXPECT_EQ("0 to coda", marks("al", "coda"));
    EXPECT_EQ("0 fine, 0 coda", marks("Fine", "coda"));
    EXPECT_EQ("0 to coda x", marks("To", "coda", "<sound tocoda=\"x\"/>"));
    EXPECT_EQ("0 dal segno", marks("D.S.", "segno"));
    EXPECT_EQ("0 dal segno", marks("D.S. al", "coda"));
    EXPECT_EQ("0 coda", marks("Coda", "coda"));
    EXPECT_EQ("0 words here, 0 segno", marks("here", "segno"));
}

TEST(ReadJumps, SignsOnBarLines) {
    EXPECT_EQ("0 segno", MarksOf(Read(Score({Barline("left", "<segno/>")})), 0));
    EXPECT_EQ("4 coda", MarksOf(Read(Score({Barline("right", "<coda/>")})), 0));
    EXPECT_EQ("0 segno x", MarksOf(Read(Score({Barline("left", "<segno/>", "segno=\"x\"")})), 0));
    EXPECT_EQ("0 coda y", MarksOf(Read(Score({Barline("left", "", "coda=\"y\"")})), 0));
}

TEST(ReadRepeats, EveryForm) {
    const auto repeat = [](const std::string& attributes) { return "<repeat " + attributes + "/>"; };
    const std::string forward = repeat("direction=\"forward\"");
    const std::string backward = repeat("direction=\"backward\"");
    const auto ending = [](const std::string& number, const std::string& type, const std::string& text = {}) {
        return "<ending number=\"" + number + "\" type=\"" + type + "\">" + text + "</ending>";
    };
    const std::vector<std::pair<std::vector<std::string>, std::string>> rows{
        {{Barline("left", forward), Barline("right", backward)}, "|:1 / 2:|2"},
        {{Barline("right", forward), Barline("right", backward)}, "1 / |:2:|2"},
        {{"", Barline("left", backward)}, "1:|2 / 2"},
        {{Barline("right", repeat("direction=\"backward\" times=\"4\""))}, "1:|4"},
        {{Barline("right", repeat("direction=\"backward\" times=\"1\""))}, "1:|1"},
        {{Barline("right", repeat("direction=\"backward\" after-jump=\"yes\""))}, "1:|2 after jump"},
        {{"<sound forward-repeat=\"yes\"/>", Barline("right", backward)}, "|:1 / 2:|2"},
        {{Barline("left", ending("1, 3", "start")) + Barline("right", ending("1, 3", "stop") + backward),
          Barline("left", ending("2", "start")) + Barline("right", ending("2", "discontinue"))},
         "[1,31]1,3:|2 / [22]2"},
        {{Barline("left", ending("1-3", "start"))}, "[1,2,31"},
        {{Barline("left", ending("1.", "start"))}, "[11"},
        {{Barline("left", ending("1.2.", "start"))}, "[1,21"},
        {{Barline("left", ending("1.-3.", "start"))}, "[1,2,31"},
        {{Barline("left", ending("3 1,1", "start"))}, "[1,31"},
        {{Barline("left", ending("", "start", "2.-4."))}, "[2,3,41"},
        {{Barline("left", ending("", "start", "last time"))}, "[1"},
        {{Barline("right", ending("2", "start")), ""}, "1 / [22"},
        {{"", Barline("left", ending("1", "stop"))}, "1]1 / 2"},
    };
    for (const auto& [measures, expected] : rows)
        EXPECT_EQ(expected, RepeatsOf(Read(Score(measures)))) << measures.front();
}

TEST(ReadRepeats, OfOtherParts_OnlyAddWhatIsMissing) {
    const auto backward = [](const std::string& times) {
        return Barline("right", "<repeat direction=\"backward\" times=\"" + times + "\"/>");
    };
    EXPECT_EQ("1:|3", RepeatsOf(Read(TwoParts(backward("3"), backward("5")))));
    EXPECT_EQ("1:|5", RepeatsOf(Read(TwoParts("", backward("5")))));
}

TEST(ReadRepeats, Absurd_AreReadWithAWarning) {
    const auto warn = [](const std::string& barline) {
        const WrittenScore score = Read(Score({barline}));
        return RepeatsOf(score) + "; " + (score.warnings.empty() ? "" : score.warnings.front());
    };
    const std::string place = "\"a.xml\", part P1 (Violin), measure 1: ";
    EXPECT_EQ("1:|2; " + place + "a passage cannot be played 0 times; it is played twice",
              warn(Barline("right", "<repeat direction=\"backward\" times=\"0\"/>")));
    EXPECT_EQ("1; " + place + "a repeat ends before the first measure and is not read",
              warn(Barline("left", "<repeat direction=\"backward\"/>")));
    EXPECT_EQ("1; " + place + "a repeat sign inside a measure is not read",
              warn(Barline("middle", "<repeat direction=\"backward\"/>")));
}

}  // namespace
