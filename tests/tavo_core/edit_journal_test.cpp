#include "tavo_core/edit_journal.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "change_log_samples.h"
#include "kit/file.h"
#include "kit/path.h"
#include "tests/support/temporary_directory.h"

using CL::ChangeLog;
using CL::EditJournal;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

class EditJournalTest : public testing::Test {
protected:
    EditJournalTest() {
        log_.SetShowName("a");
        log_.SetDirectory(directory_.Path());
        path_ = log_.Save("");
    }

    /// Adds a marker to the log and to the journal.
    void Append(EditJournal& journal, const std::string& text) {
        const ChangeLog before = log_;
        log_.GetSongLogs()["1"].GetMarkers().Add(CL::Marker(0, text));
        journal.Append(Compare(before, log_), log_);
    }
    void AppendInAnEarlierLife(const std::vector<std::string>& texts) {
        EditJournal journal(path_);
        for (const std::string& text : texts)
            Append(journal, text);
    }
    /// The markers that the journal gives to the log as saved.
    [[nodiscard]] std::string Recover() const {
        ChangeLog log = ChangeLog::Load(path_);
        for (const CL::LogChange& change : EditJournal::Read(path_).changes)
            Apply(change, log);
        std::string texts;
        for (const CL::Marker& marker : log.GetSongLogs()["1"].GetMarkers())
            texts += marker.value();
        return texts;
    }
    [[nodiscard]] std::string Bytes() const { return kit::ReadFile(EditJournal::PathFor(path_), 1 << 20); }
    void Rewrite(const std::string& bytes) const {
        std::ofstream(EditJournal::PathFor(path_), std::ios::binary | std::ios::trunc) << bytes;
    }

    test_support::TemporaryDirectory directory_;
    ChangeLog log_;
    std::string path_;
};

}  // namespace

TEST_F(EditJournalTest, Changes_AreReadBackAndAppendedToInALaterLife) {
    EXPECT_THAT(EditJournal::Read(path_).changes, IsEmpty());
    AppendInAnEarlierLife({"a", "b"});
    EXPECT_EQ("ab", Recover());
    EditJournal journal(path_);
    EXPECT_THAT(journal.GetChangesAtOpening(), SizeIs(2));
    Append(journal, "c");
    EXPECT_EQ("abc", Recover());
    EXPECT_THAT(EditJournal::Read(path_).problems, IsEmpty());
}

TEST_F(EditJournalTest, EveryChangeOfRandomLogs_IsTheSameAfterReading) {
    std::mt19937 random(3);
    ChangeLog state = ChangeLog::Load(path_);
    EditJournal journal(path_);
    for (int round = 0; round < 40; ++round) {
        const ChangeLog next = change_log_samples::MakeRandom(random);
        journal.Append(Compare(state, next), next);
        state = next;
    }
    ChangeLog read = ChangeLog::Load(path_);
    for (const CL::LogChange& change : EditJournal::Read(path_).changes)
        Apply(change, read);
    EXPECT_TRUE(Compare(read, state).IsEmpty());
}

TEST_F(EditJournalTest, WithoutChanges_LeavesNoFile) {
    { const EditJournal journal(path_); }
    EXPECT_THAT(kit::listdir(directory_.Path()), ElementsAre("a-1.0.logdata"));
}

TEST_F(EditJournalTest, CutOffAnywhere_GivesTheWholeLinesBefore) {
    AppendInAnEarlierLife({"a", "b"});
    const std::string whole = Bytes();
    const std::size_t first = whole.find('\n') + 1;
    const std::size_t second = whole.find('\n', first) + 1;
    for (std::size_t length = 0; length < whole.size(); ++length) {
        Rewrite(whole.substr(0, length));
        const std::string expected = length < second ? "" : "a";
        ASSERT_EQ(expected, Recover()) << length;
        const bool isTorn = length != 0 && length != first && length != second;
        ASSERT_THAT(EditJournal::Read(path_).problems, SizeIs(isTorn ? 1 : 0)) << length;
        if (length % 16 != 0) continue;
        EditJournal journal(path_);
        ChangeLog after = log_;
        after.GetSongLogs()["1"].GetMarkers().Add(CL::Marker(0, "c"));
        journal.Append(Compare(log_, after), after);
        ASSERT_EQ(expected + "c", Recover()) << length;
    }
}

