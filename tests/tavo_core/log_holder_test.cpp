#include "tavo_core/log_holder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include "tavo_core/active_change_log.h"
#include "tavo_core/edit_journal.h"
#include "tavo_core/editor.h"
#include "tests/support/temporary_directory.h"
#include "tests/tavo_core/test_timelines.h"

using CL::Editor;
using CL::LogHolder;
using test_support::Bar;
using testing::SizeIs;

namespace {

std::shared_ptr<CL::ChangeLog> MakeLog(const std::string& show, const std::string& directory) {
    auto log = std::make_shared<CL::ChangeLog>();
    log->SetShowName(show);
    log->SetDirectory(directory);
    log->GetSongLogs()["1"];
    return log;
}

std::string TextOf(const LogHolder& holder) {
    return LogHolder::Shared(holder)->AsText();
}

/// The active log and two others, each with an editor and a journal.
class EditorsSideBySide : public testing::Test {
protected:
    struct Desk {
        Desk(const TL::ShowTimelines& songs, LogHolder& heldBy, const std::string& show, const std::string& directory)
            : holder(heldBy) {
            holder.Set(MakeLog(show, directory));
            path = LogHolder::Exclusive(holder)->Save("");
            editor = std::make_unique<Editor>(songs, holder);
            editor->KeepJournal(path);
        }
        [[nodiscard]] std::string Text() const { return TextOf(holder); }
        [[nodiscard]] std::size_t CountJournaled() const { return CL::EditJournal::Read(path).changes.size(); }

        LogHolder& holder;
        std::string path;
        std::unique_ptr<Editor> editor;
    };

    EditorsSideBySide() { songs_.Song("1", 200); }
    ~EditorsSideBySide() override { SetActiveChangeLog(nullptr); }

    test_support::TemporaryDirectory directory_;
    test_support::TestTimelines songs_;
    LogHolder firstHolder_;
    LogHolder secondHolder_;
    Desk first_{songs_, firstHolder_, "first", directory_.Path()};
    Desk second_{songs_, secondHolder_, "second", directory_.Path()};
    Desk active_{songs_, GetActiveLogHolder(), "active", directory_.Path()};
};

}  // namespace

TEST(LogHolder, WithoutALog_GuardsAndEditorSaySo) {
    LogHolder holder;
    EXPECT_THROW(static_cast<void>(*LogHolder::Shared(holder)), std::logic_error);
    EXPECT_THROW(static_cast<void>(*LogHolder::Exclusive(holder)), std::logic_error);
    EXPECT_THROW(holder.Replace([](const CL::ChangeLog&) { return std::make_shared<CL::ChangeLog>(); }),
                 std::logic_error);
    EXPECT_EQ(nullptr, LogHolder::Shared(holder).Share());
    const test_support::TestTimelines songs;
    EXPECT_THROW(Editor(songs, holder), std::logic_error);
    EXPECT_THROW(CL::FixInvertedPairedEvents(songs, nullptr, holder), std::logic_error);
}

TEST(LogHolder, ReplacedLog_LivesForThoseWhoShareIt) {
    LogHolder holder(MakeLog("old", ""));
    const auto kept = LogHolder::Shared(holder).Share();
    holder.Replace([](const CL::ChangeLog& current) {
        auto next = std::make_shared<CL::ChangeLog>(current);
        next->SetShowName("new");
        return next;
    });
    EXPECT_EQ("old", kept->GetShowName());
    auto lock = holder.GetSharedLock();
    EXPECT_FALSE(lock.owns_lock());
    lock.lock();
    EXPECT_EQ("new", holder.Peek()->GetShowName());
}

TEST(LogHolder, ReplaceThatThrows_ChangesNothing) {
    LogHolder holder(MakeLog("old", ""));
    EXPECT_THROW(
        holder.Replace([](const CL::ChangeLog&) -> std::shared_ptr<CL::ChangeLog> { throw std::runtime_error("no"); }),
        std::runtime_error);
    EXPECT_EQ("old", LogHolder::Shared(holder)->GetShowName());
}

TEST_F(EditorsSideBySide, EditUndoRedo_ChangeNoOtherLogAndNoOtherJournal) {
    const std::string firstBefore = first_.Text();
    const std::string activeBefore = active_.Text();
    second_.editor->Add("1", CL::Cut(0, Bar(2)));
    second_.editor->SetAttacca("1", CL::AttaccaNext);
    const std::string secondAfter = second_.Text();
    second_.editor->Undo();
    second_.editor->Redo();
    EXPECT_EQ(secondAfter, second_.Text());
    EXPECT_EQ(firstBefore, first_.Text());
    EXPECT_EQ(activeBefore, active_.Text());
    EXPECT_FALSE(first_.editor->CanUndo());
    EXPECT_FALSE(active_.editor->CanUndo());
    EXPECT_THAT(CL::EditJournal::Read(second_.path).changes, SizeIs(4));
    EXPECT_EQ(0U, first_.CountJournaled());
    EXPECT_EQ(0U, active_.CountJournaled());

    first_.editor->Add("1", CL::Marker(0, "first"));
    active_.editor->Add("1", CL::Marker(0, "active"));
    EXPECT_EQ(secondAfter, second_.Text());
    first_.editor->Undo();
    EXPECT_EQ(firstBefore, first_.Text());
    EXPECT_TRUE(active_.editor->CanUndo());
}

