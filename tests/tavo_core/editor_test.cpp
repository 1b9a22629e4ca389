#include "tavo_core/editor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <stdexcept>

#include "kit/path.h"
#include "tavo_core/active_change_log.h"
#include "tavo_core/edit_journal.h"
#include "tavo_core/edit_rules.h"
#include "tests/support/temporary_directory.h"
#include "tests/tavo_core/test_timelines.h"

using CL::Editor;
using test_support::Bar;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;

namespace {

/// Each test runs on the active change log and on one that only this program holds.
enum class Held { Active, Own };

class EditorTest : public testing::TestWithParam<Held> {
protected:
    EditorTest() { songs_.Song("1", 20).Song("2", 8); }
    ~EditorTest() override { SetActiveChangeLog(nullptr); }

    [[nodiscard]] CL::LogHolder& Holder() { return GetParam() == Held::Active ? GetActiveLogHolder() : own_; }
    /// Begins a log and an editor for it.
    void Begin(const std::function<void(CL::ChangeLog&)>& fill = {}) {
        auto log = std::make_shared<CL::ChangeLog>();
        log->SetShowName("show");
        log->SetDirectory(directory_.Path());
        log->GetSongLogs()["1"];
        log->GetSongLogs()["2"];
        if (fill) fill(*log);
        Holder().Set(log);
        editor_ = std::make_unique<Editor>(songs_, Holder());
        editor_->SetCurrentSong([] { return "1"; });
    }
    [[nodiscard]] std::string Text() { return CL::LogHolder::Shared(Holder())->AsText(); }
    [[nodiscard]] std::string Refusal(const std::function<void()>& edit) {
        const std::string before = Text();
        std::string sentence = "not refused";
        try {
            edit();
        } catch (const std::exception& error) {
            sentence = error.what();
        }
        EXPECT_EQ(before, Text()) << sentence;
        return sentence;
    }

    test_support::TemporaryDirectory directory_;
    test_support::TestTimelines songs_;
    CL::LogHolder own_;
    std::unique_ptr<Editor> editor_;
};

class InvertedPairs : public EditorTest {};
class ClickRepair : public EditorTest {};

constexpr auto NameOf = [](const auto& info) { return info.param == Held::Active ? "Active" : "Own"; };
INSTANTIATE_TEST_SUITE_P(Log, EditorTest, testing::Values(Held::Active, Held::Own), NameOf);
INSTANTIATE_TEST_SUITE_P(Log, InvertedPairs, testing::Values(Held::Active, Held::Own), NameOf);
INSTANTIATE_TEST_SUITE_P(Log, ClickRepair, testing::Values(Held::Active, Held::Own), NameOf);

}  // namespace

TEST_P(EditorTest, BarLookUps_AnswerAtEveryEdge) {
    Begin();
    EXPECT_EQ("1", editor_->GetBarString("1", 0));
    EXPECT_EQ("1", editor_->GetBarString("1", Bar(2) - 1));
    EXPECT_EQ("2", editor_->GetBarString("1", Bar(2)));
    EXPECT_EQ("20", editor_->GetBarString("1", Bar(21)));
    EXPECT_EQ("20", editor_->GetBarString("1", 0xFFFFFFFF));
    EXPECT_THROW(static_cast<void>(editor_->GetBarString("9", 0)), std::out_of_range);
    EXPECT_EQ(Bar(17), editor_->GetBarTickIndex("1", "17"));
    EXPECT_THROW(static_cast<void>(editor_->GetBarTickIndex("1", "21")), std::out_of_range);
    EXPECT_THROW(static_cast<void>(editor_->GetBarTickIndex("1", "")), std::out_of_range);
    EXPECT_THROW(static_cast<void>(editor_->GetBarTickIndex("9", "1")), std::out_of_range);
}

TEST_P(EditorTest, BarLabelThatIsThereTwiceOrBeforeTheFirstBeat_MeansTheFirst) {
    songs_["1"] = TL::Timeline(100, 5000);
    songs_["1"].GetBarsBeats() = {{480, 1, "A"}, {960, 1, "B"}, {1440, 1, "A"}};
    Begin();
    EXPECT_EQ(480U, editor_->GetBarTickIndex("1", "A"));
    EXPECT_EQ("A", editor_->GetBarString("1", 100));
    songs_["1"].GetBarsBeats() = {};
    EXPECT_EQ("", editor_->GetBarString("1", 100));
}

