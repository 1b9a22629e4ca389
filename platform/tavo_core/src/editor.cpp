#include "tavo_core/editor.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <stdexcept>
#include <type_traits>
#include <utility>

#include "click_repair.h"
#include "edit_variant.h"
#include "kit/path.h"
#include "song_positions.h"
#include "tavo_core/active_change_log.h"
#include "tavo_core/edit_journal.h"
#include "tavo_core/edit_rules.h"
#include "tavo_core/edit_text.h"

namespace CL {

namespace {

const SongLog* FindSong(const ChangeLog& log, const std::string& songNumber) {
    const auto found = log.GetSongLogs().find(songNumber);
    return found == log.GetSongLogs().end() ? nullptr : &found->second;
}

/// What a log has besides its edits.
void TakeOverFileFields(const ChangeLog& from, ChangeLog& log) {
    log.GetVersion() = from.GetVersion();
    log.SetShowName(from.GetShowName());
    log.SetDirectory(from.GetDirectory());
}

/// Index of the last edit of the sequence that is like `edit`.
template <class Edit>
std::optional<std::size_t> FindLast(const ChangeLogSequence<Edit>& sequence, const Edit& edit) {
    for (std::size_t i = sequence.size(); i-- > 0;) {
        if (IsSameEdit(sequence[i], edit)) return i;
    }
    return std::nullopt;
}

/// The end of the chain of cuts over `tick`, the tick itself where there is none. The cuts are in order of their
/// starts, so that one pass follows a chain.
unsigned int SkipCuts(const ChangeLogSequence<Cut>& cuts, unsigned int tick) {
    for (const Cut& cut : cuts) {
        if (cut.start() > tick) break;
        tick = std::max(tick, cut.end());
    }
    return tick;
}

/// The last beat before `tick` that no cut covers.
std::optional<unsigned int> FindBeatBefore(unsigned int tick, const TL::TimelineSequence<TL::BarsBeats>& beats,
                                           const ChangeLogSequence<Cut>& cuts) {
    for (;;) {
        const auto after = std::partition_point(beats.begin(), beats.end(),
                                                [tick](const TL::BarsBeats& beat) { return beat.abs_time() < tick; });
        if (after == beats.begin()) return std::nullopt;
        const unsigned int beat = std::prev(after)->abs_time();
        const auto covering = std::find_if(cuts.begin(), cuts.end(),
                                           [beat](const Cut& cut) { return cut.start() <= beat && beat < cut.end(); });
        if (covering == cuts.end()) return beat;
        // All beats from the cut's start on are covered, too.
        tick = covering->start();
    }
}

void RequireAllowed(const std::string& songNumber, const AnyEdit& any, const SongLog& songLog,
                    const TL::Timeline& timeline) {
    const std::string problem = std::visit([&](const auto& edit) { return CheckEdit(edit, songLog, timeline); }, any);
    if (!problem.empty()) throw std::invalid_argument(fmt::format("song {}: {}", songNumber, problem));
}

/// The marker that a new one at its tick joins; the last, where a log of before has several.
std::optional<std::size_t> FindMarkerAt(const ChangeLogSequence<Marker>& markers, unsigned int tick) {
    for (std::size_t i = markers.size(); i-- > 0;) {
        if (markers[i].abs_time() == tick) return i;
    }
    return std::nullopt;
}

/// Adds an edit that is allowed; a marker to the one at its tick.
void AddTo(SongLog& songLog, const std::string& songNumber, const AnyEdit& any, const TL::Timeline& timeline) {
    if (const Marker* marker = std::get_if<Marker>(&any)) {
        if (const auto index = FindMarkerAt(songLog.GetMarkers(), marker->abs_time())) {
            Marker& there = songLog.GetMarkers()[*index];
            const Marker joined(marker->abs_time(), JoinMarkerTexts(there.value(), marker->value()));
            RequireAllowed(songNumber, joined, songLog, timeline);
            there = joined;
            return;
        }
    }
    std::visit([&](const auto& edit) { SequenceOf<std::remove_cvref_t<decltype(edit)>>(songLog).Add(edit); }, any);
}

}  // namespace

struct Editor::Impl {
    Impl(const TL::ShowTimelines& show, LogHolder& logHolder)
        : timelines(show), holder(logHolder), known(ShareHeld()) {}

    /// The log of the holder; throws where it has none.
    [[nodiscard]] std::shared_ptr<const ChangeLog> ShareHeld() const {
        const LogHolder::Shared held(holder);
        static_cast<void>(*held);
        return held.Share();
    }

    /// Changes a copy of the held log by `change`, then the journal, then the held log. Returns what changed.
    using ChangesLog = std::function<void(ChangeLog& log)>;
    LogChange Commit(const ChangesLog& change);
    void Swap(const LogChange& change, std::shared_ptr<ChangeLog>& next);
    /// Commits it as something that can be undone.
    void Do(const ChangesLog& change);
    std::vector<std::string> Move(std::vector<LogChange>& from, std::vector<LogChange>& to);