TEST_F(EditorsSideBySide, LookUps_AnswerFromTheirOwnLog) {
    for (Desk* desk : {&first_, &second_, &active_})
        desk->editor->SetCurrentSong([] { return "1"; });
    first_.editor->Add("1", CL::Cut(Bar(2), Bar(4)));
    active_.editor->Add("1", CL::Cut(Bar(2), Bar(6)));
    EXPECT_EQ(Bar(4), first_.editor->GetTickIndexNotBoundedByExistingCut(Bar(3)));
    EXPECT_EQ(Bar(3), second_.editor->GetTickIndexNotBoundedByExistingCut(Bar(3)));
    EXPECT_EQ(Bar(6), active_.editor->GetTickIndexNotBoundedByExistingCut(Bar(3)));
    EXPECT_EQ(Bar(2) - 480, first_.editor->GetTickIndexNotBoundedByCutAndOneBeatBefore(Bar(3)));
    EXPECT_EQ(Bar(3) - 480, second_.editor->GetTickIndexNotBoundedByCutAndOneBeatBefore(Bar(3)));
}

TEST_F(EditorsSideBySide, SavedAndRecovered_EachWithItsOwnJournal) {
    first_.editor->Add("1", CL::Marker(0, "first"));
    second_.editor->Add("1", CL::Marker(0, "second"));
    std::string saved;
    {
        const LogHolder::Exclusive log(firstHolder_);
        log->GetVersion() = {1, 1};
        saved = log->Save("");
    }
    first_.editor->NoteSaved(saved);
    EXPECT_FALSE(first_.editor->HasUnsavedChanges());
    EXPECT_TRUE(second_.editor->HasUnsavedChanges());
    EXPECT_FALSE(std::filesystem::exists(CL::EditJournal::PathFor(first_.path)));
    EXPECT_EQ(1U, second_.CountJournaled());

    const std::string secondText = second_.Text();
    second_.editor.reset();  // lets go of its journal, as a crash would
    LogHolder next(std::make_shared<CL::ChangeLog>(CL::ChangeLog::Load(second_.path)));
    Editor recovering(songs_, next);
    recovering.ApplyRecovered(CL::EditJournal::Read(second_.path).changes);
    EXPECT_EQ(secondText, TextOf(next));
    recovering.KeepJournal(second_.path);
    recovering.Add("1", CL::Marker(Bar(2), "more"));
    EXPECT_EQ(2U, second_.CountJournaled());
    EXPECT_EQ(0U, active_.CountJournaled());
}

TEST_F(EditorsSideBySide, InvertedPairs_AreRepairedOnlyWhereAsked) {
    for (Desk* desk : {&first_, &active_})
        LogHolder::Exclusive(desk->holder)->GetSongLog("1").GetCuts().Add(CL::Cut(Bar(4), Bar(2)));
    const std::string activeBefore = active_.Text();
    EXPECT_EQ(0U, CL::FixInvertedPairedEvents(songs_, nullptr, secondHolder_));
    EXPECT_EQ(1U, CL::FixInvertedPairedEvents(songs_, nullptr, firstHolder_));
    EXPECT_EQ(activeBefore, active_.Text());
    EXPECT_EQ(1U, CL::FixInvertedPairedEvents(songs_, nullptr));
}

TEST_F(EditorsSideBySide, LogReplacedInOneHolder_StopsOnlyThatEditor) {
    SetActiveChangeLog(MakeLog("another", directory_.Path()));
    EXPECT_THROW(active_.editor->Add("1", CL::Cut(0, Bar(2))), std::runtime_error);
    EXPECT_NO_THROW(first_.editor->Add("1", CL::Cut(0, Bar(2))));
}

TEST_F(EditorsSideBySide, EditingOnThreeThreads_EachLogGetsItsOwnEdits) {
    constexpr unsigned int Edits = 30;
    const auto edit = [](Desk& desk, const std::string& text) {
        for (unsigned int i = 0; i < Edits; ++i)
            desk.editor->Add("1", CL::Marker(Bar(i + 1), text));
    };
    {
        const std::jthread first([&] { edit(first_, "first"); });
        const std::jthread second([&] { edit(second_, "second"); });
        edit(active_, "active");
    }
    const std::pair<Desk*, const char*> expected[] = {{&first_, "first"}, {&second_, "second"}, {&active_, "active"}};
    for (const auto& [desk, text] : expected) {
        const LogHolder::Shared log(desk->holder);
        EXPECT_EQ(Edits, log->GetSongLog("1").GetMarkers().size());
        for (const CL::Marker& marker : log->GetSongLog("1").GetMarkers())
            EXPECT_EQ(text, marker.value());
        EXPECT_EQ(Edits, desk->CountJournaled());
    }
}
