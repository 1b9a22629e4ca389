// A show opens and plays, and says why it cannot be edited, whatever lies beside its logs.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include "kit/appended_file.h"
#include "stage/show/show_hold.h"
#include "stage/show/show_journals.h"
#include "tavo_core/edit_journal.h"
#include "tests/hands/session_program.h"
#include "tests/hands/shared_show.h"

using test_support::ProgramResult;
using test_support::ReadAll;
using test_support::RunStage;
using test_support::SessionProgram;
using test_support::WriteAll;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

class Opening : public test_support::SharedShow {
protected:
    [[nodiscard]] std::string Journal(const std::string& version) const {
        return Path("show-" + version + ".logdata.journal");
    }
    /// As a session leaves it that added these markers to a version and was killed.
    void LeaveMarkers(const std::string& version, const std::vector<std::string>& texts) const {
        CL::ChangeLog after = CL::ChangeLog::Load(Path("show-" + version + ".logdata"));
        CL::EditJournal journal(Path("show-" + version + ".logdata"));
        for (unsigned int tick = 0; tick < texts.size(); ++tick) {
            const CL::ChangeLog before = after;
            after.GetSongLog("2").GetMarkers().Add(CL::Marker(tick, texts[tick]));
            journal.Append(CL::Compare(before, after), after);
        }
    }
    void Damage(const std::string& path) const {
        std::string bytes = ReadAll(path);
        bytes[30] ^= 1;
        WriteAll(path, bytes);
    }
};

TEST_F(Opening, SecondSession_PlaysAndSaysWhoHoldsTheShow) {
    SessionProgram first(Show());
    SessionProgram second(Show());
    EXPECT_THAT(first.Opening(), testing::MatchesRegex("ok 1.0 0 "));
    EXPECT_THAT(second.Opening(), StartsWith("ok 1.0 0 the show is open for playing only: the show is held by "));
    EXPECT_TRUE(first.Does("add mine"));
    EXPECT_THAT(second.Ask("add yours"), StartsWith("no the show is open for playing only: "));
    EXPECT_THAT(second.Ask("save"), StartsWith("no the show is open for playing only: "));
    EXPECT_EQ("ok 1.1", first.Ask("save"));
    EXPECT_EQ("ok 1.1", second.Ask("use 1.1")) << "what others saved since can be opened";
    EXPECT_EQ(std::multiset<std::string>{"mine"}, MarkersOf(LogInUse()));
}

TEST_F(Opening, SessionAtWork_IsNotOneThatEndedEarly) {
    SessionProgram session(Show());
    ASSERT_TRUE(session.Does("add mine"));
    EXPECT_EQ("", Edit("list").err);
    EXPECT_EQ("nothing is wrong\n", RunStage({"check", Show()}).out);
    EXPECT_THAT(RunStage({"info", Show()}).out, testing::Not(HasSubstr("note: ")));
    EXPECT_THAT(Log({"list"}).out, HasSubstr("1 unsaved change in its journal, edited now"));
    session.Kill();
    EXPECT_THAT(Edit("list").err, HasSubstr("a session that ended early left 1 unsaved change to version 1.0; `stage "
                                            "log SHOW recover 1.0` saves it"));
}

TEST_F(Opening, SavingAfterOthers_StepsPastEveryVersion) {
    SessionProgram session(Show());
    ASSERT_TRUE(session.Does("add mine"));
    // A program that knows nothing of the lock.
    CL::ChangeLog other = CL::ChangeLog::Load(Path("show-1.0.logdata"));
    other.GetVersion() = {1, 1};
    other.GetSongLog("2").GetMarkers().Add(CL::Marker(0, "other"));
    other.Save("");
    EXPECT_EQ("ok 1.2", session.Ask("save"));
    EXPECT_EQ(3U, LogFiles().size());
    EXPECT_EQ(3U, Scan().logNames.size());
}

TEST_F(Opening, OlderVersionEditedAndSaved_HidesNoOtherNorItsJournal) {
    ASSERT_EQ(0, AddMarker("real").exitCode);
    LeaveMarkers("1.1", {"left"});
    {
        SessionProgram session(Show());
        ASSERT_TRUE(session.Does("use 1.0"));
        ASSERT_TRUE(session.Does("add mine"));
        EXPECT_EQ("ok 1.2", session.Ask("save"));
    }
    EXPECT_EQ(3U, LogFiles().size());
    EXPECT_EQ(std::multiset<std::string>{"real"}, MarkersOf(CL::ChangeLog::Load(Path("show-1.1.logdata"))));
    EXPECT_EQ(0, Log({"recover"}).exitCode);
    EXPECT_EQ((std::multiset<std::string>{"left", "mine"}), MarkersOf(LogInUse()));
}