TEST_P(EditorTest, TickInCuts_MovesToTheEndOfTheirChain) {
    Begin([](CL::ChangeLog& log) {
        auto& cuts = log.GetSongLogs()["1"].GetCuts();
        cuts.Add(CL::Cut(Bar(3), Bar(5)));
        cuts.Add(CL::Cut(Bar(5), Bar(6)));
        cuts.Add(CL::Cut(Bar(8), Bar(9)));
    });
    struct Row {
        unsigned int tick;
        unsigned int past;
        unsigned int beatBefore;
    };
    const Row rows[] = {{0, 0, 0},
                        {Bar(3) - 1, Bar(3) - 1, Bar(3) - 480},
                        {Bar(3), Bar(6), Bar(3) - 480},
                        {Bar(4), Bar(6), Bar(3) - 480},
                        {Bar(5), Bar(6), Bar(3) - 480},
                        {Bar(6), Bar(6), Bar(3) - 480},
                        {Bar(6) + 1, Bar(6) + 1, Bar(6)},
                        {Bar(8), Bar(9), Bar(8) - 480}};
    for (const Row& row : rows) {
        EXPECT_EQ(row.past, editor_->GetTickIndexNotBoundedByExistingCut(row.tick)) << row.tick;
        EXPECT_EQ(row.beatBefore, editor_->GetTickIndexNotBoundedByCutAndOneBeatBefore(row.tick)) << row.tick;
    }
    editor_->SetCurrentSong([] { return "nowhere"; });
    EXPECT_EQ(Bar(4), editor_->GetTickIndexNotBoundedByExistingCut(Bar(4)));
    EXPECT_EQ(Bar(4), editor_->GetTickIndexNotBoundedByCutAndOneBeatBefore(Bar(4)));
}

TEST_P(EditorTest, CutFromTheSongsStart_HasNoBeatBeforeIt) {
    Begin([](CL::ChangeLog& log) { log.GetSongLogs()["1"].GetCuts().Add(CL::Cut(0, Bar(3))); });
    EXPECT_EQ(Bar(3), editor_->GetTickIndexNotBoundedByCutAndOneBeatBefore(0));
    EXPECT_EQ(Bar(3), editor_->GetTickIndexNotBoundedByCutAndOneBeatBefore(Bar(3)));
}

TEST_P(EditorTest, EditsOfEveryKind_AreAddedChangedRemovedAndTakenBack) {
    Begin();
    const std::string empty = Text();
    const std::vector<CL::AnyEdit> edits{CL::Vamp(Bar(2), Bar(3)),
                                         CL::Repeat(Bar(3), Bar(4), 2),
                                         CL::Cut(Bar(5), Bar(6)),
                                         CL::Transposition(0, Bar(2), -2),
                                         CL::TempoScale(0, Bar(2), 0.9F),
                                         CL::Click(0, Bar(2), 4),
                                         CL::Caesura(Bar(7), "breath", 0),
                                         CL::Fermata(Bar(8), Bar(9)),
                                         CL::Sfx(0, 0, "door.wav"),
                                         CL::SfxAmbient(0, Bar(9), "rain.ogg"),
                                         CL::Osc(0, "", "/go"),
                                         CL::Marker(0, "Top")};
    std::vector<std::string> states{empty};
    for (const CL::AnyEdit& edit : edits) {
        editor_->Add("1", edit);
        states.push_back(Text());
    }
    EXPECT_TRUE(editor_->HasUnsavedChanges());
    for (std::size_t i = edits.size(); i-- > 0;) {
        EXPECT_THAT(editor_->Undo(), SizeIs(1));
        EXPECT_EQ(states[i], Text());
    }
    EXPECT_FALSE(editor_->CanUndo());
    EXPECT_FALSE(editor_->HasUnsavedChanges());
    EXPECT_THROW(editor_->Undo(), std::logic_error);
    for (std::size_t i = 0; i < edits.size(); ++i) {
        editor_->Redo();
        EXPECT_EQ(states[i + 1], Text());
    }
    EXPECT_FALSE(editor_->CanRedo());
    EXPECT_THROW(editor_->Redo(), std::logic_error);

    editor_->Change("1", edits[0], CL::Vamp(Bar(2), Bar(5), 3));
    editor_->Change("1", edits[6], CL::Marker(Bar(7), "instead"));
    EXPECT_THAT(editor_->Undo(),
                ElementsAre("song 1: marker 7, \"instead\" removed", "song 1: caesura 7, \"breath\" added"));
    EXPECT_THAT(editor_->Undo(), ElementsAre("song 1: vamp bars 2 to 4, at most 3 times changed to vamp bar 2"));
    editor_->Remove("1", edits);
    EXPECT_EQ(empty, Text());
    editor_->Undo();
    EXPECT_EQ(states.back(), Text());
    editor_->Add("2", CL::Marker(0, "x"));
    EXPECT_FALSE(editor_->CanRedo()) << "a new edit ends what could be made again";
}

