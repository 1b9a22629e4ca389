// Scores without a tempo in numbers, as the program imports them.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "stage/import/show_import.h"
#include "tavo_midi/show_data.h"
#include "tavo_midi/smf_writer.h"
#include "tests/musicxml/support/score_text.h"
#include "tests/support/run_program.h"

namespace {

using stage::ImportResult;
using test_support::Direction;
using test_support::RunStage;
using test_support::Score;
using test_support::Time;
using test_support::WriteAll;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

std::string Words(const std::string& words) {
    return Direction("<words>" + words + "</words>");
}

/// A bar of 4/4.
std::string Bar(const std::string& before = "", const std::string& after = "") {
    return before + test_support::Note("C4", 16) + after;
}

class ImportWithoutTempo : public testing::Test {
protected:
    void Write(const std::string& name, const std::string& bytes) const { WriteAll(directory_ / name, bytes); }
    ImportResult Import(const std::vector<std::string>& names) {
        request_.paths.clear();
        for (const std::string& name : names)
            request_.paths.push_back(directory_ / name);
        request_.showPath = directory_ / ("show" + std::to_string(++count_));
        return ImportShow(request_);
    }
    /// The tempos of one score, "~72@0 96@1920": as the import has them, which are those that the show holds.
    std::string TemposOf(const std::vector<std::string>& measures) {
        Write("3.musicxml", Score(measures));
        result_ = Import({"3.musicxml"});
        const std::string imported = Print(result_.songs.front());
        const tavo_midi::ShowData show(request_.showPath + "/show" + std::to_string(count_) + ".showdata");
        EXPECT_EQ(imported, Print(show.GetSongData("3")));
        return imported;
    }
    static std::string Print(const tavo_midi::SongData& song) {
        std::string text;
        for (const TL::Tempo& tempo : song.GetTimeline().GetTempos())
            text +=
                fmt::format("{}{}{:.4g}@{}", text.empty() ? "" : " ", song.IsGuessedTempo(tempo.abs_time()) ? "~" : "",
                            tempo.quarters_per_minute(), tempo.abs_time());
        return text;
    }
    void Set(const std::string& bar, double quartersPerMinute) {
        request_.tempos["3"].push_back({bar, quartersPerMinute});
    }
    std::string Refuse(const std::vector<std::string>& names) {
        try {
            static_cast<void>(Import(names));
            return "imported";
        } catch (const std::runtime_error& error) {
            return error.what();
        }
    }

