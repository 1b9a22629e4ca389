#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tavo_core/active_change_log.h"
#include "tavo_core/edit_journal.h"
#include "tavo_core/edit_rules.h"
#include "tavo_core/editor.h"
#include "tests/support/temporary_directory.h"
#include "tests/tavo_core/test_timelines.h"

// The editor against the plainest model of it: a list of whole logs, one for each state that was ever reached.
namespace {

using test_support::Bar;

rc::Gen<unsigned int> AnyBar() {
    return rc::gen::map(rc::gen::resize(rc::kNominalSize, rc::gen::inRange(1, 13)),
                        [](int bar) { return Bar(static_cast<unsigned int>(bar)); });
}

CL::AnyEdit DrawEdit() {
    const unsigned int start = *AnyBar();
    const unsigned int end = *AnyBar();
    switch (*rc::gen::inRange(0, 8)) {
        case 0:
            return CL::Vamp(start, end);
        case 1:
            return CL::Repeat(start, end, *rc::gen::inRange(2, 4));
        case 2:
            return CL::Cut(start, end);
        case 3:
            return CL::Fermata(start, end);
        case 4:
            return CL::Click(start, end, *rc::gen::element(4, 5, 8));
        case 5:
            return CL::TempoScale(start, end, *rc::gen::element(0.5F, 0.9F, 3.0F));
        case 6:
            return CL::Osc(start, "", *rc::gen::element<std::string>("/a", "/b"), {1.5F});
        default:
            return CL::Marker(start, *rc::gen::element<std::string>("a", "b"));
    }
}

std::vector<CL::AnyEdit> AllEdits(const CL::ChangeLog& log, const std::string& song) {
    std::vector<CL::AnyEdit> edits;
    const auto found = log.GetSongLogs().find(song);
    if (found == log.GetSongLogs().end()) return edits;
    found->second.ForEachSequence([&edits](const auto& sequence) {
        for (const auto& edit : sequence)
            edits.emplace_back(edit);
    });
    return edits;
}

bool AreAlike(const CL::ChangeLog& a, const CL::ChangeLog& b) {
    return Compare(a, b).IsEmpty() && a.GetVersion() == b.GetVersion();
}

/// The model: what each state was, and where in them undo and redo stand.
class Model {
public:
    explicit Model(const CL::ChangeLog& log) : states_{log} {}

    [[nodiscard]] const CL::ChangeLog& Now() const { return states_[at_]; }
    void Reach(const CL::ChangeLog& log) {
        if (AreAlike(log, Now())) return;
        states_.resize(at_ + 1);
        states_.push_back(log);
        ++at_;
    }
    [[nodiscard]] bool CanUndo() const { return at_ > 0; }
    [[nodiscard]] bool CanRedo() const { return at_ + 1 < states_.size(); }
    void Undo() { --at_; }
    void Redo() { ++at_; }
    [[nodiscard]] const CL::ChangeLog& Earlier(std::size_t back) const { return states_[at_ - back % (at_ + 1)]; }

private:
    std::vector<CL::ChangeLog> states_;
    std::size_t at_ = 0;
};

/// A host's life with one show directory.
class Host {
public:
    Host() : songs_(test_support::TestTimelines().Song("1", 12).Song("2", 12)) {
        CL::ChangeLog log;
        log.SetShowName("show");
        log.SetDirectory(directory_.Path());
        log.GetSongLogs()["1"];
        log.GetSongLogs()["2"];
        path_ = log.Save("");
        Open();
    }
    ~Host() { SetActiveChangeLog(nullptr); }
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    void Step() {
        const std::string song = *rc::gen::element<std::string>("1", "2");
        const auto there = AllEdits(model_->Now(), song);
        switch (
            *rc::gen::weightedElement<int>({{8, 0}, {3, 1}, {3, 2}, {1, 3}, {5, 4}, {3, 5}, {1, 6}, {1, 7}, {1, 8}})) {
            case 0:
                return Add(song, DrawEdit());
            case 1:
                if (!there.empty()) Change(song, *rc::gen::elementOf(there), DrawEdit());
                return;
            case 2:
                if (!there.empty()) Remove(song, *rc::gen::elementOf(there));
                return;
            case 3:
                return SetAttacca(song, *rc::gen::element<unsigned char>(0, 1, 2));
            case 4:
                return UndoOrRedo(true);
            case 5:
                return UndoOrRedo(false);
            case 6:
                return RollBack(*rc::gen::inRange<std::size_t>(0, 20));
            case 7:
                return Save();
            default:
                return CrashAndRecover();
        }
    }

