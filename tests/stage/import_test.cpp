#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <set>

#include "tavo_core/change_log.h"
#include "tests/stage/small_show.h"
#include "tests/support/sanitizers.h"
#include "tests/support/show_table.h"

namespace {

using nlohmann::json;
using test_support::MakeSmf;
using test_support::ProgramResult;
using test_support::RunStage;
using test_support::ShowTableRow;
using test_support::WriteAll;
using testing::HasSubstr;

constexpr long MostMegabytes = 64;

std::string KindsOfMeters(const json& song) {
    std::string kinds;
    std::set<std::string> seen;
    for (const json& meter : song["meters"]) {
        const std::string kind = meter["numerator"].dump() + "/" + meter["denominator"].dump();
        if (seen.insert(kind).second) kinds += (kinds.empty() ? "" : " ") + kind;
    }
    return kinds;
}

/// The names of a row's keys, "+3 +0m": made from the table alone, so that they do not share code with the program.
std::string NamesOfKeys(const std::string& kinds) {
    static const std::vector<std::string> fifths{"Fb", "Cb", "Gb", "Db", "Ab", "Eb", "Bb", "F",  "C",  "G", "D",
                                                 "A",  "E",  "B",  "F#", "C#", "G#", "D#", "A#", "E#", "B#"};
    std::istringstream stream(kinds);
    std::string names;
    for (std::string kind; stream >> kind;) {
        const bool isMinor = kind.back() == 'm';
        const int sharps = std::stoi(kind);
        const std::size_t index = static_cast<std::size_t>(8 + sharps + (isMinor ? 3 : 0));
        names += (names.empty() ? "" : ", ") + fifths.at(index) + (isMinor ? " minor" : " major");
    }
    return names;
}

std::string KindsOfKeys(const json& song) {
    std::string kinds;
    std::set<std::string> seen;
    for (const json& key : song["keys"]) {
        if (seen.insert(key["name"]).second) kinds += (kinds.empty() ? "" : ", ") + key["name"].get<std::string>();
    }
    return kinds;
}

/// Beats of the first meter that the table's pick-up lasts.
std::string PickupWord(const ShowTableRow& row) {
    const double denominator = std::stod(row.meters.substr(row.meters.find('/') + 1));
    std::ostringstream word;
    word << row.number << '=' << row.pickupWholes * denominator;
    return word.str();
}

class ImportOfRealWork : public testing::TestWithParam<std::string> {};

TEST_P(ImportOfRealWork, EverySongAgreesWithTheTableBesideIt) {
    SKIP_WITHOUT_CORPUS();
    const std::vector<ShowTableRow> rows = test_support::ReadShowTable(GetParam());
    const test_support::TemporaryDirectory directory;
    std::vector<std::string> words{"import", test_support::CorpusPath() / GetParam(), "-o", directory / "show"};
    for (const ShowTableRow& row : rows) {
        if (row.pickupWholes > 0) words.insert(words.end(), {"--pickup", PickupWord(row)});
    }
    const ProgramResult import = RunStage(words);
    ASSERT_EQ(0, import.exitCode) << import.err;
    const ProgramResult info = RunStage({"info", directory / "show", "--json"});
    ASSERT_EQ(0, info.exitCode) << info.err;
    const json show = json::parse(info.out);
    ASSERT_EQ(rows.size(), show["songs"].size());
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const ShowTableRow& row = rows[i];
        const json& song = show["songs"][i];
        SCOPED_TRACE(row.number + " " + row.title);
        EXPECT_EQ(row.number, song["number"].get<std::string>());
        EXPECT_EQ(row.division, song["ticksPerQuarter"]);
        EXPECT_EQ(row.barsPlayed, song["bars"].size());
        EXPECT_EQ(row.pickupWholes > 0, song["bars"][0]["label"] == "0" && song["meters"][0]["tick"] == 0 &&
                                            GetParam() == "show_harrer_abel");
        EXPECT_EQ(row.tempoEvents, song["tempos"].size());
        EXPECT_EQ(row.meterEvents, song["meters"].size());
        EXPECT_EQ(row.meters, KindsOfMeters(song));
        EXPECT_EQ(row.keyEvents, song["keys"].size());
        EXPECT_EQ(NamesOfKeys(row.keys), KindsOfKeys(song));
        EXPECT_NEAR(row.seconds, song["seconds"].get<double>(), 0.06);
    }
    EXPECT_EQ("nothing is wrong\n", RunStage({"check", directory / "show"}).out);
}