TEST_F(Opening, JournalThatIsDamaged_IsNamedWithWhatToDo_AndPlaying_GoesOn) {
    LeaveMarkers("1.0", {"a", "b"});
    Damage(Journal("1.0"));
    {
        SessionProgram session(Show());
        EXPECT_THAT(session.Opening(), StartsWith("ok 1.0 0 edits cannot be kept: "));
        EXPECT_THAT(session.Ask("add mine"), StartsWith("no edits cannot be kept: "));
        EXPECT_TRUE(session.Does("use 1.0"));
        EXPECT_THAT(session.Ask("add mine"), StartsWith("no edits cannot be kept: ")) << "nor after opening it again";
    }
    const std::string advice = "is not a journal of a change log; `stage log SHOW forget 1.0` removes the journal\n";
    EXPECT_THAT(RunStage({"check", Show()}).out, HasSubstr(advice));
    EXPECT_THAT(RunStage({"info", Show()}).out, HasSubstr(advice));
    EXPECT_THAT(Log({"list"}).err, HasSubstr(advice));
    EXPECT_EQ(1, Log({"recover"}).exitCode);
    EXPECT_THAT(Log({"forget", "1.0"}).out, HasSubstr("the journal of version 1.0 is removed\n"));
    EXPECT_FALSE(std::filesystem::exists(Journal("1.0")));
    SessionProgram session(Show());
    EXPECT_TRUE(session.Does("add mine"));
}

TEST_F(Opening, JournalOfALogChangedSince_IsOfferedToTheNewestVersion) {
    LeaveMarkers("1.0", {"a"});
    CL::ChangeLog changed = CL::ChangeLog::Load(Path("show-1.0.logdata"));
    changed.GetSongLog("1").SetAttacca(CL::AttaccaNext);
    std::filesystem::remove(Path("show-1.0.logdata"));
    changed.Save("");
    {
        SessionProgram session(Show());
        EXPECT_THAT(session.Opening(), StartsWith("ok 1.0 0 edits cannot be kept: the journal"));
        EXPECT_FALSE(session.Does("add mine"));
    }
    EXPECT_THAT(RunStage({"check", Show()}).out, HasSubstr("`stage log SHOW recover 1.0` saves it; the journal"));
    EXPECT_THAT(Log({"recover"}).out, HasSubstr("song 2: marker 1, \"a\" added\nsaved version 1.1"));
    EXPECT_EQ(CL::AttaccaNext, LogInUse().GetSongLog("1").GetAttacca());
}

TEST_F(Opening, EditAfterACrash_HidesNoOffer_AndRecoveringKeepsBoth) {
    LeaveMarkers("1.0", {"left"});
    const ProgramResult edit = AddMarker("made since");
    EXPECT_EQ(0, edit.exitCode);
    for (const std::string& said : {edit.err, Edit("list").err, Log({"list"}).err, RunStage({"check", Show()}).out,
                                    RunStage({"info", Show()}).out})
        EXPECT_THAT(said, HasSubstr("left 1 unsaved change to version 1.0; `stage log SHOW recover 1.0` saves it\n"));
    EXPECT_EQ("song 2: marker 1, \"left\" added\nsaved version 1.2 as " + Path("show-1.2.logdata") + "\n",
              Log({"recover", "1.0"}).out);
    EXPECT_EQ((std::multiset<std::string>{"left", "made since"}), MarkersOf(LogInUse()));
    EXPECT_EQ("no version has unsaved edits\n", Log({"recover"}).out);
}

TEST_F(Opening, EditsThatCannotBeLaidOn_AreNamedAndTheirJournalStays) {
    CL::ChangeLog after = CL::ChangeLog::Load(Path("show-1.0.logdata"));
    const CL::ChangeLog before = after;
    after.GetSongLog("1").SetAttacca(CL::AttaccaNext);
    after.GetSongLog("1").GetMarkers().RemoveAt(0);
    after.GetSongLog("2").GetMarkers().Add(CL::Marker(0, "left"));
    CL::EditJournal(Path("show-1.0.logdata")).Append(CL::Compare(before, after), after);
    ASSERT_EQ(0, Edit("attacca --song 1 skip").exitCode);
    const ProgramResult recovered = Log({"recover"});
    EXPECT_EQ(0, recovered.exitCode);
    EXPECT_EQ(
        "song 1: marker 5, \"Verse\" removed\n"
        "song 2: marker 1, \"left\" added\n"
        "not made again: song 1: normal changed to attacca: it was changed otherwise since\n"
        "saved version 1.2 as " +
            Path("show-1.2.logdata") + "\n",
        recovered.out);
    EXPECT_EQ(CL::AttaccaSkip, LogInUse().GetSongLog("1").GetAttacca());
    EXPECT_TRUE(std::filesystem::exists(Journal("1.0")));
    EXPECT_THAT(Log({"recover"}).out, HasSubstr("version 1.2 has the others already; no version is saved\n"));
    EXPECT_EQ(0, Log({"forget", "1.0"}).exitCode);
    EXPECT_EQ("no version has unsaved edits\n", Log({"recover"}).out);
}

