#include <gtest/gtest.h>

#include "tests/musicxml/support/score_text.h"

namespace {

using stage::musicxml::GraceKind;
using stage::musicxml::WrittenInstrument;
using stage::musicxml::WrittenNote;
using stage::musicxml::WrittenPedal;
using stage::musicxml::WrittenScore;
using namespace test_support;

std::string Notations(const std::string& content) {
    return "<notations>" + content + "</notations>";
}

std::string Dynamics(const std::string& mark, const std::string& behind = {}) {
    return Direction("<dynamics><" + mark + "/></dynamics>", behind);
}

std::string Wedge(const std::string& type) {
    return Direction("<wedge type=\"" + type + "\"/>");
}

std::string VelocitiesOf(const std::string& measure) {
    std::string text;
    for (const WrittenNote& note : Read(Score({measure})).notes)
        text += (text.empty() ? "" : " ") + std::to_string(note.velocity);
    return text;
}

std::string LengthsOf(const std::string& measure) {
    std::string text;
    for (const WrittenNote& note : Read(Score({measure})).notes)
        text += (text.empty() ? "" : " ") + std::to_string(note.soundingPercent);
    return text;
}

/// The instruments of a score of one part.
std::vector<WrittenInstrument> ReadInstruments(const std::string& scorePart) {
    return Read(Partwise("<score-part id=\"P1\">" + scorePart + "</score-part>",
                         "<part id=\"P1\">" + Measure("1", "") + "</part>"))
        .parts.at(0)
        .instruments;
}

TEST(ReadNotes, PitchesChordsVoicesAndRests) {
    const std::vector<std::pair<std::string, std::string>> rows{
        {Note("C4", 4) + Note("F#4", 4) + Note("Bb3", 8), "60@1:0+1 66@1:1+1 58@1:2+2"},
        {Note("C4", 4) + Note("E4", 4, "<chord/>") + Note("G4", 4, "<chord/>") + Note("C5", 4),
         "60@1:0+1 64@1:0+1 67@1:0+1 72@1:1+1"},
        {Note("rest", 4) + Note("C4", 4), "60@1:1+1"},
        {Note("C5", 8) + "<backup><duration>8</duration></backup>" + Note("C3", 4) + Note("D3", 4),
         "72@1:0+2 48@1:0+1 50@1:1+1"},
        {"<forward><duration>2</duration></forward>" + Note("C4", 4), "60@1:0.5+1"},
        {Note("C4", 4, "<cue/>") + Note("D4", 4), "62@1:1+1"},
        {Note("C4", 4, "<notehead>slash</notehead>") + Note("D4", 4), "62@1:1+1"},
    };
    for (const auto& [measure, notes] : rows)
        EXPECT_EQ(notes, NotesOf(Read(Score({measure})))) << measure;
}

TEST(ReadNotes, Triplets_LastAsTheirDurationSays) {
    const std::string three = "<attributes><divisions>3</divisions></attributes>";
    const WrittenScore score = Read(Score({three + Note("C4", 1) + Note("D4", 1) + Note("E4", 1)}));
    EXPECT_EQ(score.unitsPerQuarter, 3 * score.notes[2].length);
    EXPECT_EQ(2 * score.unitsPerQuarter, 3 * score.notes[2].position);
}

TEST(ReadNotes, OfAllParts_AscendByBarPartAndPosition) {
    const WrittenScore score = Read(TwoParts(Note("C4", 4) + Note("D4", 4), Note("E4", 4)));
    ASSERT_EQ(3u, score.notes.size());
    EXPECT_EQ(62, score.notes[1].key);
    EXPECT_EQ(1, score.notes[2].part);
}

TEST(ReadTies, ByTieElseByTheirSigns) {
    const auto ties = [](const std::string& extra) {
        const WrittenNote note = Read(Score({Note("C4", 4, extra)})).notes.at(0);
        return std::string(note.tieStart ? "start" : "") + (note.tieStop ? "stop" : "");
    };
    EXPECT_EQ("start", ties("<tie type=\"start\"/>"));
    EXPECT_EQ("startstop", ties("<tie type=\"stop\"/><tie type=\"start\"/>"));
    EXPECT_EQ("stop", ties(Notations("<tied type=\"stop\"/>")));
    EXPECT_EQ("startstop", ties(Notations("<tied type=\"continue\"/>")));
    EXPECT_EQ("", ties(Notations("<tied type=\"let-ring\"/>")));
    EXPECT_EQ("stop", ties("<tie type=\"stop\"/>" + Notations("<tied type=\"start\"/>"))) << "the tie is what sounds";
}

TEST(ReadGrace, TakesItsTimeBeforeOrOnTheBeat) {
    const std::vector<std::pair<std::string, GraceKind>> rows{
        {"<grace/>", GraceKind::OnBeat},
        {"<grace slash=\"yes\"/>", GraceKind::BeforeBeat},
        {"<grace slash=\"no\"/>", GraceKind::OnBeat},
        {"<grace steal-time-previous=\"20\"/>", GraceKind::BeforeBeat},
        {"<grace slash=\"yes\" steal-time-following=\"20\"/>", GraceKind::OnBeat},
    };
    for (const auto& [grace, kind] : rows) {
        const WrittenScore score = Read(Score({Note("rest", 4) + Note("D4", 0, grace) + Note("C4", 4)}));
        EXPECT_EQ("62@1:1+0 60@1:1+1", NotesOf(score)) << grace;
        EXPECT_EQ(kind, score.notes[0].grace) << grace;
    }
}

TEST(ReadGrace, SeveralOfOnePlace_StandInTheirOrderBeforeWhatSoundsThere) {
    const std::string voice2 = "<backup><duration>4</duration></backup>";
    EXPECT_EQ("74@1:0+0 71@1:0+0 48@1:0+1 72@1:0+1",
              NotesOf(Read(Score(
                  {Note("C3", 4) + voice2 + Note("D5", 0, "<grace/>") + Note("B4", 0, "<grace/>") + Note("C5", 4)}))));
}

TEST(ReadTransposition, GivesSoundingPitch) {
    const auto play = [](const std::string& transpose, const std::string& extra = {}) {
        return Read(Score({"<attributes>" + transpose + "</attributes>" + Note("C4", 4, extra)})).notes.at(0).key;
    };
    EXPECT_EQ(58, play("<transpose><diatonic>-1</diatonic><chromatic>-2</chromatic></transpose>"));
    EXPECT_EQ(46, play("<transpose><chromatic>-2</chromatic><octave-change>-1</octave-change></transpose>"));
    EXPECT_EQ(63, play("<transpose><chromatic>3</chromatic></transpose>"));
    EXPECT_EQ(60, play("<for-part><part-clef/></for-part>"));
    const std::string ofStaff2 = "<transpose number=\"2\"><chromatic>-12</chromatic></transpose>";
    EXPECT_EQ(48, play(ofStaff2, "<staff>2</staff>"));
    EXPECT_EQ(60, play(ofStaff2, "<staff>1</staff>"));
}

TEST(ReadPitch, QuarterTones_AreRoundedWithOneWarning) {
    const std::string note =
        "<note><pitch><step>C</step><alter>0.5</alter><octave>4</octave></pitch><duration>4</duration></note>";
    const WrittenScore score = Read(Score({note + note}));
    EXPECT_EQ(61, score.notes[0].key);
    EXPECT_EQ(
        std::vector<std::string>{"\"a.xml\", part P1 (Violin), measure 1: quarter tones are rounded to semitones"},
        score.warnings);
}

TEST(ReadInstruments, MidiInstrument_GivesProgramChannelVolumeAndPan) {
    const auto instruments = ReadInstruments(
        "<part-name>Reed</part-name><score-instrument "
        "id=\"I1\"><instrument-name>Oboe</instrument-name></score-instrument>"
        "<score-instrument id=\"I2\"><instrument-name>Flute</instrument-name></score-instrument>"
        "<midi-instrument id=\"I2\"><midi-channel>16</midi-channel><midi-program>74</midi-program><volume>50</volume>"
        "<pan>-90</pan></midi-instrument>");
    ASSERT_EQ(2u, instruments.size());
    EXPECT_EQ("Oboe", instruments[0].name);
    EXPECT_EQ(68, instruments[0].program) << "by its name";
    EXPECT_EQ(-1, instruments[0].channel);
    EXPECT_EQ(-1, instruments[0].volume);
    EXPECT_EQ(73, instruments[1].program);
    EXPECT_EQ(15, instruments[1].channel);
    EXPECT_EQ(64, instruments[1].volume);
    EXPECT_EQ(0, instruments[1].pan);
}

TEST(ReadInstruments, NamesInFourLanguages_GiveGeneralMidiPrograms) {
    const std::vector<std::pair<std::string, int>> rows{
        {"Piano", 0},          {"Klavier", 0},     {"Fl\xC3\xBCgel", 0},     {"Pianoforte", 0},
        {"2. Violine", 40},    {"Violins I", 40},  {"Violon", 40},           {"Violoncelle", 42},
        {"Bratsche", 41},      {"Kontrabass", 43}, {"Contrebasse", 43},      {"Querfl\xC3\xB6te", 73},
        {"Fl\xC3\xBBte", 73},  {"Flauto", 73},     {"Clarinette en Si", 71}, {"Bassklarinette in B", 71},
        {"Hautbois", 68},      {"Fagotto", 70},    {"Corno in F", 60},       {"Cor anglais", 69},
        {"Tromba", 56},        {"Trombone", 57},   {"Posaune", 57},          {"Pauken", 47},
        {"Harfe", 46},         {"Soprano", 52},    {"Singstimme", 52},       {"Ch\xC5\x93ur", 52},
        {"Tenorsaxophon", 66}, {"Alto Sax", 65},   {"E-Bass", 33},           {"Bass", 32},
        {"Orgel", 19},         {"Akkordeon", 21},  {"Gitarre", 24},          {"Xyz", 0},
    };
    for (const auto& [name, program] : rows) {
        const auto instruments = ReadInstruments("<part-name>" + name + "</part-name>");
        ASSERT_EQ(1u, instruments.size());
        EXPECT_EQ(program, instruments[0].program) << name;
        EXPECT_FALSE(instruments[0].isPercussion) << name;
    }
}

TEST(ReadInstruments, StandardSounds_GiveGeneralMidiPrograms) {
    const std::vector<std::pair<std::string, int>> rows{
        {"wind.reed.oboe", 68}, {"strings.violin", 40},      {"strings.group", 48}, {"voice.bass", 52},
        {"keyboard.organ", 19}, {"keyboard.piano.grand", 0}, {"brass.tuba", 58},    {"wind.flutes.flute.piccolo", 72},
    };
    for (const auto& [sound, program] : rows)
        EXPECT_EQ(program, ReadInstruments("<part-name>Xyz</part-name><score-instrument id=\"I\"><instrument-sound>" +
                                           sound + "</instrument-sound></score-instrument>")[0]
                               .program)
            << sound;
}

TEST(ReadPercussion, UnpitchedNotes_HaveTheKeyOfTheirInstrument) {
    const std::string drums =
        "<score-part id=\"P1\"><part-name>Drumset</part-name><score-instrument id=\"K\"/><score-instrument id=\"H\"/>"
        "<midi-instrument id=\"K\"><midi-channel>10</midi-channel><midi-unpitched>37</midi-unpitched></midi-instrument>"
        "<midi-instrument id=\"H\"><midi-channel>10</midi-channel><midi-unpitched>43</midi-unpitched></midi-instrument>"
        "</score-part>";
    const auto hit = [](const std::string& id) {
        return "<note><unpitched/><duration>4</duration><instrument id=\"" + id + "\"/></note>";
    };
    const WrittenScore score =
        Read(Partwise(drums, "<part id=\"P1\">" + Measure("1", Divisions + hit("K") + hit("H")) + "</part>"));
    EXPECT_EQ("36@1:0+1 42@1:1+1", NotesOf(score));
    EXPECT_EQ(1, score.notes[1].instrument);
    EXPECT_TRUE(score.parts[0].instruments[1].isPercussion);
    EXPECT_EQ(9, score.parts[0].instruments[1].channel);
}

TEST(ReadPercussion, WithoutAKey_IsTakenFromTheName) {
    const auto play = [](const std::string& name) {
        return Read(Partwise("<score-part id=\"P1\"><part-name>" + name + "</part-name></score-part>",
                             "<part id=\"P1\">" +
                                 Measure("1", Divisions + "<note><unpitched/><duration>4</duration></note>") +
                                 "</part>"));
    };
    EXPECT_EQ(36, play("Gro\xC3\x9F"
                       "e Trommel")
                      .notes[0]
                      .key);
    EXPECT_EQ(81, play("Triangle").notes[0].key);
    EXPECT_TRUE(play("Bass Drum").parts[0].instruments[0].isPercussion);
    const WrittenScore unknown = play("Xyz");
    EXPECT_EQ(38, unknown.notes[0].key);
    EXPECT_EQ(1u, unknown.warnings.size());
}

TEST(ReadDynamics, MarksHoldUntilTheNext) {
    EXPECT_EQ("80 49 49 112", VelocitiesOf(Note("C4", 4) + Dynamics("p") + Note("C4", 4) + Note("C4", 4) +
                                           Dynamics("ff") + Note("C4", 4)));
    EXPECT_EQ("16", VelocitiesOf(Dynamics("ppp") + Note("C4", 4)));
}

TEST(ReadDynamics, SoundGivesTheVelocityAsAShareOfNinety) {
    EXPECT_EQ("90", VelocitiesOf(Dynamics("f", "<sound dynamics=\"100\"/>") + Note("C4", 4)));
    EXPECT_EQ("45", VelocitiesOf(Direction("<words>soft</words>", "<sound dynamics=\"50\"/>") + Note("C4", 4)));
    EXPECT_EQ("45", VelocitiesOf(Direction("<dynamics><other-dynamics>x</other-dynamics></dynamics>",
                                           "<sound dynamics=\"50\"/>") +
                                 Note("C4", 4)));
    EXPECT_EQ("127", VelocitiesOf("<sound dynamics=\"1000\"/>" + Note("C4", 4)));
    const std::string loud =
        "<note dynamics=\"110\"><pitch><step>C</step><octave>4</octave></pitch><duration>4</duration></note>";
    EXPECT_EQ("99 49", VelocitiesOf(Dynamics("p") + loud + Note("C4", 4))) << "a note's own";
}

TEST(ReadDynamics, SuddenMarks_AreForTheirPlaceOnly) {
    EXPECT_EQ("49 112 49",
              VelocitiesOf(Dynamics("p") + Note("C4", 4) + Dynamics("sfz") + Note("C4", 4) + Note("C4", 4)));
    EXPECT_EQ("96 49", VelocitiesOf(Dynamics("fp") + Note("C4", 4) + Note("C4", 4)));
}

TEST(ReadDynamics, HairpinLeadsEvenlyToTheNextMark) {
    EXPECT_EQ("49 61 73 84 96",
              VelocitiesOf(Dynamics("p") + Wedge("crescendo") + Note("C4", 4) + Note("C4", 4) + Note("C4", 4) +
                           Note("C4", 4) + Wedge("stop") + Dynamics("f") + Note("C4", 4)));
    EXPECT_EQ("80 72 64 64", VelocitiesOf(Wedge("diminuendo") + Note("C4", 4) + Note("C4", 4) + Wedge("stop") +
                                          Note("C4", 4) + Note("C4", 4)))
        << "without a mark one step softer";
    EXPECT_EQ("96 104 49", VelocitiesOf(Dynamics("f") + Wedge("crescendo") + Note("C4", 4) + Note("C4", 4) +
                                        Wedge("stop") + Dynamics("p") + Note("C4", 4)))
        << "a soft mark behind a crescendo is a new beginning";
}

TEST(ReadDynamics, HairpinsAlone_GoNoSofterThanPpp) {
    const std::string hairpin = Wedge("diminuendo") + Note("C4", 4) + Wedge("stop");
    EXPECT_EQ("33 17 16 16", VelocitiesOf(Dynamics("pp") + hairpin + hairpin + hairpin + Note("C4", 4)));
    EXPECT_EQ("10 10", VelocitiesOf(Dynamics("pppp") + hairpin + Note("C4", 4))) << "what is softer stays";
    EXPECT_EQ("33 1", VelocitiesOf(Dynamics("pp") + hairpin + Dynamics("n") + Note("C4", 4))) << "a written end counts";
}

TEST(ReadDynamics, OfOnePart_AreNotOthers) {
    const WrittenScore score = Read(TwoParts(Dynamics("ff") + Note("C4", 4), Note("C4", 4)));
    EXPECT_EQ(112, score.notes[0].velocity);
    EXPECT_EQ(80, score.notes[1].velocity);
}

TEST(ReadArticulations, AccentsAddToTheVelocity) {
    const auto accented = [](const std::string& sign) {
        return VelocitiesOf(Note("C4", 4, Notations("<articulations><" + sign + "/></articulations>")));
    };
    EXPECT_EQ("95", accented("accent"));
    EXPECT_EQ("105", accented("strong-accent"));
    EXPECT_EQ("88", accented("stress"));
    EXPECT_EQ("72", accented("unstress"));
}

TEST(ReadArticulations, ShortenWhatSounds) {
    const auto with = [](const std::string& signs) {
        return LengthsOf(Note("C4", 4, Notations("<articulations>" + signs + "</articulations>")));
    };
    EXPECT_EQ("95", with(""));
    EXPECT_EQ("50", with("<staccato/>"));
    EXPECT_EQ("25", with("<staccatissimo/>"));
    EXPECT_EQ("100", with("<tenuto/>"));
    EXPECT_EQ("75", with("<detached-legato/>"));
    EXPECT_EQ("75", with("<staccato/><tenuto/>"));
}

TEST(ReadArticulations, UnderAFermata_ShortenNothing) {
    const auto with = [](const std::string& signs) {
        return LengthsOf(Note("C4", 4, Notations("<fermata/><articulations>" + signs + "</articulations>")));
    };
    EXPECT_EQ("95", with("<staccato/>"));
    EXPECT_EQ("95", with("<staccatissimo/>"));
    EXPECT_EQ("100", with("<staccato/><tenuto/>"));
    EXPECT_EQ("100", with("<tenuto/>"));
    const std::string breath = "<articulations><breath-mark/></articulations>";
    EXPECT_TRUE(Read(Score({Note("C4", 4, Notations(breath))})).notes.front().hasBreath);
    EXPECT_FALSE(Read(Score({Note("C4", 4, Notations("<fermata/>" + breath))})).notes.front().hasBreath);
}

TEST(ReadArticulations, SlurredNotes_SoundInFullButForTheLast) {
    const std::string start = Notations("<slur type=\"start\"/>");
    const std::string stop = Notations("<slur type=\"stop\"/>");
    EXPECT_EQ("100 100 95 95", LengthsOf(Note("C4", 4, start) + Note("D4", 4) + Note("E4", 4, stop) + Note("F4", 4)));
}

TEST(ReadArticulations, SlurIntoAVoiceWrittenEarlier_Ends) {
    const std::string stop = Notations("<slur type=\"stop\"/>") + "<voice>1</voice>";
    const std::string start = Notations("<slur type=\"start\"/>") + "<voice>2</voice>";
    EXPECT_EQ("95 95 95", LengthsOf(Note("rest", 4) + Note("E4", 4, stop) + "<backup><duration>8</duration></backup>" +
                                    Note("C4", 4, start) + Note("D4", 4, "<voice>2</voice>")));
}

TEST(ReadArticulations, OnAnyNoteOfAChord_HoldForTheWhole) {
    const std::string second = "<note><chord/><pitch><step>E</step><octave>4</octave></pitch><duration>4</duration>" +
                               Notations("<articulations><staccato/></articulations>") + "</note>";
    EXPECT_EQ("50 50", LengthsOf(Note("C4", 4) + second));
}

TEST(ReadOrnaments, TrillAndTremolo_StayLongNotes) {
    const std::string trill = Notations("<ornaments><trill-mark/><tremolo type=\"single\">3</tremolo></ornaments>");
    EXPECT_EQ("60@1:0+4", NotesOf(Read(Score({Note("C4", 16, trill)}))));
}

TEST(ReadPedal, EveryDirection) {
    const auto pedals = [](const std::string& type) {
        std::string text;
        const WrittenScore score =
            Read(Score({Note("C4", 4) + Direction("<pedal type=\"" + type + "\"/>") + Note("C4", 4)}));
        for (const WrittenPedal& pedal : score.pedals)
            text += fmt::format("{}{} ", pedal.isDown ? "down" : "up", InQuarters(score, pedal.position));
        return text;
    };
    EXPECT_EQ("down1 ", pedals("start"));
    EXPECT_EQ("up1 ", pedals("stop"));
    EXPECT_EQ("up1 down1 ", pedals("change"));
    EXPECT_EQ("", pedals("continue"));
    EXPECT_EQ("up1 ", pedals("discontinue"));
    EXPECT_EQ("down1 ", pedals("resume"));
    EXPECT_EQ("", pedals("sostenuto"));
    const WrittenScore score =
        Read(Score({"<sound damper-pedal=\"yes\"/>" + Note("C4", 4) + "<sound damper-pedal=\"0\"/>"}));
    ASSERT_EQ(2u, score.pedals.size());
    EXPECT_TRUE(score.pedals[0].isDown);
    EXPECT_FALSE(score.pedals[1].isDown);
}

}  // namespace