TEST_P(EditorTest, MarkerAtTheTickOfAnother_BecomesOneWithIt) {
    Begin();
    const auto textAtBar3 = [this] {
        return CL::LogHolder::Shared(Holder())->GetSongLogs().at("1").GetMarkers()[0].value();
    };
    editor_->Add("1", CL::Marker(Bar(3), "C"));
    const std::string before = Text();
    editor_->Add("1", CL::Marker(Bar(3), "Vamp"));
    editor_->Add("1", CL::Marker(Bar(4), "Vamp"));
    EXPECT_EQ(2U, CL::LogHolder::Shared(Holder())->GetSongLogs().at("1").GetMarkers().size());
    EXPECT_EQ("C, Vamp", textAtBar3());
    for (const char* again : {"C", "Vamp", "C, Vamp"}) {
        SCOPED_TRACE(again);
        EXPECT_THROW(editor_->Add("1", CL::Marker(Bar(3), again)), std::invalid_argument);
    }
    editor_->Undo();
    editor_->Undo();
    EXPECT_EQ(before, Text());
    editor_->Redo();
    editor_->Add("1", CL::Marker(Bar(5), "Va"));
    editor_->Change("1", CL::Marker(Bar(5), "Va"), CL::Marker(Bar(3), "Va"));
    EXPECT_EQ("C, Vamp, Va", textAtBar3());
    editor_->Add("1", CL::Marker(Bar(3), "C, quick, Vamp"));
    EXPECT_EQ("C, Vamp, Va, quick", textAtBar3()) << "a part that is there is not added again";
}

TEST_P(EditorTest, WhatTheRulesForbid_IsRefusedWithOneSentenceAndChangesNothing) {
    Begin([](CL::ChangeLog& log) {
        log.GetSongLogs()["1"].GetVamps().Add(CL::Vamp(Bar(4), Bar(8)));
        log.GetSongLogs()["1"].GetCuts().Add(CL::Cut(Bar(10), Bar(12)));
    });
    struct Row {
        CL::AnyEdit edit;
        const char* part;
    };
    const Row rows[] = {{CL::Vamp(Bar(6), Bar(9)), "crosses"},
                        {CL::Vamp(Bar(4), Bar(8)), "there already"},
                        {CL::Cut(Bar(11), Bar(13)), "overlaps"},
                        {CL::Cut(Bar(3), Bar(2)), "does not lie after its start"},
                        {CL::Cut(Bar(20), Bar(22)), "ends after the song"},
                        {CL::Marker(Bar(30), "x"), "outside the song"},
                        {CL::Repeat(Bar(13), Bar(14), 1), "passes"},
                        {CL::TempoScale(0, Bar(2), 3), "tempo scale"},
                        {CL::Click(0, Bar(2), 5), "does not divide"},
                        {CL::Osc(0, "", "go"), "OSC address"}};
    for (const Row& row : rows) {
        const std::string sentence = Refusal([&] { editor_->Add("1", row.edit); });
        EXPECT_THAT(sentence, testing::StartsWith("song 1: "));
        EXPECT_THAT(sentence, HasSubstr(row.part));
    }
    EXPECT_FALSE(editor_->CanUndo());
    EXPECT_THAT(Refusal([&] { editor_->Add("9", CL::Cut(0, 1)); }), HasSubstr("9"));
    EXPECT_THAT(Refusal([&] { editor_->SetAttacca("1", 3); }), HasSubstr("song 1: 3 is not"));
    EXPECT_EQ("song 1: there is no marker 1, \"x\"", Refusal([&] {
                  editor_->Remove("1", {CL::Cut(Bar(10), Bar(12)), CL::Marker(0, "x")});
              }));
    EXPECT_EQ("song 1: there is no cut bar 1",
              Refusal([&] { editor_->Change("1", CL::Cut(0, Bar(2)), CL::Cut(0, Bar(3))); }));
}