    test_support::TemporaryDirectory directory_;
    stage::ImportRequest request_;
    ImportResult result_;
    int count_ = 0;
};

TEST_F(ImportWithoutTempo, WordsAtTheBeginning_GiveTheTempo) {
    EXPECT_EQ("~72@0", TemposOf({Bar(Words("Andante")), Bar()}));
    EXPECT_THAT(result_.guessedTempos,
                ElementsAre("song 3: no tempo is given; 72 quarters a minute are taken from \"Andante\""));
    EXPECT_EQ("~91@0", TemposOf({Time("6", "8") + Words("M\u00E4ssig") + test_support::Note("C4", 12)}));
}

TEST_F(ImportWithoutTempo, NoKnownWords_TakeTheUsualTempoAndSayHowToSetIt) {
    EXPECT_EQ("~120@0", TemposOf({Bar(Words("dolce")), Bar()}));
    EXPECT_THAT(result_.guessedTempos,
                ElementsAre("song 3: no tempo is given; 120 quarters a minute are taken, for no tempo word is known: "
                            "set it with --tempo 3=BPM"));
}

TEST_F(ImportWithoutTempo, ANumber_IsTakenWithoutAWord) {
    EXPECT_EQ("90@0", TemposOf({Bar(Direction("<words>Andante</words>", "<sound tempo='90'/>")), Bar(),
                                Bar(Words("Allegro"))}));
    EXPECT_THAT(result_.guessedTempos, IsEmpty());
}

TEST_F(ImportWithoutTempo, LaterWords_HoldFromTheirPlaceWhereNoNumberStands) {
    const std::string number = Direction("<words>Presto</words>", "<sound tempo='150'/>");
    EXPECT_EQ("~72@0 ~132@1920 150@3840 ~54@5760 ~62@7680 ~72@9600",
              TemposOf({Bar(Words("Andante")), Bar(Words("Allegro")), Bar(number), Bar(Words("Lento")),
                        Bar(Words("Pi\u00F9 mosso")), Bar(Words("Tempo I"))}));
    EXPECT_THAT(result_.guessedTempos,
                ElementsAre("song 3: no tempo is given; 72 quarters a minute are taken from \"Andante\", and 132 from "
                            "\"Allegro\" at bar 2, and 54 from \"Lento\" at bar 4, and 2 more"));
}

TEST_F(ImportWithoutTempo, APickup_HasTheWordsOrTheNumberOfTheFirstFullBar) {
    EXPECT_EQ("~72@0", TemposOf({test_support::Note("C4", 4), Bar(Words("Andante")), Bar()}));
    EXPECT_EQ("90@0", TemposOf({test_support::Note("C4", 4), Bar("<sound tempo='90'/>"), Bar()}));
    EXPECT_THAT(result_.guessedTempos, IsEmpty());
}

TEST_F(ImportWithoutTempo, AShortFirstBarInAMeterOfItsOwn_IsNotAPickup) {
    EXPECT_EQ("~46@0 90@960", TemposOf({Time("2", "4") + Words("Lento") + test_support::Note("C4", 8),
                                        Time("4", "4") + Bar("<sound tempo='90'/>")}));
}

TEST_F(ImportWithoutTempo, AfterAJump_TheGuessedTempoOfThatPlaceIsBack) {
    const std::vector<std::string> measures{Bar(Words("Andante")), Bar(Words("Allegro"), "<sound dacapo='yes'/>")};
    EXPECT_EQ("~72@0 ~132@1920 ~72@3840 ~132@5760", TemposOf(measures));
}

TEST_F(ImportWithoutTempo, ASetTempo_HoldsEachTimeItsBarIsPlayedUpToTheNextTempo) {
    const std::vector<std::string> measures{Bar(Words("Andante")), Bar(Words("Allegro"), "<sound dacapo='yes'/>")};
    Set("", 80);
    EXPECT_EQ("80@0 ~132@1920 80@3840 ~132@5760", TemposOf(measures));
    EXPECT_THAT(result_.guessedTempos,
                ElementsAre("song 3: 132 quarters a minute are taken from \"Allegro\" at bar 2"));
    Set("2", 100.5);
    EXPECT_EQ("80@0 100.5@1920 80@3840 100.5@5760", TemposOf(measures));
    EXPECT_THAT(result_.guessedTempos, IsEmpty());
}

TEST_F(ImportWithoutTempo, ASetTempoOfOneTime_HoldsOnlyThen) {
    Set("1 (2)", 60);
    EXPECT_EQ("~72@0 ~132@1920 60@3840 ~132@5760",
              TemposOf({Bar(Words("Andante")), Bar(Words("Allegro"), "<sound dacapo='yes'/>")}));
}

TEST_F(ImportWithoutTempo, RelativeWords_GoFromTheTempoThatIsSet) {
    Set("", 100);
    EXPECT_EQ("100@0 ~115@1920", TemposOf({Bar(Words("Andante")), Bar(Words("Pi\u00F9 mosso"))}));
}

TEST_F(ImportWithoutTempo, ASetTempo_ReplacesANumberOfTheScore) {
    Set("", 100);
    EXPECT_EQ("100@0 60@1920", TemposOf({Bar("<sound tempo='90'/>"), Bar("<sound tempo='60'/>")}));
}

TEST_F(ImportWithoutTempo, AsWritten_TheSameTemposAreTaken) {
    request_.asWritten = true;
    EXPECT_EQ("~72@0 ~132@1920", TemposOf({Bar(Words("Andante")), Bar(Words("Allegro"), "<sound dacapo='yes'/>")}));
}

TEST_F(ImportWithoutTempo, SongsAndBarsThatAreNotThere_AreRefused) {
    Write("3.musicxml", Score({Bar(), Bar()}));
    request_.tempos = {{"4", {{"", 80}}}};
    EXPECT_EQ("there is no song 4 to set a tempo of", Refuse({"3.musicxml"}));
    request_.tempos = {{"3", {{"99", 80}}}};
    EXPECT_EQ("song 3 has no bar \"99\" to set a tempo at", Refuse({"3.musicxml"}));
}

/// Two bars of 4/4 with the note of the score; no tempo if it is 0.
std::string Midi(std::uint32_t microsecondsPerQuarter) {
    tavo_midi::Smf smf;
    smf.ticksPerQuarter = 480;
    tavo_midi::SmfTrack track;
    track.meters = {{0, 4, 4}};
    if (microsecondsPerQuarter > 0) track.tempos = {{0, microsecondsPerQuarter}};
    for (const std::uint32_t tick : {0U, 1920U}) {
        smf.events.push_back({tick, 0x90, 60, 64, 0});
        smf.events.push_back({tick + 1920, 0x80, 60, 0, 0});
    }
    std::stable_sort(smf.events.begin(), smf.events.end(),
                     [](const auto& a, const auto& b) { return a.tick < b.tick; });
    track.eventCount = smf.events.size();
    track.endTick = 3840;
    smf.tracks = {track};
    return tavo_midi::WriteSmf(smf);
}

TEST_F(ImportWithoutTempo, AMidiFileBesideTheScore_KeepsItsTempo) {
    Write("3.mid", Midi(600000));
    Write("3.musicxml", Score({Bar(Words("Andante")), Bar()}));
    const ImportResult result = Import({"3.mid", "3.musicxml"});
    EXPECT_EQ("100@0", Print(result.songs.front()));
    EXPECT_THAT(result.guessedTempos, IsEmpty());
    Set("2", 60);
    EXPECT_EQ("100@0 60@1920", Print(Import({"3.mid", "3.musicxml"}).songs.front()));
}

TEST_F(ImportWithoutTempo, AMidiFileWithoutATempo_HasItsFormatsDefaultAndSaysSo) {
    Write("3.mid", Midi(0));
    const ImportResult result = Import({"3.mid"});
    EXPECT_EQ("120@0", Print(result.songs.front()));
    EXPECT_THAT(result.guessedTempos,
                ElementsAre("song 3: the MIDI file gives no tempo; 120 quarters a minute are taken, its format's own "
                            "default: set it with --tempo 3=BPM"));
    Set("", 96);
    const ImportResult set = Import({"3.mid"});
    EXPECT_EQ("96@0", Print(set.songs.front()));
    EXPECT_THAT(set.guessedTempos, IsEmpty());
}

TEST_F(ImportWithoutTempo, EverySentenceIsPrintedAndTheTableMarksWhatIsGuessed) {
    for (int song = 1; song <= 23; ++song)
        Write(std::to_string(song) + ".musicxml", Score({Bar(Words("Andante")), Bar(Words("Allegro"))}));
    const std::string show = directory_ / "show";
    const test_support::ProgramResult import =
        RunStage({"import", directory_ / "", "-o", show, "--tempo", "2=80", "--tempo", "2:2=96"});
    EXPECT_EQ(22, std::count(import.err.begin(), import.err.end(), '\n')) << import.err;
    const test_support::ProgramResult info = RunStage({"info", show});
    for (const std::string& table : {import.out, info.out}) {
        EXPECT_THAT(table, HasSubstr("\n1   1            2      8  ~72 +~1  4/4"));
        EXPECT_THAT(table, HasSubstr("\n2   2            2      8    80 +1  4/4"));
    }
    EXPECT_THAT(RunStage({"info", show, "--song", "1"}).out, HasSubstr("~"));
    EXPECT_THAT(RunStage({"info", show, "--song", "2"}).out, Not(HasSubstr("~")));
    const auto json = nlohmann::json::parse(RunStage({"info", show, "--json"}).out);
    EXPECT_EQ(true, json["songs"][0]["tempos"][0]["guessed"]);
    EXPECT_FALSE(json["songs"][1]["tempos"][0].contains("guessed"));
}

}  // namespace