INSTANTIATE_TEST_SUITE_P(Works, ImportOfRealWork, testing::ValuesIn(test_support::Works()),
                         [](const auto& work) { return work.param; });

TEST(StageImportOfOddFiles, EveryStressFile_IsReadOrRefusedInOneSentence) {
    SKIP_WITHOUT_CORPUS();
    std::size_t read = 0;
    std::size_t refused = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(test_support::CorpusPath() / "smf_stress")) {
        if (!entry.is_regular_file() || entry.path().extension() != ".mid") continue;
        SCOPED_TRACE(entry.path().filename().string());
        const test_support::TemporaryDirectory directory;
        const ProgramResult import = RunStage({"import", entry.path(), "-o", directory / "show"});
        EXPECT_LE(!test_support::IsSanitized ? import.peakMegabytes : 0, MostMegabytes);
        if (import.exitCode == 0) {
            ++read;
            const ProgramResult check = RunStage({"check", directory / "show"});
            EXPECT_EQ("nothing is wrong\n", check.out);
        } else {
            ++refused;
            EXPECT_EQ(1, import.exitCode);
            EXPECT_TRUE(import.err.starts_with("stage: ")) << import.err;
            EXPECT_EQ(1, std::count(import.err.begin(), import.err.end(), '\n')) << import.err;
            EXPECT_THAT(import.err, HasSubstr(entry.path().filename().string()));
            EXPECT_TRUE(std::filesystem::is_empty(directory.Path()));
        }
    }
    EXPECT_GE(read, 50U);
    EXPECT_GE(refused, 2U);
}

class StageImport : public testing::Test {
protected:
    void Write(const std::string& name, const std::string& bytes) const { WriteAll(directory_ / name, bytes); }
    [[nodiscard]] std::string Show() const { return directory_ / "show"; }
    /// "1 First, 2 Second": the songs of the show.
    [[nodiscard]] std::string SongsOfShow() const {
        const json show = json::parse(RunStage({"info", Show(), "--json"}).out);
        std::string songs;
        for (const json& song : show["songs"])
            songs += (songs.empty() ? "" : ", ") + song["number"].get<std::string>() + " " +
                     song["title"].get<std::string>();
        return songs;
    }
    void ExpectRefusal(const std::vector<std::string>& words, const std::string& sentence) const {
        const ProgramResult import = RunStage(words);
        EXPECT_EQ(1, import.exitCode);
        EXPECT_EQ("stage: " + sentence + "\n", import.err);
        EXPECT_EQ("", import.out);
        EXPECT_FALSE(std::filesystem::exists(Show()));
    }

    test_support::TemporaryDirectory directory_;
};

TEST_F(StageImport, NumbersComeFromFileNames_FilesWithoutFollowTheOthers) {
    Write("12a_Reprise.mid", MakeSmf("Twelve", 1));
    Write("02_Arrival.MID", MakeSmf("Two", 1));
    Write("Encore.midi", MakeSmf("Encore", 1));
    Write("10.mid", MakeSmf("Ten", 1));
    Write("notes.txt", "not music");
    ASSERT_EQ(0, RunStage({"import", directory_.Path(), "-o", Show()}).exitCode);
    EXPECT_EQ("2 Two, 10 Ten, 12a Twelve, 13 Encore", SongsOfShow());
}

