#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "stage/show/settings.h"
#include "tavo_core/change_log.h"
#include "tavo_core/edit_journal.h"
#include "tests/stage/small_show.h"

namespace {

using nlohmann::json;
using test_support::ProgramResult;
using test_support::ReadAll;
using test_support::RunStage;
using test_support::WriteAll;
using testing::HasSubstr;

/// The small show with version 1.1, a vamp in song 1, and 1.2, a marker in song 2 besides.
class StageLog : public test_support::SmallShow {
protected:
    StageLog() {
        EXPECT_EQ(0, Edit("add vamp --song 1 --from 12 --to 15").exitCode);
        EXPECT_EQ(0, Edit("add marker --song 2 --at 3 --text Dance").exitCode);
    }
    [[nodiscard]] ProgramResult Log(std::vector<std::string> words) const {
        words.insert(words.begin(), {"log", Show()});
        return RunStage(words);
    }
    [[nodiscard]] std::string Path(const std::string& name) const { return Show() + "/" + name; }
    /// As a session leaves it that set song 1 to attacca and was killed.
    void LeaveUnsavedAttacca(const std::string& name) const {
        CL::ChangeLog after = CL::ChangeLog::Load(Path(name));
        const CL::ChangeLog before = after;
        after.GetSongLog("1").SetAttacca(CL::AttaccaNext);
        CL::EditJournal(Path(name)).Append(CL::Compare(before, after), after);
    }
    [[nodiscard]] std::string VersionInUse() const {
        return json::parse(RunStage({"info", Show(), "--json"}).out)["version"].get<std::string>();
    }
};

TEST_F(StageLog, List_TellsTheVersionsAndWhichIsInUse) {
    const json list = json::parse(Log({"list", "--json"}).out);
    ASSERT_EQ(3U, list.size());
    EXPECT_EQ("1.0", list[0]["version"].get<std::string>());
    EXPECT_EQ("show-1.2.logdata", list[2]["file"].get<std::string>());
    EXPECT_EQ(3, list[2]["edits"].get<int>());
    EXPECT_TRUE(list[2]["inUse"].get<bool>());
    EXPECT_FALSE(list[1]["inUse"].get<bool>());
    EXPECT_EQ(20U, list[0]["written"].get<std::string>().size());
    EXPECT_THAT(Log({"list"}).out, testing::ContainsRegex("show-1.2.logdata +in use\n"));
}

TEST_F(StageLog, List_TellsWhoSavedAVersionAndWhatWasSaidAboutIt) {
    ASSERT_EQ(0, RunStage({"edit", Show(), "--comment", "after the dress rehearsal", "add", "vamp", "--song", "1",
                           "--from", "2", "--to", "3"})
                     .exitCode);
    // A line that was broken off, and one that is not ours, cost nothing but themselves.
    WriteAll(Show() + "/versions.notes", ReadAll(Show() + "/versions.notes") + "[1]\n{\"version\":\"9.9\",\"by");
    ASSERT_EQ(0, RunStage({"log", Show(), "rollback", "1.0"}).exitCode);
    const json list = json::parse(RunStage({"log", Show(), "list", "--json"}).out);
    ASSERT_EQ(5U, list.size());
    EXPECT_EQ("imported", list[0]["comment"]);
    EXPECT_EQ("", list[1]["comment"]);
    EXPECT_EQ("after the dress rehearsal", list[3]["comment"]);
    EXPECT_EQ("as version 1.0", list[4]["comment"]);
    for (const json& version : list)
        EXPECT_THAT(version["by"].get<std::string>(), testing::ContainsRegex("^.+@.+$"));
    EXPECT_THAT(RunStage({"log", Show(), "list"}).out, HasSubstr("after the"));
}

TEST_F(StageLog, NotesThatCannotBeWritten_CostNoVersion) {
    std::filesystem::remove(Show() + "/versions.notes");
    std::filesystem::create_directory(Show() + "/versions.notes");
    const ProgramResult edit = Edit("add vamp --song 1 --from 2 --to 3");
    EXPECT_EQ(0, edit.exitCode) << edit.err;
    const json list = json::parse(RunStage({"log", Show(), "list", "--json"}).out);
    EXPECT_EQ("", list[3]["by"]);
    EXPECT_EQ(true, list[3]["inUse"]);
}

TEST_F(StageLog, List_TellsOfUnsavedChangesAndUnreadableVersions) {
    LeaveUnsavedAttacca("show-1.2.logdata");
    WriteAll(Path("show-1.1.logdata"), "{");
    const ProgramResult list = Log({"list"});
    EXPECT_EQ(0, list.exitCode);
    EXPECT_THAT(list.out, HasSubstr("in use, 1 unsaved change in its journal\n"));
    EXPECT_THAT(list.out, HasSubstr("line 1: the text is not valid JSON\n"));
}

TEST_F(StageLog, Recover_SavesWhatASessionLeft_AndEndsItsJournal) {
    LeaveUnsavedAttacca("show-1.2.logdata");
    EXPECT_THAT(Edit("list").err, HasSubstr("note: a session that ended early left 1 unsaved change to version 1.2; "
                                            "`stage log SHOW recover 1.2` saves it\n"));
    const ProgramResult recovered = Log({"recover"});
    EXPECT_EQ(0, recovered.exitCode) << recovered.err;
    EXPECT_THAT(recovered.out, HasSubstr("song 1: "));
    EXPECT_THAT(recovered.out, HasSubstr("saved version 1.3 as "));
    EXPECT_EQ(CL::AttaccaNext, CL::ChangeLog::Load(Path("show-1.3.logdata")).GetSongLog("1").GetAttacca());
    EXPECT_FALSE(std::filesystem::exists(Path("show-1.2.logdata.journal")));
    EXPECT_EQ("", Edit("list").err);
    EXPECT_EQ("no version has unsaved edits\n", Log({"recover"}).out);
    EXPECT_EQ("version 1.3 has no unsaved edits\n", Log({"recover", "1.3"}).out);
}

TEST_F(StageLog, RecoverOfAnEarlierVersion_LaysItsEditsOnTheNewest) {
    LeaveUnsavedAttacca("show-1.1.logdata");
    EXPECT_THAT(Log({"recover", "1.1"}).out, HasSubstr("saved version 1.3 as "));
    const CL::ChangeLog saved = CL::ChangeLog::Load(Path("show-1.3.logdata"));
    EXPECT_EQ(1U, saved.GetSongLog("2").GetMarkers().size()) << "made since, and kept";
    EXPECT_EQ(CL::AttaccaNext, saved.GetSongLog("1").GetAttacca());
}

TEST_F(StageLog, ChangesToAnotherContent_AreToldAsSuch_ForgetShowsAndRemovesThem) {
    LeaveUnsavedAttacca("show-1.2.logdata");
    WriteAll(Path("show-1.2.logdata"), ReadAll(Path("show-1.1.logdata")));
    EXPECT_THAT(Log({"list"}).err, HasSubstr("holds changes to another content of show-1.2.logdata than there is now"));
    EXPECT_THAT(Log({"forget", "1.2"}).out,
                HasSubstr("song 1: normal changed to attacca\nthe journal of version 1.2 is removed\n"));
    EXPECT_FALSE(std::filesystem::exists(Path("show-1.2.logdata.journal")));
}

TEST_F(StageLog, AJournalThatIsInUse_IsLeftToItsSession) {
    CL::ChangeLog after = CL::ChangeLog::Load(Path("show-1.2.logdata"));
    const CL::ChangeLog before = after;
    after.GetSongLog("1").SetAttacca(CL::AttaccaNext);
    CL::EditJournal session(Path("show-1.2.logdata"));
    session.Append(CL::Compare(before, after), after);
    for (const std::string operation : {"recover", "forget"}) {
        const ProgramResult refused = Log({operation});
        EXPECT_EQ(1, refused.exitCode) << operation;
        EXPECT_THAT(refused.err, HasSubstr("journal")) << operation;
    }
    EXPECT_EQ(1U, CL::EditJournal::Read(Path("show-1.2.logdata")).changes.size());
}

TEST_F(StageLog, Show_TellsTheEditsOfAVersion) {
    EXPECT_EQ(
        "version 1.1\n"
        "song 1: First, normal\n"
        "  edit    place          value\n"
        "  marker  5              \"Verse\"\n"
        "  vamp    bars 12 to 15\n"
        "song 2: Second, normal\n",
        Log({"show", "1.1"}).out);
    const json shown = json::parse(Log({"show", "--json"}).out);
    EXPECT_EQ("1.2", shown["version"].get<std::string>());
    EXPECT_EQ(
        "Dance",
        json::parse(RunStage({"info", Show(), "--json"}).out)["songs"][1]["markers"][0]["text"].get<std::string>());
    EXPECT_EQ("marker", shown["songs"][1]["edits"][0]["kind"].get<std::string>());
}

TEST_F(StageLog, Diff_TellsWhatAVersionAddedAndRemoved) {
    EXPECT_EQ("song 1: vamp bars 12 to 15 added\nsong 2: marker 3, \"Dance\" added\n", Log({"diff", "1.0", "1.2"}).out);
    EXPECT_EQ("song 1: vamp bars 12 to 15 removed\n", Log({"diff", "1.1", "1.0"}).out);
    EXPECT_EQ("no difference\n", Log({"diff", "1.1", "1.1"}).out);
    const json diff = json::parse(Log({"diff", "1.1", "1.2", "--json"}).out);
    EXPECT_EQ("2", diff["changes"][0]["song"].get<std::string>());
}

TEST_F(StageLog, RollBack_SavesAnewVersionAndKeepsTheOthers) {
    const std::string before = ReadAll(Path("show-1.2.logdata"));
    const ProgramResult rollback = Log({"rollback", "1.1"});
    EXPECT_EQ("song 2: marker 3, \"Dance\" removed\nsaved version 1.3 as " + Path("show-1.3.logdata") + "\n",
              rollback.out);
    EXPECT_EQ(before, ReadAll(Path("show-1.2.logdata")));
    EXPECT_EQ("no difference\n", Log({"diff", "1.1", "1.3"}).out);
    EXPECT_EQ("1.3", VersionInUse());
    EXPECT_EQ("version 1.3, which is in use, has the same edits; no version is saved\n", Log({"rollback", "1.1"}).out);
    EXPECT_FALSE(std::filesystem::exists(Path("show-1.4.logdata")));
}

TEST_F(StageLog, RollBack_HelpsWhereTheLogInUseCannotBeRead) {
    WriteAll(Path("show-1.2.logdata"), "{");
    EXPECT_EQ(0, Log({"rollback", "1.1"}).exitCode);
    EXPECT_EQ("no difference\n", Log({"diff", "1.1", "1.3"}).out);
}

TEST_F(StageLog, Copy_RaisesTheMajorNumberAndKeepsTheMinorOne) {
    EXPECT_EQ("saved version 2.2 as " + Path("show-2.2.logdata") + "\n", Log({"copy"}).out);
    EXPECT_EQ("no difference\n", Log({"diff", "1.2", "2.2"}).out);
}

TEST_F(StageLog, Use_OpensAnOlderVersionUntilAnotherIsChosen) {
    EXPECT_EQ("version 1.0 opens from now on\n", Log({"use", "1.0"}).out);
    EXPECT_EQ("1.0", VersionInUse());
    EXPECT_THAT(Edit("list").out, HasSubstr("version 1.0\n"));
    EXPECT_EQ("nothing is wrong\n", RunStage({"check", Show()}).out);
    EXPECT_EQ("version 1.2 opens from now on, and every newer one\n", Log({"use", "newest"}).out);
    EXPECT_EQ("1.2", VersionInUse());
}

TEST_F(StageLog, AnEditOfAnOlderVersion_TakesTheNextFreeNumberAndIsInUse) {
    ASSERT_EQ(0, Log({"copy"}).exitCode);
    ASSERT_EQ(0, Log({"use", "1.0"}).exitCode);
    ASSERT_EQ(0, Edit("attacca --song 1 attacca").exitCode);
    EXPECT_EQ("1.3", VersionInUse());
    EXPECT_EQ("song 1: normal changed to attacca\n", Log({"diff", "1.0", "1.3"}).out);
    ASSERT_EQ(0, Edit("--major attacca --song 2 attacca").exitCode);
    EXPECT_EQ("3.0", VersionInUse());
    EXPECT_EQ("", stage::ReadSettings(Path("settings.json")).changeLog) << "the highest version needs no choice";
}

TEST_F(StageLog, Use_LeavesTheOtherSettingsAsTheyAre) {
    WriteAll(Path("settings.json"), "{\"pressGuardMs\": 90}");
    ASSERT_EQ(0, Log({"use", "1.1"}).exitCode);
    EXPECT_EQ("{\n    \"pressGuardMs\": 90,\n    \"changeLog\": \"show-1.1.logdata\"\n}\n",
              ReadAll(Path("settings.json")));
}

TEST_F(StageLog, AChosenVersionThatIsGone_IsToldNotReplaced) {
    ASSERT_EQ(0, Log({"use", "1.1"}).exitCode);
    std::filesystem::remove(Path("show-1.1.logdata"));
    const std::string sentence =
        "settings.json chooses the change log \"show-1.1.logdata\", which is not there; `stage log SHOW use` chooses "
        "another one\n";
    EXPECT_EQ("stage: " + sentence, RunStage({"info", Show()}).err);
    EXPECT_THAT(RunStage({"check", Show()}).out, HasSubstr(sentence));
    EXPECT_EQ(0, Log({"list"}).exitCode);
    EXPECT_EQ(0, Log({"use", "newest"}).exitCode);
    EXPECT_EQ("1.2", VersionInUse());
}

TEST_F(StageLog, WhatIsNoVersionHere_IsRefused) {
    EXPECT_EQ("stage: the show has no version 4.0, its versions are 1.0 to 1.2\n", Log({"use", "4.0"}).err);
    EXPECT_THAT(Log({"rollback", "last"}).err, HasSubstr("\"last\" is not a version"));
    WriteAll(Path("show-1.1.logdata"), "{");
    EXPECT_EQ(1, Log({"use", "1.1"}).exitCode);
    EXPECT_EQ("1.2", VersionInUse());
}

}  // namespace