TEST_F(Opening, NewestLogThatCannotBeRead_TheChosenVersionOpens) {
    ASSERT_EQ(0, AddMarker("a").exitCode);
    ASSERT_EQ(0, AddMarker("b").exitCode);
    ASSERT_EQ(0, Log({"use", "1.1"}).exitCode);
    WriteAll(Path("show-1.2.logdata"), "{");
    SessionProgram session(Show());
    EXPECT_THAT(session.Opening(), StartsWith("ok 1.1 0 "));
    EXPECT_TRUE(session.Does("add mine"));
    EXPECT_EQ("ok 1.3", session.Ask("save"));
    EXPECT_THAT(session.Ask("use 1.2"), StartsWith("no "));
    EXPECT_TRUE(session.Does("add again")) << "it goes on with the version that it has";
    EXPECT_EQ("ok 1.4", session.Ask("save"));
    EXPECT_EQ((std::multiset<std::string>{"a", "again", "mine"}), MarkersOf(LogInUse()));
}

TEST_F(Opening, ReadOnlyMedium_OpensAndSaysWhyItCannotBeEdited) {
    LeaveMarkers("1.0", {"left"});
    const pid_t child = ::fork();
    if (child == 0) {
        const bool isMounted = ::unshare(CLONE_NEWNS) == 0 &&
                               ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                               ::mount(Show().c_str(), Show().c_str(), nullptr, MS_BIND, nullptr) == 0 &&
                               ::mount("none", Show().c_str(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr) == 0;
        if (!isMounted) ::_exit(77);
        SessionProgram session(Show());
        const bool opens = session.Opening().starts_with("ok 1.0 1 the show is open for playing only: the file ") &&
                           session.Opening().find("Read-only file system") != std::string::npos;
        const bool recovers = session.Does("recover");
        const bool refuses = session.Ask("add mine").starts_with("no the show is open for playing only: ");
        const bool reads = Edit("list").exitCode == 0 && Log({"list"}).exitCode == 0;
        const ProgramResult edit = AddMarker("mine");
        const bool editRefuses = edit.exitCode == 1 && edit.err.find("Read-only file system") != std::string::npos;
        ::_exit((opens && recovers ? 0 : 1) + (refuses ? 0 : 2) + (reads ? 0 : 4) + (editRefuses ? 0 : 8));
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    if (WEXITSTATUS(status) == 77) GTEST_SKIP() << "no file system can be mounted here";
    EXPECT_EQ(0, status);
    EXPECT_EQ(1U, LogFiles().size());
}

TEST_F(Opening, RecoveringThatCannotKeepItsJournal_RefusesEditsUntilItCan) {
    LeaveMarkers("1.0", {"left"});
    {
        SessionProgram session(Show());
        EXPECT_THAT(session.Opening(), StartsWith("ok 1.0 1 "));
        EXPECT_THAT(session.Ask("add mine"), HasSubstr("recover or discard them first"));
        auto other = std::make_unique<kit::AppendedFile>(Journal("1.0"));
        EXPECT_THAT(session.Ask("recover"), StartsWith("no edits cannot be kept: "));
        EXPECT_THAT(session.Ask("add mine"), StartsWith("no edits cannot be kept: "));
        other.reset();
        EXPECT_TRUE(session.Does("add mine"));
        session.Kill();
    }
    EXPECT_EQ(0, Log({"recover"}).exitCode);
    EXPECT_EQ((std::multiset<std::string>{"left", "mine"}), MarkersOf(LogInUse()));
}

TEST_F(Opening, SessionWithoutItsLock_RefusesEdits) {
    SessionProgram session(Show());
    ASSERT_TRUE(session.Does("add mine"));
    std::filesystem::remove(Path("show.lock"));
    EXPECT_THAT(session.Ask("add more"), HasSubstr("was removed or replaced while it was in use"));
    EXPECT_THAT(session.Ask("save"), HasSubstr("was removed or replaced while it was in use"));
    EXPECT_EQ(1U, LogFiles().size());
}

}  // namespace