TEST_F(StageImport, ANamelessConductor_LeavesTheTitleToTheFileName) {
    tavo_midi::Smf smf = stage::ParseTextSong("number 1\ntitle x\npart P\n| c4/1 |\n", "x").smf;
    smf.tracks[0].name = "control track";
    Write("03_The_Long_Way.mid", tavo_midi::WriteSmf(smf));
    ASSERT_EQ(0, RunStage({"import", directory_ / "03_The_Long_Way.mid", "-o", Show()}).exitCode);
    EXPECT_EQ("3 The Long Way", SongsOfShow());
}

TEST_F(StageImport, AFileOfFormatTwo_GivesASongForEachSequence) {
    tavo_midi::Smf smf =
        stage::ParseTextSong("number 1\ntitle x\npart Left\n| c4/1 |\npart Right\n| d4/1 |\n", "x").smf;
    smf.format = 2;
    smf.tracks.erase(smf.tracks.begin());
    Write("07_Pair.mid", tavo_midi::WriteSmf(smf));
    ASSERT_EQ(0, RunStage({"import", directory_ / "07_Pair.mid", "-o", Show()}).exitCode);
    EXPECT_EQ("7a Left, 7b Right", SongsOfShow());
}

TEST_F(StageImport, MarkersOfTheScore_AreEditsOfTheFirstVersion) {
    Write("1.mid", MakeSmf("One", 4, "at 3 marker Bridge\n"));
    ASSERT_EQ(0, RunStage({"import", directory_ / "1.mid", "-o", Show()}).exitCode);
    const CL::ChangeLog log = CL::ChangeLog::Load(Show() + "/show-1.0.logdata");
    ASSERT_EQ(1U, log.GetSongLog("1").GetMarkers().size());
    EXPECT_EQ(2U * 1920, log.GetSongLog("1").GetMarkers()[0].abs_time());
    EXPECT_EQ("Bridge", log.GetSongLog("1").GetMarkers()[0].value());
}

TEST_F(StageImport, SettingsThatAreThere_AreKept) {
    Write("1.mid", MakeSmf("One", 4));
    std::filesystem::create_directory(Show());
    WriteAll(Show() + "/settings.json", "{\"pressGuardMs\": 99}");
    ASSERT_EQ(0, RunStage({"import", directory_ / "1.mid", "-o", Show()}).exitCode);
    EXPECT_EQ("{\"pressGuardMs\": 99}", test_support::ReadAll(Show() + "/settings.json"));
}

TEST_F(StageImport, AShowThatIsThere_IsNotTouched) {
    Write("1.mid", MakeSmf("One", 4));
    ASSERT_EQ(0, RunStage({"import", directory_ / "1.mid", "-o", Show()}).exitCode);
    const std::string before = test_support::ReadAll(Show() + "/show.showdata");
    const ProgramResult again = RunStage({"import", directory_ / "1.mid", "-o", Show(), "--title", "Other"});
    EXPECT_EQ(1, again.exitCode);
    EXPECT_EQ("stage: the directory \"" + Show() + "\" holds a show already and is not overwritten\n", again.err);
    EXPECT_EQ(before, test_support::ReadAll(Show() + "/show.showdata"));
}

TEST_F(StageImport, Refusals_AreOneSentenceAndLeaveNothing) {
    Write("1.mid", MakeSmf("One", 4));
    Write("01_again.mid", MakeSmf("One", 4));
    Write("2_bad.mid", "this is no music");
    const std::string one = directory_ / "1.mid";
    const std::string again = directory_ / "01_again.mid";
    const std::string bad = directory_ / "2_bad.mid";
    std::filesystem::create_directory(directory_ / "empty");
    ExpectRefusal({"import", one, again, "-o", Show()},
                  "the song number 1 of \"" + again + "\" is another file's already");
    ExpectRefusal({"import", one, bad, "-o", Show()},
                  "\"" + bad + "\" is not a Standard MIDI File: it does not begin with MThd");
    ExpectRefusal({"import", directory_ / "empty", "-o", Show()},
                  "the folder \"" + directory_ / "empty" + "\" holds no .mid, .midi, .musicxml, .xml or .mxl file");
    ExpectRefusal({"import", directory_ / "none.mid", "-o", Show()},
                  "the file \"" + directory_ / "none.mid" + "\" does not exist");
    ExpectRefusal({"import", directory_ / "song.pdf", "-o", Show()},
                  "the file \"" + directory_ / "song.pdf" +
                      "\" is not a score: its name ends in none of .mid, .midi, .musicxml, .xml and .mxl");
    ExpectRefusal({"import", one, "-o", Show(), "--pickup", "5=1"}, "there is no song 5 to give a pick-up to");
    std::size_t left = 0;
    for (const auto& entry : std::filesystem::directory_iterator(directory_.Path()))
        left += entry.exists() ? 1 : 0;
    EXPECT_EQ(4U, left);
}

