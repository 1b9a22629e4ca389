// The import of scores, as the program does it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "stage/import/show_import.h"
#include "tavo_core/bar_positions.h"
#include "tavo_midi/smf_writer.h"
#include "tests/support/run_program.h"

namespace {

using stage::ImportRequest;
using stage::ImportResult;
using test_support::RunStage;
using test_support::WriteAll;
using testing::ElementsAre;
using testing::HasSubstr;

/// A measure of MusicXML with one whole-bar note.
std::string PlainMeasure(const std::string& number, int quarters, const std::string& before = "",
                         const std::string& after = "") {
    return "<measure number='" + number + "'>" + before +
           "<note><pitch><step>C</step><octave>4</octave></pitch><duration>" + std::to_string(quarters) +
           "</duration></note>" + after + "</measure>";
}

const char* const FourFour =
    "<attributes><divisions>1</divisions><time><beats>4</beats><beat-type>4</beat-type></time></attributes>"
    "<sound tempo='120'/>";
const char* const Forward = "<barline location='left'><repeat direction='forward'/></barline>";
const char* const Backward = "<barline location='right'><repeat direction='backward'/></barline>";
const char* const NewPage = "<print new-page='yes'/>";

std::string TitledScore(const std::string& title, const std::string& measures) {
    return "<score-partwise version='4.0'><movement-title>" + title +
           "</movement-title><part-list><score-part id='P1'><part-name>Piano</part-name></score-part></part-list>"
           "<part id='P1'>" +
           measures + "</part></score-partwise>";
}

/// A MIDI file with a quarter note on every beat of so many bars of 4/4.
std::string Midi(int bars, std::uint16_t ticksPerQuarter = 384, std::uint32_t firstTick = 0) {
    tavo_midi::Smf smf;
    smf.ticksPerQuarter = ticksPerQuarter;
    tavo_midi::SmfTrack track;
    track.meters = {{0, 4, 4}};
    track.tempos = {{0, 600000}};
    track.markers = {{0, "from the MIDI file"}};
    for (std::uint32_t tick = firstTick; tick < static_cast<std::uint32_t>(bars * 4 * ticksPerQuarter);
         tick += ticksPerQuarter) {
        smf.events.push_back({tick, 0x90, 72, 64, 0});
        smf.events.push_back({tick + ticksPerQuarter, 0x80, 72, 0, 0});
    }
    std::stable_sort(smf.events.begin(), smf.events.end(),
                     [](const auto& a, const auto& b) { return a.tick < b.tick; });
    track.eventCount = smf.events.size();
    track.endTick = static_cast<std::uint32_t>(bars * 4 * ticksPerQuarter);
    smf.tracks = {track};
    return tavo_midi::WriteSmf(smf);
}

class ImportOfScores : public testing::Test {
protected:
    void Write(const std::string& name, const std::string& bytes) const { WriteAll(directory_ / name, bytes); }
    ImportResult Import(const std::vector<std::string>& names) {
        for (const std::string& name : names)
            request_.paths.push_back(directory_ / name);
        request_.showPath = directory_ / "show";
        return ImportShow(request_);
    }
    static std::string PrintBars(const tavo_midi::SongData& song) {
        std::string text;
        const TL::BarPositions positions(song.GetTimeline());
        for (const auto& bar : positions.GetBars())
            text += (text.empty() ? "" : " ") + bar.label + "=" + std::to_string(bar.startTick);
        return text;
    }
    [[nodiscard]] std::string PrintEdits(const std::string& song) const {
        return RunStage({"edit", directory_ / "show", "list", "--song", song}).out;
    }