TEST_P(EditorTest, ChangeOfOneOfATick_KeepsItsTurn) {
    Begin([](CL::ChangeLog& log) {
        log.GetSongLogs()["1"].GetOscs().Add(CL::Osc(0, "", "/first"));
        log.GetSongLogs()["1"].GetOscs().Add(CL::Osc(0, "", "/second"));
    });
    const std::string before = Text();
    editor_->Change("1", CL::Osc(0, "", "/first"), CL::Osc(0, "", "/changed"));
    EXPECT_EQ("/changed", CL::LogHolder::Shared(Holder())->GetSongLog("1").GetOscs()[0].address());
    editor_->Undo();
    EXPECT_EQ(before, Text());
}

TEST_P(EditorTest, NothingChanged_IsNoStep) {
    Begin([](CL::ChangeLog& log) { log.GetSongLogs()["1"].GetCuts().Add(CL::Cut(0, 480)); });
    editor_->SetAttacca("1", CL::AttaccaNormal);
    editor_->Change("1", CL::Cut(0, 480), CL::Cut(0, 480));
    editor_->Remove("1", {});
    editor_->RollBackTo(*CL::LogHolder::Shared(Holder()));
    EXPECT_FALSE(editor_->CanUndo());
}

TEST_P(EditorTest, Edit_SwapsTheLogSoThatPointersIntoTheOldOneStayGood) {
    Begin([](CL::ChangeLog& log) { log.GetSongLogs()["1"].GetCuts().Add(CL::Cut(0, 480)); });
    const auto old = CL::LogHolder::Shared(Holder()).Share();
    const CL::Cut& cut = old->GetSongLog("1").GetCuts()[0];
    editor_->Remove("1", {CL::Cut(0, 480)});
    EXPECT_EQ(480U, cut.end());
    EXPECT_NE(old, CL::LogHolder::Shared(Holder()).Share());
}

TEST_P(EditorTest, WrittenInPlaceBetweenEdits_StaysThroughEditUndoAndVersion) {
    Begin();
    editor_->Add("1", CL::Cut(0, 480));
    {
        const CL::LogHolder::Exclusive active(Holder());
        active->GetSongLog("2").SetAttacca(CL::AttaccaNext);
        active->GetVersion() = {4, 2};
    }
    editor_->Undo();
    const CL::LogHolder::Shared active(Holder());
    EXPECT_EQ(CL::AttaccaNext, active->GetSongLog("2").GetAttacca());
    EXPECT_EQ("4.2", active->GetVersion().GetAsString());
}

TEST_P(EditorTest, AnotherLogBecameActive_IsNotEdited) {
    Begin();
    Holder().Set(std::make_shared<CL::ChangeLog>());
    EXPECT_THAT(Refusal([&] { editor_->Add("1", CL::Cut(0, 480)); }), HasSubstr("editor of its own"));
}

TEST_P(EditorTest, RollBack_TakesTheOtherLogsEditsAndKeepsTheVersion) {
    Begin([](CL::ChangeLog& log) {
        log.GetVersion() = {3, 1};
        log.GetSongLogs()["1"].GetCuts().Add(CL::Cut(0, 480));
    });
    const std::string before = Text();
    CL::ChangeLog other;
    other.GetVersion() = {1, 0};
    other.GetSongLogs()["2"].GetMarkers().Add(CL::Marker(99999999, "beyond the song, as it was"));
    editor_->RollBackTo(other);
    {
        const CL::LogHolder::Shared active(Holder());
        EXPECT_TRUE(Compare(other, *active).IsEmpty());
        EXPECT_EQ("3.1", active->GetVersion().GetAsString());
    }
    editor_->Undo();
    EXPECT_EQ(before, Text());
}