    void Check() const {
        const ActiveChangeLogShared active;
        RC_ASSERT(AreAlike(*active, model_->Now()));
        RC_ASSERT(editor_->CanUndo() == model_->CanUndo());
        RC_ASSERT(editor_->CanRedo() == model_->CanRedo());
        for (const std::string& number : songs_.GetSongNumbers())
            RC_ASSERT(CL::CheckSongLog(active->GetSongLog(number), songs_.GetTimelineOf(number)).empty());
    }

private:
    void Open() {
        CreateChangeLog(path_);
        editor_ = std::make_unique<CL::Editor>(songs_);
        const CL::ChangeLog read = *ActiveChangeLogShared();
        editor_->ApplyRecovered(CL::EditJournal::Read(path_).changes);
        editor_->KeepJournal(path_);
        model_.emplace(read);
        model_->Reach(*ActiveChangeLogShared());
    }
    [[nodiscard]] const TL::Timeline& TimelineOf(const std::string& song) const { return songs_.GetTimelineOf(song); }

    /// A marker that another stands at joins that one: "a, b".
    static std::optional<CL::AnyEdit> JoinedTo(const CL::SongLog& songLog, const CL::AnyEdit& any) {
        const CL::Marker* marker = std::get_if<CL::Marker>(&any);
        if (marker == nullptr) return std::nullopt;
        for (const CL::Marker& there : songLog.GetMarkers()) {
            if (there.abs_time() != marker->abs_time()) continue;
            // The texts are one letter each.
            const bool isIn = there.value().find(marker->value()) != std::string::npos;
            return CL::Marker(there.abs_time(), isIn ? there.value() : there.value() + ", " + marker->value());
        }
        return std::nullopt;
    }
    static void AddTo(CL::SongLog& songLog, const CL::AnyEdit& any) {
        if (const auto joined = JoinedTo(songLog, any)) {
            for (CL::Marker& there : songLog.GetMarkers())
                if (there.abs_time() == EventOf(any).abs_time()) there = std::get<CL::Marker>(*joined);
            return;
        }
        std::visit(
            [&songLog](const auto& edit) {
                songLog.ForEachSequence([&edit](auto& sequence) {
                    using Kind = typename std::remove_cvref_t<decltype(sequence)>::value_type;
                    if constexpr (std::is_same_v<Kind, std::remove_cvref_t<decltype(edit)>>) sequence.Add(edit);
                });
            },
            any);
    }
    /// Takes out the last edit that is like this one.
    static void RemoveFrom(CL::SongLog& songLog, const CL::AnyEdit& any) {
        songLog.ForEachSequence([&any](auto& sequence) {
            for (std::size_t i = sequence.size(); i-- > 0;) {
                if (IsSameEdit(sequence[i], any)) return sequence.RemoveAt(i);
            }
        });
    }
    [[nodiscard]] bool IsAllowed(const std::string& song, const CL::AnyEdit& any, const CL::SongLog& songLog) const {
        const auto isAllowed = [&](const auto& edit) { return CheckEdit(edit, songLog, TimelineOf(song)).empty(); };
        const std::optional<CL::AnyEdit> joined = JoinedTo(songLog, any);
        return std::visit(isAllowed, any) && (!joined || std::visit(isAllowed, *joined));
    }