TEST_F(EditJournalTest, OneWrongBit_NeverGivesAnotherChange) {
    AppendInAnEarlierLife({"a", "b"});
    const std::string whole = Bytes();
    const std::size_t first = whole.find('\n') + 1;
    const std::size_t second = whole.find('\n', first) + 1;
    for (std::size_t place = first; place < whole.size(); ++place) {
        std::string wrong = whole;
        wrong[place] = static_cast<char>(wrong[place] ^ 1);
        Rewrite(wrong);
        ASSERT_EQ(place < second ? "" : "a", Recover()) << place;
        ASSERT_THAT(EditJournal::Read(path_).problems, SizeIs(1)) << place;
    }
}

TEST_F(EditJournalTest, LineThatIsMissingInBetween_EndsTheReading) {
    {
        EditJournal journal(path_);
        Append(journal, "a");
        Append(journal, "b");
        Append(journal, "c");
    }
    const std::string whole = Bytes();
    const std::size_t first = whole.find('\n') + 1;
    const std::size_t second = whole.find('\n', first) + 1;
    const std::size_t third = whole.find('\n', second) + 1;
    Rewrite(whole.substr(0, second) + whole.substr(third));
    EXPECT_EQ("a", Recover());
    Rewrite(whole.substr(0, first) + whole.substr(second));
    EXPECT_THAT(EditJournal::Read(path_).problems, ElementsAre(HasSubstr("line 2: the line is damaged")));
}

TEST_F(EditJournalTest, WhatIsNoJournal_IsRefusedByName) {
    for (const char* text : {"hello\nworld\n", "{}\n{}\n", "\n\n"}) {
        Rewrite(text);
        try {
            static_cast<void>(EditJournal::Read(path_));
            FAIL() << text;
        } catch (const std::runtime_error& error) {
            EXPECT_THAT(error.what(), HasSubstr("a-1.0.logdata.journal is not a journal"));
        }
    }
}

TEST_F(EditJournalTest, LogWithAnotherContent_DoesNotGetTheChanges) {
    {
        EditJournal journal(path_);
        Append(journal, "a");
    }
    std::ofstream(path_, std::ios::app) << "\n";
    const auto contents = EditJournal::Read(path_);
    EXPECT_THAT(contents.changes, IsEmpty());
    EXPECT_THAT(contents.foreignChanges, SizeIs(1));
    EXPECT_THAT(contents.problems, ElementsAre(HasSubstr("another content of a-1.0.logdata")));
    EditJournal journal(path_);
    EXPECT_NE("", journal.GetRefusal());
    EXPECT_THROW(Append(journal, "b"), std::runtime_error);
    journal.Discard();
    Append(journal, "c");
    EXPECT_THAT(EditJournal::Read(path_).changes, SizeIs(1));
}

TEST_F(EditJournalTest, LogThatIsNotThereYet_HasAJournalUntilItIsSaved) {
    const std::string path = directory_ / "a-2.0.logdata";
    {
        EditJournal journal(path);
        Append(journal, "a");
    }
    EXPECT_THAT(EditJournal::Read(path).changes, SizeIs(1));
    log_.GetVersion() = {2, 0};
    log_.Save("");
    EXPECT_THAT(EditJournal::Read(path).changes, IsEmpty()) << "the log holds them now";
}