TEST_F(StageImport, APickup_BeginsWithBarZero) {
    Write("1.mid", MakeSmf("One", 4));
    ASSERT_EQ(0, RunStage({"import", directory_ / "1.mid", "-o", Show(), "--pickup", "1=1"}).exitCode);
    const json show = json::parse(RunStage({"info", Show(), "--json"}).out);
    EXPECT_EQ((json{{"label", "0"}, {"tick", 0}}), show["songs"][0]["bars"][0]);
    EXPECT_EQ((json{{"label", "1"}, {"tick", 480}}), show["songs"][0]["bars"][1]);
}

TEST_F(StageImport, ATempoThatIsNotOne_IsWrongUsage) {
    Write("1.mid", MakeSmf("One", 4));
    const auto import = [this](std::vector<std::string> tempos) {
        std::vector<std::string> words{"import", directory_ / "1.mid", "-o", Show()};
        for (std::string& tempo : tempos)
            words.insert(words.end(), {"--tempo", std::move(tempo)});
        const ProgramResult result = RunStage(words);
        EXPECT_EQ(2, result.exitCode) << result.err;
        return result.err.substr(0, result.err.find(';'));
    };
    for (const std::string tempo : {"1", "72", "=72", ":2=72", "1:=72"})
        EXPECT_EQ("stage: --tempo is written like 3=72 or 3:12=96, not \"" + tempo + "\"", import({tempo}));
    for (const std::string value : {"", "x", "-1", "nan", "inf", "9.9", "500.1", "72x"})
        EXPECT_EQ(
            "stage: the tempo of --tempo is a number of quarter notes a minute from 10 to 500, not \"" + value + "\"",
            import({"1=" + value}));
    EXPECT_EQ("stage: --tempo gives 1:2 twice", import({"1:2=60", "1:2=61"}));
    ExpectRefusal({"import", directory_ / "1.mid", "-o", Show(), "--tempo", "5=72"},
                  "there is no song 5 to set a tempo of");
    ExpectRefusal({"import", directory_ / "1.mid", "-o", Show(), "--tempo", "1:99=72"},
                  "song 1 has no bar \"99\" to set a tempo at");
}

TEST_F(StageImport, TemposThatAreSet_HoldFromTheirBars) {
    Write("1.mid", MakeSmf("One", 4));
    ASSERT_EQ(
        0, RunStage({"import", directory_ / "1.mid", "-o", Show(), "--tempo", "1=60", "--tempo", "1:3=90.5"}).exitCode);
    const json show = json::parse(RunStage({"info", Show(), "--json"}).out);
    EXPECT_EQ((json{{{"tick", 0}, {"bpm", 60.0}}}), json::array({show["songs"][0]["tempos"][0]}));
    EXPECT_EQ(3840, show["songs"][0]["tempos"][1]["tick"]);
    EXPECT_NEAR(90.5, show["songs"][0]["tempos"][1]["bpm"].get<double>(), 0.001);
}

TEST_F(StageImport, APickupThatIsNoNumber_IsWrongUsage) {
    Write("1.mid", MakeSmf("One", 4));
    for (const std::string pickup : {"1", "=1", "1=", "1=x", "1=-1", "1=nan"}) {
        const ProgramResult import = RunStage({"import", directory_ / "1.mid", "-o", Show(), "--pickup", pickup});
        EXPECT_EQ(2, import.exitCode) << pickup << import.err;
    }
}

}  // namespace