    /// Brings the journal up to `next` and returns what it lacked.
    LogChange WriteToJournal(const ChangeLog& next);
    void TakeBackFromJournal(const LogChange& written);
    void OpenJournal();

    [[noreturn]] void RefuseUnknown(const std::string& songNumber, const AnyEdit& edit) const {
        throw std::invalid_argument(fmt::format("song {}: there is no {}", songNumber,
                                                DescribeEdit(EventOf(edit), PositionsOf(songNumber, timelines))));
    }

    const TL::ShowTimelines& timelines;
    LogHolder& holder;
    std::map<std::string, std::vector<ModifiedClick>> modifiedClicks;
    std::function<std::string()> getSongNumber;
    /// The held log as far as this object knows.
    std::shared_ptr<const ChangeLog> known;
    /// The edits as the log's file has them, repaired; and as file and journal have them together.
    ChangeLog base;
    ChangeLog journaled;
    /// The edits once the recovered changes were made.
    std::optional<ChangeLog> recovered;
    std::vector<LogChange> undo;
    std::vector<LogChange> redo;
    /// Empty where no journal is kept.
    std::string journaledLog;
    std::unique_ptr<EditJournal> journal;
};

LogChange Editor::Impl::Commit(const ChangesLog& change) {
    if (ShareHeld() != known)
        throw std::runtime_error("another change log has become active: it needs an editor of its own");
    std::shared_ptr<ChangeLog> next;
    LogChange made;
    {
        const LogHolder::Shared held(holder);
        next = std::make_shared<ChangeLog>(*held);
        change(*next);
        made = Compare(*held, *next);
    }
    if (made.IsEmpty()) return made;
    const LogChange written = WriteToJournal(*next);
    try {
        Swap(made, next);
    } catch (...) {
        TakeBackFromJournal(written);
        throw;
    }
    known = next;
    return made;
}

void Editor::Impl::Swap(const LogChange& change, std::shared_ptr<ChangeLog>& next) {
    holder.Replace([&](const ChangeLog& current) {
        if (&current != known.get())
            throw std::runtime_error("another change log became active while this one was edited");
        if (!IsSameChange(Compare(current, *next), change)) {
            // Somebody wrote in place since the copy was made: the change is made again upon that.
            next = std::make_shared<ChangeLog>(current);
            Apply(change, *next);
        }
        TakeOverFileFields(current, *next);
        return next;
    });
}

void Editor::Impl::Do(const ChangesLog& change) {
    LogChange made = Commit(change);
    if (made.IsEmpty()) return;
    undo.push_back(std::move(made));
    redo.clear();
}

std::vector<std::string> Editor::Impl::Move(std::vector<LogChange>& from, std::vector<LogChange>& to) {
    const LogChange inverse = Invert(from.back());
    const LogChange made = Commit([&inverse](ChangeLog& log) { Apply(inverse, log); });
    from.pop_back();
    to.push_back(inverse);
    return DescribeChange(made, timelines);
}

LogChange Editor::Impl::WriteToJournal(const ChangeLog& next) {
    if (journaledLog.empty()) return {};
    if (journal == nullptr) OpenJournal();
    LogChange change = Compare(journaled, next);
    if (change.IsEmpty()) return change;
    try {
        journal->Append(change, next);
    } catch (const std::runtime_error&) {
        // The next edit opens it anew and reads what is there: the disk may have room by then.
        journal.reset();
        throw;
    }
    Apply(change, journaled);
    return change;
}

void Editor::Impl::TakeBackFromJournal(const LogChange& written) {
    if (written.IsEmpty()) return;
    try {
        journal->TakeBackLast();
        Apply(Invert(written), journaled);
    } catch (const std::runtime_error&) {
        // Opened again for the next edit it shows changes that nobody recovered, and the edit is refused.
        journal.reset();
    }
}

void Editor::Impl::OpenJournal() {
    auto opened = std::make_unique<EditJournal>(journaledLog);
    if (!opened->GetRefusal().empty()) throw std::runtime_error(opened->GetRefusal());
    ChangeLog state = base;
    if (!opened->GetChangesAtOpening().empty()) {
        try {
            for (const LogChange& change : opened->GetChangesAtOpening())
                Apply(change, state);
        } catch (const std::invalid_argument& error) {
            throw std::runtime_error(fmt::format("the journal \"{}\" does not fit its log: {}",
                                                 EditJournal::PathFor(journaledLog), error.what()));
        }
        const bool isRecovered = recovered && Compare(state, *recovered).IsEmpty();
        if (!isRecovered && !Compare(state, journaled).IsEmpty())
            throw std::runtime_error(
                fmt::format("the journal \"{}\" holds changes that were neither recovered nor discarded",
                            EditJournal::PathFor(journaledLog)));
    }
    journal = std::move(opened);
    journaled = std::move(state);
}

Editor::Editor(const TL::ShowTimelines& timelines) : Editor(timelines, GetActiveLogHolder()) {}

Editor::Editor(const TL::ShowTimelines& timelines, LogHolder& holder)
    : impl_(std::make_unique<Impl>(timelines, holder)) {
    ClickRepairs repairs;
    {
        const LogHolder::Shared held(holder);
        repairs = FindClickRepairs(*held, timelines);
    }
    if (!repairs.change.IsEmpty()) {
        holder.Replace([&](const ChangeLog& current) {
            repairs = FindClickRepairs(current, timelines);
            auto repaired = std::make_shared<ChangeLog>(current);
            Apply(repairs.change, *repaired);
            impl_->known = repaired;
            return repaired;
        });
    }
    impl_->modifiedClicks = std::move(repairs.modified);
    const LogHolder::Shared held(holder);
    impl_->base = *held;
    impl_->journaled = *held;
}

Editor::~Editor() = default;

// Looking up.

std::string Editor::GetBarString(const std::string& songNumber, unsigned int tick) const {
    const auto& beats = impl_->timelines.GetTimelineOf(songNumber).GetBarsBeats();
    if (beats.empty()) return "";
    const TL::BarsBeats* beat = beats.FindInForceAt(tick);
    return (beat == nullptr ? beats.front() : *beat).bar_number();
}

unsigned int Editor::GetBarTickIndex(const std::string& songNumber, const std::string& bar) const {
    const auto& beats = impl_->timelines.GetTimelineOf(songNumber).GetBarsBeats();
    const auto found = std::find_if(beats.begin(), beats.end(),
                                    [&bar](const TL::BarsBeats& beat) { return beat.bar_number() == bar; });
    if (found == beats.end()) throw std::out_of_range(fmt::format("song {} has no bar \"{}\"", songNumber, bar));
    return found->abs_time();
}

void Editor::SetCurrentSong(std::function<std::string()> getSongNumber) {
    impl_->getSongNumber = std::move(getSongNumber);
}

unsigned int Editor::GetTickIndexNotBoundedByExistingCut(unsigned int tick) const {
    // Asked before the change log's lock is taken, which comes later in the order of locks.
    const std::string songNumber = impl_->getSongNumber ? impl_->getSongNumber() : "";
    const LogHolder::Shared held(impl_->holder);
    const SongLog* songLog = FindSong(*held, songNumber);
    return songLog == nullptr ? tick : SkipCuts(songLog->GetCuts(), tick);
}

unsigned int Editor::GetTickIndexNotBoundedByCutAndOneBeatBefore(unsigned int tick) const {
    const std::string songNumber = impl_->getSongNumber ? impl_->getSongNumber() : "";
    static const TL::Timeline& noTimeline = *new TL::Timeline;
    static const SongLog& noSongLog = *new SongLog;
    const auto numbers = impl_->timelines.GetSongNumbers();
    const bool isInShow = std::find(numbers.begin(), numbers.end(), songNumber) != numbers.end();
    const TL::Timeline& timeline = isInShow ? impl_->timelines.GetTimelineOf(songNumber) : noTimeline;
    const LogHolder::Shared held(impl_->holder);
    const SongLog* known = FindSong(*held, songNumber);
    const auto& cuts = (known == nullptr ? noSongLog : *known).GetCuts();
    const auto beat = FindBeatBefore(tick, timeline.GetBarsBeats(), cuts);
    return beat ? *beat : SkipCuts(cuts, tick);
}

std::map<std::string, std::vector<ModifiedClick>> Editor::GetModifiedClickEdits() const {
    return impl_->modifiedClicks;
}

// Editing.

void Editor::Add(const std::string& songNumber, const AnyEdit& edit) {
    const TL::Timeline& timeline = impl_->timelines.GetTimelineOf(songNumber);
    impl_->Do([&](ChangeLog& log) {
        SongLog& songLog = log.GetSongLogs()[songNumber];
        RequireAllowed(songNumber, edit, songLog, timeline);
        AddTo(songLog, songNumber, edit, timeline);
    });
}

void Editor::Change(const std::string& songNumber, const AnyEdit& from, const AnyEdit& to) {
    const TL::Timeline& timeline = impl_->timelines.GetTimelineOf(songNumber);
    impl_->Do([&](ChangeLog& log) {
        SongLog& songLog = log.GetSongLogs()[songNumber];
        std::visit(
            [&](const auto& old) {
                using Edit = std::remove_cvref_t<decltype(old)>;
                auto& sequence = SequenceOf<Edit>(songLog);
                const auto index = FindLast(sequence, old);
                if (!index) impl_->RefuseUnknown(songNumber, from);
                const Edit* next = std::get_if<Edit>(&to);
                if (next != nullptr && next->abs_time() == old.abs_time()) {
                    // Keeps its turn among the edits of its tick. An edit of the log is not compared with itself.
                    sequence[*index] = *next;
                    const std::string problem = CheckEdit(sequence[*index], songLog, timeline);
                    if (!problem.empty()) throw std::invalid_argument(fmt::format("song {}: {}", songNumber, problem));
                    return;
                }
                sequence.RemoveAt(*index);
                RequireAllowed(songNumber, to, songLog, timeline);
                AddTo(songLog, songNumber, to, timeline);
            },
            from);
    });
}

void Editor::Remove(const std::string& songNumber, const std::vector<AnyEdit>& edits) {
    impl_->Do([&](ChangeLog& log) {
        SongLog& songLog = log.GetSongLogs()[songNumber];
        for (const AnyEdit& any : edits) {
            std::visit(
                [&](const auto& edit) {
                    auto& sequence = SequenceOf<std::remove_cvref_t<decltype(edit)>>(songLog);
                    const auto index = FindLast(sequence, edit);
                    if (!index) impl_->RefuseUnknown(songNumber, any);
                    sequence.RemoveAt(*index);
                },
                any);
        }
    });
}

void Editor::SetAttacca(const std::string& songNumber, unsigned char attacca) {
    static_cast<void>(impl_->timelines.GetTimelineOf(songNumber));
    if (attacca > AttaccaSkip)
        throw std::invalid_argument(
            fmt::format("song {}: {} is not 0 (normal), 1 (attacca) or 2 (skip)", songNumber, attacca));
    impl_->Do([&](ChangeLog& log) { log.GetSongLogs()[songNumber].SetAttacca(attacca); });
}

void Editor::RollBackTo(const ChangeLog& other) {
    impl_->Do([&other](ChangeLog& log) { Apply(Compare(log, other), log); });
}

void Editor::ApplyRecovered(const std::vector<LogChange>& changes) {
    impl_->Do([&changes](ChangeLog& log) {
        for (const LogChange& change : changes)
            Apply(change, log);
    });
    const LogHolder::Shared held(impl_->holder);
    impl_->recovered = *held;
}

bool Editor::CanUndo() const {
    return !impl_->undo.empty();
}

bool Editor::CanRedo() const {
    return !impl_->redo.empty();
}

std::vector<std::string> Editor::Undo() {
    if (!CanUndo()) throw std::logic_error("there is nothing to undo");
    return impl_->Move(impl_->undo, impl_->redo);
}

std::vector<std::string> Editor::Redo() {
    if (!CanRedo()) throw std::logic_error("there is nothing to redo");
    return impl_->Move(impl_->redo, impl_->undo);
}

bool Editor::HasUnsavedChanges() const {
    const LogHolder::Shared held(impl_->holder);
    return !Compare(impl_->base, *held).IsEmpty();
}

void Editor::NoteSaved(const std::string& logPath) {
    try {
        impl_->base = ChangeLog::Load(logPath);
    } catch (const std::runtime_error&) {
        // Saved it is, whatever keeps it from being read back right now.
        const LogHolder::Shared held(impl_->holder);
        impl_->base = *held;
    }
    impl_->journaled = impl_->base;
    impl_->recovered.reset();
    if (impl_->journaledLog.empty()) return;
    try {
        if (impl_->journal == nullptr) impl_->journal = std::make_unique<EditJournal>(impl_->journaledLog);
        if (impl_->journal->GetRefusal().empty()) impl_->journal->EndAsSavedIn(kit::path::basename(logPath));
    } catch (const std::runtime_error&) {
        // The journal stays; its reader sees that its changes are saved.
    }
    impl_->journal.reset();
    impl_->journaledLog = logPath;
    try {
        NoteChangedInPlace();
    } catch (const std::runtime_error&) {
        // The next edit tries again and reports it.
    }
}

void Editor::NoteChangedInPlace() {
    std::shared_ptr<ChangeLog> now;
    {
        const LogHolder::Shared held(impl_->holder);
        now = std::make_shared<ChangeLog>(*held);
    }
    impl_->WriteToJournal(*now);
}

void Editor::KeepJournal(const std::string& logPath) {
    impl_->journal.reset();
    impl_->journaled = impl_->base;
    impl_->journaledLog = logPath;
    try {
        if (!logPath.empty()) impl_->OpenJournal();
        if (!logPath.empty()) NoteChangedInPlace();
    } catch (...) {
        impl_->journal.reset();
        impl_->journaledLog.clear();
        throw;
    }
}

}  // namespace CL