TEST_F(EditJournalTest, CrashBetweenSavingAndEnding_IsNotOfferedAgain) {
    {
        EditJournal journal(path_);
        Append(journal, "a");
    }
    log_.GetVersion() = {1, 1};
    const std::string newer = log_.Save("");
    EXPECT_THAT(EditJournal::Read(path_).changes, IsEmpty());
    std::filesystem::remove(newer);
    EXPECT_THAT(EditJournal::Read(path_).changes, SizeIs(1)) << "the only copy";
    log_.GetSongLogs()["1"].GetMarkers().Add(CL::Marker(0, "more"));
    log_.Save("");
    EXPECT_THAT(EditJournal::Read(path_).changes, SizeIs(1)) << "a newer version that holds something else";
    log_.GetSongLogs()["1"].GetMarkers().RemoveAt(1);
    log_.GetVersion() = {0, 9};
    log_.Save("");
    EXPECT_THAT(EditJournal::Read(path_).changes, SizeIs(1)) << "an older version is not what a host opens";
}

TEST_F(EditJournalTest, NewerVersionThatWasThereBefore_IsNotTakenForTheSavedOne) {
    const CL::ChangeLog before = log_;
    log_.GetVersion() = {1, 1};
    log_.GetSongLogs()["1"].GetMarkers().Add(CL::Marker(0, "a"));
    log_.Save("");
    log_ = before;
    {
        EditJournal journal(path_);
        Append(journal, "a");  // by chance what 1.1 holds: the log that opens does not
    }
    EXPECT_THAT(EditJournal::Read(path_).changes, SizeIs(1));
    log_.GetVersion() = {1, 2};
    log_.Save("");
    EXPECT_THAT(EditJournal::Read(path_).changes, IsEmpty()) << "saved since";
}

TEST_F(EditJournalTest, DamagedFirstLine_RefusesAndKeepsTheFileUntilItIsDiscarded) {
    {
        EditJournal journal(path_);
        Append(journal, "a");
    }
    std::string damaged = Bytes();
    damaged[30] ^= 1;
    Rewrite(damaged);
    {
        EditJournal journal(path_);
        EXPECT_THAT(journal.GetRefusal(), HasSubstr("is not a journal"));
        EXPECT_THROW(Append(journal, "b"), std::runtime_error);
    }
    EXPECT_EQ(damaged, Bytes());
    EditJournal journal(path_);
    journal.Discard();
    Append(journal, "c");
    EXPECT_THAT(EditJournal::Read(path_).changes, SizeIs(1));
}

TEST_F(EditJournalTest, EndedAsSaved_RemovesTheFile) {
    EditJournal journal(path_);
    Append(journal, "a");
    log_.GetVersion() = {1, 1};
    journal.EndAsSavedIn(kit::path::basename(log_.Save("")));
    EXPECT_FALSE(std::filesystem::exists(EditJournal::PathFor(path_)));
}

TEST_F(EditJournalTest, LastLineTakenBack_IsGone) {
    EditJournal journal(path_);
    Append(journal, "a");
    Append(journal, "b");
    journal.TakeBackLast();
    EXPECT_EQ("a", Recover());
    Append(journal, "c");
    EXPECT_EQ("ac", Recover());
    EXPECT_NO_THROW(journal.TakeBackLast());
    EXPECT_THROW(journal.TakeBackLast(), std::runtime_error) << "only the last one";
}

TEST_F(EditJournalTest, BegunAnewWhereTheLogCannotBeRead_LeavesNoFile) {
    {
        EditJournal journal(path_);
        Append(journal, "a");
        journal.Discard();
        std::filesystem::remove(path_);
        std::filesystem::create_directory(path_);
        EXPECT_ANY_THROW(Append(journal, "b"));
    }
    EXPECT_FALSE(std::filesystem::exists(EditJournal::PathFor(path_)));
}

TEST_F(EditJournalTest, HeldByAnother_IsRefused) {
    const EditJournal journal(path_);
    try {
        const EditJournal other(path_);
        FAIL();
    } catch (const std::runtime_error& error) {
        EXPECT_THAT(error.what(), HasSubstr("in use by another program"));
    }
}

TEST_F(EditJournalTest, ChangeThatCouldNotBeReadBack_IsRefused) {
    EditJournal journal(path_);
    EXPECT_THROW(Append(journal, "\xFF"), std::runtime_error);
    EXPECT_THAT(EditJournal::Read(path_).changes, IsEmpty());
}