    test_support::TemporaryDirectory directory_;
    ImportRequest request_;
};

const std::string Repeated =
    TitledScore("Repeated", PlainMeasure("1", 4, FourFour) + PlainMeasure("2", 4, Forward, Backward));

TEST_F(ImportOfScores, PlaysRepeatsOut) {
    Write("01_a.musicxml", Repeated);
    const ImportResult result = Import({"01_a.musicxml"});
    EXPECT_EQ("1=0 2=1920 2 (2)=3840", PrintBars(result.songs.front()));
    EXPECT_EQ("Repeated", result.songs.front().GetTitle());
    EXPECT_THAT(PrintEdits("1"), testing::Not(HasSubstr("repeat")));
}

TEST_F(ImportOfScores, BarsThatAreNeverPlayed_AreAllNamed) {
    const std::string fine = "<sound fine='yes'/>";
    std::string measures = PlainMeasure("1", 4, FourFour, fine) + PlainMeasure("2", 4, "", "<sound dacapo='yes'/>");
    for (int bar = 3; bar <= 5; ++bar)
        measures += PlainMeasure(std::to_string(bar), 4);
    for (int song = 1; song <= 25; ++song)
        Write(std::to_string(song) + ".musicxml", TitledScore("A", measures));
    const test_support::ProgramResult import = RunStage({"import", directory_ / "", "-o", directory_ / "show"});
    EXPECT_THAT(import.err, HasSubstr("1.musicxml\": bars 3 to 5 are never played\n"));
    EXPECT_EQ(25, std::count(import.err.begin(), import.err.end(), '\n')) << import.err;
}

TEST_F(ImportOfScores, AsWritten_KeepsTheBarsWithEdits) {
    Write("01_a.xml", Repeated);
    request_.asWritten = true;
    EXPECT_EQ("1=0 2=1920", PrintBars(Import({"01_a.xml"}).songs.front()));
    EXPECT_THAT(PrintEdits("1"), HasSubstr("repeat"));
}

TEST_F(ImportOfScores, MarkersAtOnePlace_AreOne) {
    const std::string marks =
        "<direction><direction-type><rehearsal>C</rehearsal></direction-type></direction>"
        "<direction><direction-type><words>Vamp</words></direction-type></direction>";
    Write("01_a.xml", TitledScore("A", PlainMeasure("1", 4, FourFour + marks)));
    (void)Import({"01_a.xml"});
    const std::string edits = PrintEdits("1");
    EXPECT_THAT(edits, HasSubstr("\"C, Vamp\""));
    EXPECT_EQ(edits.find("marker"), edits.rfind("marker")) << edits;
    const test_support::ProgramResult again =
        RunStage({"edit", directory_ / "show", "add", "marker", "--song", "1", "--at", "1", "--text", "solo"});
    EXPECT_EQ(0, again.exitCode) << again.err;
    EXPECT_THAT(PrintEdits("1"), HasSubstr("\"C, Vamp, solo\""));
}

TEST_F(ImportOfScores, BreathMarks_LiftOrStopOrAreLeftOut) {
    const std::string breath =
        "<measure number='1'>" + std::string(FourFour) +
        "<note><pitch><step>C</step><octave>4</octave></pitch><duration>2</duration><notations><articulations>"
        "<breath-mark/></articulations></notations></note><note><rest/><duration>2</duration></note></measure>";
    Write("01_a.xml", TitledScore("A", breath));
    const auto import = [&](const std::vector<std::string>& words) {
        std::filesystem::remove_all(directory_ / "show");
        std::vector<std::string> all{"import", directory_ / "01_a.xml", "-o", directory_ / "show", "--written"};
        all.insert(all.end(), words.begin(), words.end());
        return RunStage(all);
    };
    EXPECT_EQ("", import({}).err);
    EXPECT_THAT(PrintEdits("1"), testing::Not(HasSubstr("caesura"))) << "a lift, if nobody says otherwise";
    EXPECT_EQ("", import({"--breaths", "ignore"}).err);
    EXPECT_THAT(PrintEdits("1"), testing::Not(HasSubstr("caesura")));
    EXPECT_EQ("", import({"--breaths", "stop"}).err);
    EXPECT_THAT(PrintEdits("1"), HasSubstr("caesura"));
    EXPECT_NE(0, import({"--breaths", "hold"}).exitCode);
}

TEST_F(ImportOfScores, WithoutATitle_TakesTheFileName) {
    Write("07_Old_Bridge.musicxml", TitledScore("", PlainMeasure("1", 4, FourFour)));
    const ImportResult result = Import({"07_Old_Bridge.musicxml"});
    EXPECT_EQ("Old Bridge", result.songs.front().GetTitle());
    EXPECT_EQ("7", result.songs.front().GetSongNumber());
}

TEST_F(ImportOfScores, PagesWithoutNumbers_RunOnThroughTheShow) {
    const std::string twoPages = PlainMeasure("1", 4, std::string(NewPage) + FourFour) + PlainMeasure("2", 4, NewPage);
    Write("01_a.musicxml", TitledScore("A", twoPages));
    Write("02_b.musicxml", TitledScore("B", twoPages));
    const ImportResult result = Import({"01_a.musicxml", "02_b.musicxml"});
    std::vector<unsigned int> pages;
    for (const tavo_midi::SongData& song : result.songs)
        for (const TL::PageNum& page : song.GetTimeline().GetPageNums())
            pages.push_back(page.page_number());
    EXPECT_THAT(pages, ElementsAre(1, 2, 3, 4));
}

TEST_F(ImportOfScores, PickupThatTheArrangerNames_ComesBeforeTheLabelledBars) {
    Write("01_a.musicxml", TitledScore("A", PlainMeasure("5", 4, FourFour) + PlainMeasure("6", 4)));
    request_.pickupBeats["1"] = 1;
    EXPECT_EQ("0=0 5=480 6=2400", PrintBars(Import({"01_a.musicxml"}).songs.front()));
}

TEST_F(ImportOfScores, BesideAMidiFile_NotesAndTempoAreTheFilesAndTheRestTheScores) {
    Write("01_a.mid", Midi(2));
    Write("01_b.musicxml", TitledScore("Title", PlainMeasure("X", 4, std::string(NewPage) + FourFour) +
                                                    PlainMeasure("Y", 4,
                                                                 "<direction><direction-type><rehearsal>A</rehearsal>"
                                                                 "</direction-type></direction>")));
    const ImportResult result = Import({"01_b.musicxml", "01_a.mid"});
    ASSERT_EQ(1U, result.songs.size());
    const tavo_midi::SongData& song = result.songs.front();
    EXPECT_EQ("Title", song.GetTitle());
    EXPECT_EQ("X=0 Y=1536", PrintBars(song));
    EXPECT_EQ(384, song.GetTicksPerQuarter());
    EXPECT_EQ(16U, song.GetEvents().size()) << "four notes a bar, and no program";
    EXPECT_EQ(600000U, song.GetTimeline().GetTempos()[0].microseconds_per_quarter());
    EXPECT_EQ(1U, song.GetTimeline().GetPageNums().size());
    EXPECT_THAT(PrintEdits("1"), testing::AllOf(HasSubstr("\"A\""), testing::Not(HasSubstr("from the MIDI file"))));
}

TEST_F(ImportOfScores, BesideAMidiFileOfTheSameName_WithoutANumber) {
    Write("March.mid", Midi(1));
    Write("March.musicxml", TitledScore("The March", PlainMeasure("1", 4, FourFour)));
    const ImportResult result = Import({"March.mid", "March.musicxml"});
    ASSERT_EQ(1U, result.songs.size());
    EXPECT_EQ("The March", result.songs.front().GetTitle());
}

TEST_F(ImportOfScores, BesideAMidiFileThatDoesNotMarkThePickup_TheScoreDoes) {
    Write("01.mid", [] {
        tavo_midi::Smf smf = tavo_midi::ReadSmf(Midi(3), "midi");
        smf.events.resize(18);  // a pick-up of one quarter and two bars
        smf.tracks[0].eventCount = 18;
        return tavo_midi::WriteSmf(smf);
    }());
    Write("01.musicxml",
          TitledScore("A", PlainMeasure("0", 1, FourFour) + PlainMeasure("1", 4) + PlainMeasure("2", 4)));
    EXPECT_EQ("0=0 1=384 2=1920", PrintBars(Import({"01.mid", "01.musicxml"}).songs.front()));
}

TEST_F(ImportOfScores, BesideAMidiFileWithOtherBars_NamesTheBarAndStops) {
    Write("01.mid", Midi(3));
    Write("01.musicxml",
          TitledScore("A", PlainMeasure("1", 4, FourFour) + PlainMeasure("2", 3) + PlainMeasure("3", 4)));
    EXPECT_THAT(
        [this] {
            (void)Import({"01.mid", "01.musicxml"});
        },
        testing::ThrowsMessage<std::runtime_error>(
            HasSubstr("disagree at bar 3: it begins at tick 3072 in the MIDI file and at tick 2688 in the "
                      "score")));
    EXPECT_FALSE(std::filesystem::exists(directory_ / "show"));
}

TEST_F(ImportOfScores, BesideALongerMidiFile_NamesTheLastBarAndStops) {
    Write("01.mid", Midi(3));
    Write("01.musicxml", TitledScore("A", PlainMeasure("1", 4, FourFour) + PlainMeasure("2", 4)));
    EXPECT_THAT(
        [this] {
            (void)Import({"01.mid", "01.musicxml"});
        },
        testing::ThrowsMessage<std::runtime_error>(HasSubstr("goes on after bar 2, the last one")));
}

const std::string RepeatedFromTheBeginning =
    TitledScore("A", PlainMeasure("1", 4, std::string(Forward) + FourFour) + PlainMeasure("2", 4, "", Backward) +
                         PlainMeasure("3", 4));

TEST_F(ImportOfScores, BesideAMidiFileOfTheWrittenBars_SaysSoAndStops) {
    Write("01.mid", Midi(3));
    Write("01.musicxml", RepeatedFromTheBeginning);
    EXPECT_THAT(
        [this] {
            (void)Import({"01.mid", "01.musicxml"});
        },
        testing::ThrowsMessage<std::runtime_error>(HasSubstr(
            "disagree after bar 1 (2): the MIDI file ends there, and the score has music up to bar 3; the MIDI "
            "file has the written bars, 3: import with --written, or leave it out")));
    request_.paths.clear();
    request_.asWritten = true;
    EXPECT_EQ("1=0 2=1536 3=3072", PrintBars(Import({"01.mid", "01.musicxml"}).songs.front()));
}

TEST_F(ImportOfScores, AsWrittenBesideAMidiFileThatIsPlayedOut_SaysSoAndStops) {
    Write("01.mid", Midi(5));
    Write("01.musicxml", RepeatedFromTheBeginning);
    request_.asWritten = true;
    EXPECT_THAT(
        [this] {
            (void)Import({"01.mid", "01.musicxml"});
        },
        testing::ThrowsMessage<std::runtime_error>(HasSubstr(
            "the MIDI file goes on after bar 3, the last one of the score; the MIDI file has the bars as they are "
            "played, 5: import without --written, or leave it out")));
}

TEST_F(ImportOfScores, BesideAMidiFileThatEndsEarlyInAnyOrder_SaysWhereAndStops) {
    Write("01.mid", Midi(2));
    Write("01.musicxml", RepeatedFromTheBeginning);
    EXPECT_THAT(
        [this] {
            (void)Import({"01.mid", "01.musicxml"});
        },
        testing::ThrowsMessage<std::runtime_error>(
            HasSubstr("disagree after bar 2: the MIDI file ends there, and the score has music up to bar 3; leave the "
                      "MIDI file out, or give it a number of its own")));
    EXPECT_FALSE(std::filesystem::exists(directory_ / "show"));
}

/// A measure of four quarter notes, "CDEF".
std::string FourNotes(const std::string& number, const std::string& steps, const std::string& octave = "4") {
    std::string notes;
    for (const char step : steps)
        notes += "<note><pitch><step>" + std::string(1, step) + "</step><octave>" + octave +
                 "</octave></pitch><duration>1</duration></note>";
    return "<measure number='" + number + "'>" + (number == "1" ? FourFour : "") + notes + "</measure>";
}

TEST_F(ImportOfScores, BesideAnotherSongsMidiFile_ComparesTheNotesAndStops) {
    Write("01.mid", Midi(3));  // C on every beat
    const auto import = [this](const std::string& first, const std::string& last, const std::string& octave) {
        request_.paths.clear();
        std::filesystem::remove_all(directory_ / "show");
        Write("01.musicxml", TitledScore("A", FourNotes("1", first, octave) + FourNotes("2", first, octave) +
                                                  FourNotes("3", last, octave)));
        (void)Import({"01.mid", "01.musicxml"});
    };
    EXPECT_THAT([&] { import("DEFG", "DEFG", "4"); },
                testing::ThrowsMessage<std::runtime_error>(
                    HasSubstr("disagree at bar 1: of the notes of bars 1 to 3 they have 0 percent in common")));
    EXPECT_NO_THROW(import("CCCC", "CCCC", "2")) << "in another octave";
    EXPECT_NO_THROW(import("CCCC", "DEFG", "4")) << "most of them";
}

TEST_F(ImportOfScores, BesideAMidiFileATickShortWithAnEndlessPedal_TakesIt) {
    tavo_midi::Smf smf = tavo_midi::ReadSmf(Midi(2), "midi");
    smf.events.back().tick -= 1;
    smf.events.insert(smf.events.begin(), {0, 0xB0, 64, 127, 0});
    smf.tracks[0].eventCount = smf.events.size();
    smf.tracks[0].endTick -= 1;
    Write("01.mid", tavo_midi::WriteSmf(smf));
    Write("01.musicxml", TitledScore("A", PlainMeasure("1", 4, FourFour) + PlainMeasure("2", 4)));
    EXPECT_EQ("1=0 2=1536", PrintBars(Import({"01.mid", "01.musicxml"}).songs.front()));
}

TEST_F(ImportOfScores, BesideAMidiFileThatCountsAnotherMeter_NotesTheBar) {
    tavo_midi::Smf smf = tavo_midi::ReadSmf(Midi(3), "midi");
    smf.tracks[0].meters = {{0, 6, 8}};
    Write("01.mid", tavo_midi::WriteSmf(smf));
    std::string measures;
    for (int bar = 1; bar <= 4; ++bar)
        measures += PlainMeasure(std::to_string(bar), 3,
                                 bar > 1 ? ""
                                         : "<attributes><divisions>1</divisions><time><beats>3</beats><beat-type>4"
                                           "</beat-type></time></attributes>");
    Write("01.musicxml", TitledScore("A", measures));
    EXPECT_THAT(
        Import({"01.mid", "01.musicxml"}).notes,
        ElementsAre(HasSubstr("bar 1 is counted in 6/8, in the score in 3/4; the MIDI file's meters are taken")));
}

TEST_F(ImportOfScores, AsWrittenBesideAMidiFile_ScalesTheEditsToItsTicks) {
    Write("01.mid", Midi(2));
    Write("01.musicxml", Repeated);
    request_.asWritten = true;
    (void)Import({"01.mid", "01.musicxml"});
    EXPECT_THAT(PrintEdits("1"), testing::ContainsRegex("repeat +bar 2 +2 times"));
}

TEST_F(ImportOfScores, TellsItsSteps) {
    Write("01_a.musicxml", Repeated);
    std::vector<std::string> steps;
    request_.reportProgress = [&](std::size_t done, std::size_t total, const std::string& next) {
        steps.push_back(std::to_string(done) + "/" + std::to_string(total) + " " + next.substr(0, next.find(' ')));
    };
    (void)Import({"01_a.musicxml"});
    EXPECT_THAT(steps, ElementsAre("0/1 reading", "0/1 laying"));
}

TEST_F(ImportOfScores, NotAScore_IsOneSentenceThatNamesTheFile) {
    Write("01_a.musicxml", "no XML at all");
    const test_support::ProgramResult import =
        RunStage({"import", directory_ / "01_a.musicxml", "-o", directory_ / "show"});
    EXPECT_EQ(1, import.exitCode);
    EXPECT_THAT(import.err, testing::AllOf(HasSubstr("stage: "), HasSubstr("01_a.musicxml")));
    EXPECT_EQ(1, std::count(import.err.begin(), import.err.end(), '\n')) << import.err;
}

TEST_F(ImportOfScores, AsWritten_NamesEverythingThatNoEditCanSay) {
    std::string measures = PlainMeasure("1", 4, FourFour);
    for (int bar = 2; bar <= 31; ++bar)
        measures += PlainMeasure(std::to_string(bar), 4,
                                 "<direction><direction-type><words>D.C.</words></direction-type>"
                                 "<sound dacapo='yes'/></direction>");
    Write("01_a.musicxml", TitledScore("A", measures));
    const test_support::ProgramResult import =
        RunStage({"import", directory_ / "01_a.musicxml", "-o", directory_ / "show", "--written"});
    EXPECT_EQ(30, std::count(import.err.begin(), import.err.end(), '\n')) << import.err;
    EXPECT_THAT(import.err, HasSubstr("the D.C. in bar 31 is not an edit: playback goes on there"));
}

TEST_F(ImportOfScores, AsWrittenOfMidiFilesOnly_NotesThatItHasNoEffect) {
    Write("01_a.mid", Midi(2));
    Write("02_b.mid", Midi(2));
    const test_support::ProgramResult import =
        RunStage({"import", directory_ / "01_a.mid", directory_ / "02_b.mid", "-o", directory_ / "show", "--written"});
    EXPECT_EQ(0, import.exitCode);
    EXPECT_EQ("note: --written has no effect: none of the files is a MusicXML score\n", import.err);
}

TEST_F(ImportOfScores, AsWrittenOfAMidiFileAndAScore_NotesNothing) {
    Write("01_a.mid", Midi(2));
    Write("02_b.musicxml", Repeated);
    request_.asWritten = true;
    EXPECT_TRUE(Import({"01_a.mid", "02_b.musicxml"}).notes.empty());
}

TEST_F(ImportOfScores, TheFirstScoresOfTheReadme_AreImportedWithoutANote) {
    const std::filesystem::path folder = std::filesystem::path(SOURCE_DIR) / "examples/first-score";
    const test_support::ProgramResult import = RunStage({"import", folder, "--written", "-o", directory_ / "show"});
    EXPECT_EQ(0, import.exitCode);
    EXPECT_EQ("", import.err);
    const std::string edits = PrintEdits("1");
    for (const char* edit : {"repeat", "vamp", "fermata", "caesura", "marker"})
        EXPECT_THAT(edits, HasSubstr(edit));
    EXPECT_EQ("nothing is wrong\n", RunStage({"check", directory_ / "show"}).out);
}

}  // namespace
