#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "tests/stage/small_show.h"

namespace {

using nlohmann::ordered_json;
using test_support::ProgramResult;
using test_support::ReadAll;
using test_support::RunStage;
using test_support::WriteAll;
using testing::HasSubstr;

std::vector<std::string> KeysOf(const ordered_json& object) {
    std::vector<std::string> keys;
    for (const auto& item : object.items())
        keys.push_back(item.key());
    return keys;
}

class StageInfo : public test_support::SmallShow {};

TEST_F(StageInfo, Json_HasTheDocumentedKeysInTheirOrder) {
    const ordered_json show = ordered_json::parse(RunStage({"info", Show(), "--json"}).out);
    using Keys = std::vector<std::string>;
    EXPECT_EQ((Keys{"title", "songs", "version", "versions", "tempoScaleWarnings", "modifiedClicks"}), KeysOf(show));
    ASSERT_EQ(2U, show["songs"].size());
    const ordered_json& song = show["songs"][0];
    EXPECT_EQ((Keys{"number", "title", "ticksPerQuarter", "startTick", "endTick", "seconds", "bars", "beats", "tempos",
                    "meters", "keys", "pages", "markers", "attacca", "edits", "clickedBeats"}),
              KeysOf(song));
    EXPECT_EQ("Evening", show["title"]);
    EXPECT_EQ((ordered_json{{"label", "2"}, {"tick", 1920}}), song["bars"][1]);
    EXPECT_EQ(80U, song["beats"].size());
    EXPECT_EQ(480, song["beats"][1]);
    EXPECT_EQ((ordered_json{{"tick", 0}, {"bpm", 120.0}}), song["tempos"][0]);
    EXPECT_EQ((ordered_json{{"tick", 0}, {"numerator", 4}, {"denominator", 4}}), song["meters"][0]);
    EXPECT_EQ((ordered_json{{"tick", 7680}, {"text", "Verse"}}), song["markers"][0]);
    EXPECT_EQ(ordered_json::array(), song["pages"]);
    EXPECT_EQ(0, song["startTick"]);
    EXPECT_EQ(38400, song["endTick"]);
    EXPECT_NEAR(40.0, song["seconds"].get<double>(), 0.1);
}

TEST_F(StageInfo, Markers_AreThoseOfTheNewestVersion) {
    ASSERT_EQ(0, Edit("remove --song 1 1").exitCode);
    ASSERT_EQ(0, Edit("add marker --song 1 --at 7 --text Chorus").exitCode);
    const ordered_json show = ordered_json::parse(RunStage({"info", Show(), "--song", "1", "--json"}).out);
    EXPECT_EQ(1U, show["songs"].size());
    EXPECT_EQ((ordered_json{{{"tick", 11520}, {"text", "Chorus"}}}), show["songs"][0]["markers"]);
}

TEST_F(StageInfo, Text_IsATableOfTheSongs) {
    EXPECT_EQ(
        "Evening, version 1.0\n\n"
        "no  title    bars  beats  tempos  meters  keys  length\n"
        "1   First      20     80     120  4/4             0:40\n"
        "2   Second      8     32     120  4/4             0:16\n"
        "    2 songs    28    112                          0:56\n"
        "\n"
        "version  edits  file\n"
        "1.0          1  show-1.0.logdata  in use\n",
        RunStage({"info", Show()}).out);
}

TEST_F(StageInfo, OneSong_ShowsItsEditsInBars) {
    ASSERT_EQ(0, Edit("add vamp --song 1 --from 12 --to 15").exitCode);
    const ProgramResult info = RunStage({"info", Show(), "--song", "1"});
    EXPECT_THAT(info.out, HasSubstr("  vamp    bars 12 to 15\n"));
    EXPECT_THAT(info.out, HasSubstr("  marker  5              \"Verse\"\n"));
}

TEST_F(StageInfo, Sheet_IsTheTableAndThenEverySong) {
    ASSERT_EQ(0, Edit("add vamp --song 2 --from 3 --to 4").exitCode);
    const std::string sheet = RunStage({"info", Show(), "--sheet"}).out;
    const std::size_t first = sheet.find("\n1  First (0:40)\n");
    const std::size_t second = sheet.find("\n2  Second (0:16)\n");
    ASSERT_NE(std::string::npos, first) << sheet;
    ASSERT_NE(std::string::npos, second) << sheet;
    EXPECT_LT(sheet.find("2 songs"), first);
    EXPECT_LT(first, sheet.find("\"Verse\""));
    EXPECT_LT(sheet.find("\"Verse\""), second);
    EXPECT_LT(second, sheet.find("  vamp  bars 3 to 4"));
}

TEST_F(StageInfo, EditsAndVersions_AreInTheJson) {
    ASSERT_EQ(0, Edit("add vamp --song 1 --from 12 --to 15 --max 3").exitCode);
    ASSERT_EQ(0, Edit("attacca --song 1 attacca").exitCode);
    const ordered_json show = ordered_json::parse(RunStage({"info", Show(), "--json"}).out);
    EXPECT_EQ((ordered_json{{"kind", "vamp"},
                            {"start", 21120},
                            {"end", 28800},
                            {"place", "bars 12 to 15"},
                            {"value", "at most 3 times"}}),
              show["songs"][0]["edits"][1]);
    EXPECT_EQ("attacca", show["songs"][0]["attacca"].get<std::string>());
    EXPECT_EQ("1.2", show["version"].get<std::string>());
    EXPECT_EQ(
        (ordered_json{
            {"version", "1.1"}, {"file", "show-1.1.logdata"}, {"edits", 2}, {"inUse", false}, {"unsavedChanges", 0}}),
        show["versions"][1]);
    EXPECT_EQ(ordered_json::array(), show["tempoScaleWarnings"]);
    EXPECT_EQ(ordered_json::array(), show["modifiedClicks"]);
}

TEST_F(StageInfo, Clicks_MakeBeatsOfTheirOwn) {
    ASSERT_EQ(0, Edit("add click --song 2 --from 2 --to 3 --every 1/8").exitCode);
    const ordered_json song = ordered_json::parse(RunStage({"info", Show(), "--song", "2", "--json"}).out)["songs"][0];
    EXPECT_EQ(32U, song["beats"].size());
    ASSERT_EQ(40U, song["clickedBeats"].size());
    EXPECT_EQ((ordered_json{{"tick", 2160}, {"bar", "2"}, {"beat", 2}}), song["clickedBeats"][5]);
    EXPECT_THAT(RunStage({"info", Show(), "--song", "2"}).out,
                HasSubstr("  40 beats with its clicks, 32 as written\n"));
}

TEST_F(StageInfo, EditsThatArePlayedOtherwise_AreTold) {
    const std::string path = Show() + "/show-1.0.logdata";
    std::string text = ReadAll(path);
    const std::size_t at = text.find("\"edits\":[]");
    ASSERT_NE(std::string::npos, at) << text;
    WriteAll(path, text.replace(at, 10,
                                "\"edits\":[{\"kind\":\"Tempo Scale\",\"start\":0,\"end\":1920,\"scale\":2.5},"
                                "{\"kind\":\"Click\",\"start\":0,\"end\":1920,\"thirtySecondsPerClick\":3}]"));
    const ProgramResult info = RunStage({"info", Show()});
    EXPECT_THAT(info.out, HasSubstr("song 2: tempo scale bar 1, 250% is out of range and plays at 200%\n"));
    EXPECT_THAT(info.out, HasSubstr("song 2: click bar 1, every 3/32: "));
    const ordered_json show = ordered_json::parse(RunStage({"info", Show(), "--json"}).out);
    EXPECT_EQ((ordered_json{{"song", "2"}, {"start", 0}, {"end", 1920}, {"percent", 250.0}, {"playedPercent", 200.0}}),
              show["tempoScaleWarnings"][0]);
    EXPECT_EQ("2", show["modifiedClicks"][0]["song"].get<std::string>());
    EXPECT_EQ(3, show["modifiedClicks"][0]["value"].get<int>());
    EXPECT_NE("", show["modifiedClicks"][0]["reason"].get<std::string>());
}

TEST_F(StageInfo, DirectoriesWithoutAShow_AreRefusedAsThePlayerDoes) {
    const auto refusal = [&](const std::string& path) { return RunStage({"info", path}).err; };
    std::filesystem::create_directory(directory_ / "empty");
    EXPECT_EQ("stage: Cannot locate showdata file\n", refusal(directory_ / "empty"));
    std::filesystem::copy_file(Show() + "/show.showdata", directory_ / "empty/a.showdata");
    EXPECT_EQ("stage: Cannot locate change log file.\n", refusal(directory_ / "empty"));
    EXPECT_THAT(refusal(directory_ / "none"),
                HasSubstr("the directory \"" + directory_ / "none" + "\" cannot be read"));
}

class StageCheck : public test_support::SmallShow {
protected:
    [[nodiscard]] std::string Path(const std::string& name) const { return Show() + "/" + name; }
    /// The newest log, `from` replaced by `to`.
    void SpoilLog(const std::string& from, const std::string& to) const {
        std::string text = ReadAll(Path("show-1.0.logdata"));
        const std::size_t at = text.find(from);
        ASSERT_NE(std::string::npos, at) << text;
        WriteAll(Path("show-1.0.logdata"), text.replace(at, from.size(), to));
    }
    void ExpectProblems(const std::vector<std::string>& expected) const {
        const ProgramResult check = RunStage({"check", Show()});
        EXPECT_EQ(1, check.exitCode);
        std::string lines;
        for (const std::string& line : expected)
            lines += line + "\n";
        EXPECT_EQ(lines, check.out);
        EXPECT_EQ(1, std::count(check.err.begin(), check.err.end(), '\n'));
    }
};

TEST_F(StageCheck, ASoundShow_HasNoProblem) {
    const ProgramResult check = RunStage({"check", Show()});
    EXPECT_EQ(0, check.exitCode);
    EXPECT_EQ("nothing is wrong\n", check.out);
    EXPECT_EQ("", check.err);
}

TEST_F(StageCheck, EveryProblem_IsNamedWithFileAndPlace) {
    SpoilLog("\"edits\":[]",
             "\"edits\":[{\"kind\":\"Cut\",\"start\":0,\"end\":1920},{\"kind\":\"Cut\",\"start\":960,\"end\":2880},"
             "{\"kind\":\"Sfx\",\"start\":480,\"end\":480,\"sound\":\"no.wav\",\"gainDb\":0},"
             "{\"kind\":\"OSC\",\"tick\":0,\"target\":\"lights\",\"address\":\"/go\",\"arguments\":[]},"
             "{\"kind\":\"Tempo Scale\",\"start\":0,\"end\":1920,\"scale\":2.5}]");
    WriteAll(Path("copy.showdata"), ReadAll(Path("show.showdata")));
    WriteAll(Path("show-draft.logdata"), "");
    ExpectProblems({
        "the name of the change log \"show-draft.logdata\" ends in no version: \"draft\" is not a version: expected "
        "two "
        "numbers from 0 to 65535 with a point between",
        "copy.showdata: is passed over, because show.showdata comes later",
        "show-1.0.logdata: song 2: the cut over 1:3 up to 2:3 overlaps the cut over bar 1",
        "show-1.0.logdata: song 2: a tempo scale of 250% is not from 50% to 200%",
        "show-1.0.logdata: song 2: the sound \"no.wav\" at 1:2 is not there",
        "show-1.0.logdata: song 2: the OSC target \"lights\" of the message at 1 is not in settings.json",
    });
}

TEST_F(StageCheck, SongsOfOneFileOnly_AreNamed) {
    SpoilLog("\"number\":\"2\"", "\"number\":\"3\"");
    ExpectProblems(
        {"show-1.0.logdata: song 2 of the show data is missing", "show-1.0.logdata: song 3 is not in the show data"});
}

TEST_F(StageCheck, AVersionInsideThatIsAnother_IsNamed) {
    std::filesystem::rename(Path("show-1.0.logdata"), Path("show-3.7.logdata"));
    ExpectProblems({"show-3.7.logdata: the version inside is 1.0, not 3.7"});
}

// A slip that was mended last week must not fail the check for ever.
TEST_F(StageCheck, OlderVersions_AreListedApartAndDoNotFailIt) {
    ASSERT_EQ(0, Edit("attacca --song 1 attacca").exitCode);
    WriteAll(Path("show-1.0.logdata"), "{");
    const ProgramResult check = RunStage({"check", Show()});
    EXPECT_EQ(0, check.exitCode);
    EXPECT_EQ("nothing is wrong\n\nIn versions that are not in use:\n  " + Path("show-1.0.logdata") +
                  ", line 1: the text is not valid JSON\n",
              check.out);
    const ordered_json problems = ordered_json::parse(RunStage({"check", Show(), "--json"}).out);
    EXPECT_EQ(ordered_json::array(), problems["problems"]);
    EXPECT_EQ(1U, problems["otherVersions"].size());
}

TEST_F(StageCheck, VersionThatIsChosen_IsTheOneJudged) {
    ASSERT_EQ(0, Edit("add vamp --song 2 --from 3 --to 4 --max 1").exitCode);
    EXPECT_EQ(1, RunStage({"check", Show()}).exitCode);
    ASSERT_EQ(0, RunStage({"log", Show(), "use", "1.0"}).exitCode);
    const ProgramResult check = RunStage({"check", Show()});
    EXPECT_EQ(0, check.exitCode);
    EXPECT_THAT(check.out, HasSubstr("  show-1.1.logdata: song 2: the vamp over bars 3 to 4"));
}

TEST_F(StageCheck, SettingsThatCannotBeRead_AreNamed) {
    WriteAll(Path("settings.json"), "{\n\"pressGuardMs\": -1}");
    ExpectProblems({"settings.json: pressGuardMs must be a whole number from 0 to 10000, not -1"});
}

TEST_F(StageCheck, ASoundFontThatIsNotThere_IsNamed) {
    WriteAll(Path("settings.json"), "{\"soundfont\": \"piano.sf2\"}");
    ExpectProblems({"settings.json: the SoundFont \"piano.sf2\" is not there"});
}

}  // namespace