    /// Does it if the rules allow it; otherwise it must be refused.
    template <class Edit>
    void DoOrRefuse(bool isAllowed, const CL::ChangeLog& next, Edit edit) {
        try {
            edit();
            RC_ASSERT(isAllowed);
            model_->Reach(next);
        } catch (const std::invalid_argument&) {
            RC_ASSERT(!isAllowed);
        }
    }
    void Add(const std::string& song, const CL::AnyEdit& edit) {
        CL::ChangeLog next = model_->Now();
        const bool isAllowed = IsAllowed(song, edit, next.GetSongLog(song));
        AddTo(next.GetSongLog(song), edit);
        DoOrRefuse(isAllowed, next, [&] { editor_->Add(song, edit); });
    }
    void Change(const std::string& song, const CL::AnyEdit& from, const CL::AnyEdit& to) {
        CL::ChangeLog next = model_->Now();
        RemoveFrom(next.GetSongLog(song), from);
        const bool isAllowed = IsAllowed(song, to, next.GetSongLog(song));
        // One that stays at its tick keeps its turn there, which this model does not tell: it is taken out and put in.
        const bool staysAtTick = from.index() == to.index() && EventOf(from).abs_time() == EventOf(to).abs_time();
        AddTo(next.GetSongLog(song), to);
        DoOrRefuse(isAllowed, staysAtTick && isAllowed ? model_->Now() : next,
                   [&] { editor_->Change(song, from, to); });
        if (!staysAtTick || !isAllowed) return;
        const ActiveChangeLogShared active;
        RC_ASSERT(AllEdits(*active, song).size() == AllEdits(next, song).size());
        model_->Reach(*active);
    }
    void Remove(const std::string& song, const CL::AnyEdit& edit) {
        CL::ChangeLog next = model_->Now();
        RemoveFrom(next.GetSongLog(song), edit);
        DoOrRefuse(true, next, [&] { editor_->Remove(song, {edit}); });
    }
    void SetAttacca(const std::string& song, unsigned char attacca) {
        CL::ChangeLog next = model_->Now();
        next.GetSongLog(song).SetAttacca(attacca);
        DoOrRefuse(true, next, [&] { editor_->SetAttacca(song, attacca); });
    }
    void RollBack(std::size_t back) {
        const CL::ChangeLog other = model_->Earlier(back);
        DoOrRefuse(true, other, [&] { editor_->RollBackTo(other); });
    }
    void UndoOrRedo(bool undo) {
        if (!(undo ? model_->CanUndo() : model_->CanRedo())) return;
        if (undo) {
            editor_->Undo();
            model_->Undo();
        } else {
            editor_->Redo();
            model_->Redo();
        }
    }
    void Save() {
        path_ = ActiveChangeLogExclusive()->Save("");
        editor_->NoteSaved(path_);
        RC_ASSERT(!editor_->HasUnsavedChanges());
    }
    /// What a killed program leaves: the files as they are.
    void CrashAndRecover() {
        const CL::ChangeLog before = *ActiveChangeLogShared();
        editor_.reset();
        Open();
        RC_ASSERT(AreAlike(before, *ActiveChangeLogShared()));
    }

    test_support::TemporaryDirectory directory_;
    test_support::TestTimelines songs_;
    std::string path_;
    std::unique_ptr<CL::Editor> editor_;
    std::optional<Model> model_;
};

RC_GTEST_PROP(EditorProperty, RandomEditsUndoRollbackSaveAndCrash_LogIsTheModels, ()) {
    Host host;
    const int steps = *rc::gen::resize(rc::kNominalSize, rc::gen::inRange(1, 40));
    for (int i = 0; i < steps; ++i) {
        host.Step();
        host.Check();
    }
}

RC_GTEST_PROP(LogChangeProperty, CompareApplyAndInvert_AreExact, ()) {
    const auto draw = [] {
        CL::ChangeLog log;
        for (int edits = *rc::gen::inRange(0, 12); edits > 0; --edits) {
            std::visit(
                [&log](const auto& edit) {
                    log.GetSongLogs()["1"].ForEachSequence([&edit](auto& sequence) {
                        using Kind = typename std::remove_cvref_t<decltype(sequence)>::value_type;
                        if constexpr (std::is_same_v<Kind, std::remove_cvref_t<decltype(edit)>>) sequence.Add(edit);
                    });
                },
                DrawEdit());
        }
        return log;
    };
    const CL::ChangeLog a = draw();
    const CL::ChangeLog b = draw();
    const CL::LogChange change = Compare(a, b);
    CL::ChangeLog log = a;
    Apply(change, log);
    RC_ASSERT(Compare(log, b).IsEmpty());
    Apply(Invert(change), log);
    RC_ASSERT(Compare(log, a).IsEmpty());
    RC_ASSERT(IsSameChange(Compare(b, a), Invert(change)));
}

}  // namespace