TEST_P(EditorTest, JournalThatCannotBeWritten_RefusesTheEdit) {
    Begin();
    editor_->KeepJournal(directory_ / "show-1.0.logdata");
    std::filesystem::remove_all(directory_.Path());
    EXPECT_THAT(Refusal([&] { editor_->Add("1", CL::Cut(0, 480)); }), HasSubstr(".journal"));
    EXPECT_FALSE(editor_->CanUndo());
}

TEST_P(EditorTest, JournalOfAnEarlierLife_IsKeptOnlyWhenRecoveredOrDiscarded) {
    const std::string log = directory_ / "show-1.0.logdata";
    Begin();
    editor_->KeepJournal(log);
    editor_->Add("1", CL::Cut(0, 480));
    editor_->SetAttacca("2", CL::AttaccaNext);
    editor_->Undo();
    const std::string state = Text();

    Begin();
    EXPECT_THAT(Refusal([&] { editor_->KeepJournal(log); }), HasSubstr("neither recovered nor discarded"));
    editor_->ApplyRecovered(CL::EditJournal::Read(log).changes);
    EXPECT_EQ(state, Text());
    editor_->Add("1", CL::Cut(960, 1440));
    editor_->KeepJournal(log);
    EXPECT_THAT(CL::EditJournal::Read(log).changes, SizeIs(4)) << "what was done meanwhile went in at once";
    editor_->Undo();
    EXPECT_EQ(state, Text());
    editor_->Undo();
    EXPECT_FALSE(editor_->HasUnsavedChanges()) << "recovered changes are one step";

    Begin();
    CL::EditJournal(log).Discard();
    editor_->KeepJournal(log);
    EXPECT_THAT(CL::EditJournal::Read(log).changes, SizeIs(0));
}

TEST_P(EditorTest, InPlaceChange_GoesIntoTheJournalWithTheNextEditOrWhenNoted) {
    const std::string log = directory_ / "show-1.0.logdata";
    Begin();
    editor_->KeepJournal(log);
    const auto setAttacca = [this](unsigned char attacca) {
        CL::LogHolder::Exclusive(Holder())->GetSongLog("2").SetAttacca(attacca);
    };
    setAttacca(CL::AttaccaNext);
    editor_->NoteChangedInPlace();
    setAttacca(CL::AttaccaSkip);
    editor_->Add("1", CL::Cut(0, 480));
    const std::string state = Text();
    Begin();
    editor_->ApplyRecovered(CL::EditJournal::Read(log).changes);
    EXPECT_EQ(state, Text());
}

TEST_P(EditorTest, Saved_EndsTheJournalAndBeginsTheNext) {
    Begin();
    const std::string first = CL::LogHolder::Exclusive(Holder())->Save("");
    editor_->KeepJournal(first);
    editor_->Add("1", CL::Cut(0, 480));
    std::string second;
    {
        const CL::LogHolder::Exclusive active(Holder());
        active->GetVersion() = {1, 1};
        second = active->Save("");
    }
    editor_->NoteSaved(second);
    EXPECT_FALSE(editor_->HasUnsavedChanges());
    EXPECT_FALSE(std::filesystem::exists(CL::EditJournal::PathFor(first)));
    editor_->Undo();
    EXPECT_TRUE(editor_->HasUnsavedChanges());
    EXPECT_THAT(CL::EditJournal::Read(second).changes, SizeIs(1)) << "undoing what was saved is a change";
}

TEST_P(InvertedPairs, AreExchangedCountedAndDescribed) {
    std::string description = "before\n";
    auto log = std::make_shared<CL::ChangeLog>();
    log->GetSongLogs()["1"].GetVamps().Add(CL::Vamp(Bar(17), Bar(12), 3));
    log->GetSongLogs()["1"].GetVamps().Add(CL::Vamp(Bar(18), Bar(19)));
    log->GetSongLogs()["1"].GetSfxs().Add(CL::Sfx(480, 0, "door.wav", -3));
    log->GetSongLogs()["9"].GetCuts().Add(CL::Cut(960, 480));
    const CL::ChangeLog read = CL::ChangeLog::Parse(log->AsText(), "log");
    EXPECT_THAT(CL::CheckSongLog(read.GetSongLog("1"), songs_["1"]), SizeIs(2)) << "a log with them can be read";
    Holder().Set(log);
    EXPECT_EQ(3U, CL::FixInvertedPairedEvents(songs_, &description, Holder()));
    const std::string what = ": its end stood before its start, the two were exchanged\n";
    EXPECT_EQ("before\nsong 1: vamp bars 12 to 16, at most 3 times" + what +
                  "song 1: sfx 1 up to 1:2, \"door.wav\", -3 dB" + what + "song 9: cut t480 up to t960" + what,
              description);
    const CL::LogHolder::Shared active(Holder());
    EXPECT_NE(log, active.Share()) << "by a copy";
    EXPECT_TRUE(CL::CheckSongLog(active->GetSongLog("1"), songs_["1"]).empty());
}

TEST_P(InvertedPairs, LogWithoutThem_StaysTheSameObject) {
    Begin();
    const auto before = CL::LogHolder::Shared(Holder()).Share();
    std::string description;
    EXPECT_EQ(0U, CL::FixInvertedPairedEvents(songs_, &description, Holder()));
    EXPECT_EQ("", description);
    EXPECT_EQ(before, CL::LogHolder::Shared(Holder()).Share());
}

TEST_P(ClickRepair, ClicksThatDoNotFit_AreChangedOrDroppedAndTold) {
    struct Row {
        CL::Click click;
        const char* fitting;
        const char* reason;
    };
    const Row rows[] = {
        {CL::Click(0, Bar(3), 8), "0..3840/8", ""},
        {CL::Click(0, Bar(3), 5), "0..3840/4", "every 5/32 does not divide the bar, every 1/8 is taken instead"},
        {CL::Click(0, Bar(3), 100), "0..3840/32", "every 25/8 does not divide the bar, every 1/1 is taken instead"},
        {CL::Click(Bar(9), Bar(9), 8), "", "deleted, its end does not lie after its start"},
        {CL::Click(Bar(9), Bar(8), 8), "", "deleted, its end does not lie after its start"},
        {CL::Click(Bar(21), Bar(22), 8), "", "deleted, it lies outside the song"},
        {CL::Click(Bar(20), Bar(23), 8), "36480..38400/8", "cut off at the song's end, behind which it ended"}};
    for (const Row& row : rows) {
        Begin([&](CL::ChangeLog& log) { log.GetSongLogs()["1"].GetClicks().Add(row.click); });
        const CL::LogHolder::Shared active(Holder());
        std::string fitting;
        for (const CL::Click& click : active->GetSongLog("1").GetClicks())
            fitting += std::to_string(click.start()) + ".." + std::to_string(click.end()) + "/" + click.value();
        EXPECT_EQ(row.fitting, fitting);
        const auto modified = editor_->GetModifiedClickEdits();
        if (std::string(row.reason).empty()) {
            EXPECT_TRUE(modified.empty());
        } else {
            ASSERT_THAT(modified, SizeIs(1));
            EXPECT_EQ(row.reason, modified.at("1").at(0).reason);
            EXPECT_TRUE(CL::IsSameEdit(row.click, modified.at("1").at(0).click)) << "as it was";
        }
        EXPECT_TRUE(CL::CheckSongLog(active->GetSongLog("1"), songs_["1"]).empty());
    }
}

TEST_P(ClickRepair, OverlappingClicks_FollowOneAnother) {
    Begin([](CL::ChangeLog& log) {
        auto& clicks = log.GetSongLogs()["1"].GetClicks();
        clicks.Add(CL::Click(0, Bar(4), 8));
        clicks.Add(CL::Click(Bar(2), Bar(3), 4));
        clicks.Add(CL::Click(Bar(3), Bar(6), 4));
        log.GetSongLogs()["2"].GetClicks().Add(CL::Click(0, Bar(2), 8));
    });
    const CL::LogHolder::Shared active(Holder());
    EXPECT_TRUE(CL::CheckSongLog(active->GetSongLog("1"), songs_["1"]).empty());
    EXPECT_EQ(2U, active->GetSongLog("1").GetClicks().size());
    EXPECT_EQ(Bar(4), active->GetSongLog("1").GetClicks()[1].start());
    EXPECT_EQ(Bar(6), active->GetSongLog("1").GetClicks()[1].end());
    const auto modified = editor_->GetModifiedClickEdits();
    ASSERT_THAT(modified, SizeIs(1));
    EXPECT_THAT(modified.at("1").at(0).reason, HasSubstr("another click covers"));
    EXPECT_THAT(modified.at("1").at(1).reason, HasSubstr("begins later"));
}
