#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tavo_core/log_change.h"
#include "tavo_core/log_holder.h"
#include "tavo_core/show_timelines.h"

namespace CL {

/// A click edit that did not fit the meters, and what became of it.
struct ModifiedClick {
    Click click;         ///< as it was before it was changed or dropped
    std::string reason;  ///< for people: what was done and why, "; " between several
};

/// Repairs the paired edits of a change log whose end lies before their start, by exchanging the two; returns how many
/// there were and appends a line about each to `description`, which may be null. Without a holder it is the active
/// change log that is repaired. Takes the holder's lock itself; std::logic_error where there is no log.
unsigned int FixInvertedPairedEvents(const TL::ShowTimelines& timelines, std::string* description);
/// The same for the log that `holder` has at this moment. `timelines` is for the bars in `description`.
unsigned int FixInvertedPairedEvents(const TL::ShowTimelines& timelines, std::string* description, LogHolder& holder);

/// Looks up and edits a change log where it is held against a show's timelines: the active change log, or one of a show
/// that is edited but not played. An edit makes a copy of the log, changes it, writes the change to the journal and
/// then puts the copy in the log's place, so that flow control's pointers into the old one stay good until it is
/// notified of the new one; notifying it is the caller's part. Looking up is thread-safe; editing is for one thread.
/// Takes the holder's lock itself, for moments only; call it without.
class Editor {
public:
    /// Edits the active change log. `timelines` outlives the object. Click edits that do not fit the meters are changed
    /// or dropped in the log at once; GetModifiedClickEdits says which. std::logic_error where there is no log.
    explicit Editor(const TL::ShowTimelines& timelines);
    /// Edits the log that `holder`, which outlives the object, has at this moment. A log has one editor at a time.
    Editor(const TL::ShowTimelines& timelines, LogHolder& holder);
    /// Leaves a journal with changes where it is, for the next start to offer.
    ~Editor();
    Editor(const Editor&) = delete;
    Editor& operator=(const Editor&) = delete;

    // Looking up. An unknown song throws std::out_of_range with a sentence.

    /// Label of the bar at `tick`; beyond either end of the song that of the last or first bar. Empty where the song
    /// has no bars.
    [[nodiscard]] std::string GetBarString(const std::string& songNumber, unsigned int tick) const;
    /// First tick of the first bar with that label; std::out_of_range with a sentence where the song has none.
    [[nodiscard]] unsigned int GetBarTickIndex(const std::string& songNumber, const std::string& bar) const;

    /// Tells which song the next two look in; they take the song with an empty number, or an unknown one, as a song
    /// without cuts. Called on the thread that looks up. To be set before anybody looks up.
    void SetCurrentSong(std::function<std::string()> getSongNumber);
    /// The end of the cut, or of the chain of cuts, that covers `tick`; `tick` itself where none does.
    [[nodiscard]] unsigned int GetTickIndexNotBoundedByExistingCut(unsigned int tick) const;
    /// The last beat before `tick` that no cut covers, as a run-up to the cut that starts there; where there is none,
    /// the first tick at or after `tick` that no cut covers.
    [[nodiscard]] unsigned int GetTickIndexNotBoundedByCutAndOneBeatBefore(unsigned int tick) const;

    /// What the constructor did, by song number; songs whose clicks all fitted are not in it. Nothing changes it later.
    [[nodiscard]] std::map<std::string, std::vector<ModifiedClick>> GetModifiedClickEdits() const;

    // Editing. What cannot be done throws std::invalid_argument or std::out_of_range with one sentence, a journal that
    // cannot be written std::runtime_error; nothing is changed then. When an operation returns, its change is in the
    // held log and, where there is a journal, on the disk. Another change log that has taken its place since the object
    // was made is not edited: std::runtime_error. They block on the disk only where there is a journal.

    /// A marker at the tick of another is joined to it: they become one, "C, Vamp".
    void Add(const std::string& songNumber, const AnyEdit& edit);
    /// The edit `from` becomes `to`, of the same kind or another.
    void Change(const std::string& songNumber, const AnyEdit& from, const AnyEdit& to);
    /// All of them or none.
    void Remove(const std::string& songNumber, const std::vector<AnyEdit>& edits);
    /// `attacca` is one of AttaccaNormal, AttaccaNext and AttaccaSkip (song_log.h). In force when the song ends.
    void SetAttacca(const std::string& songNumber, unsigned char attacca);
    /// Makes the edits those of `other`, as one step; the version number stays. Edits that the rules refuse are taken
    /// over as they are.
    void RollBackTo(const ChangeLog& other);
    /// Makes changes of a journal, as one step.
    void ApplyRecovered(const std::vector<LogChange>& changes);

    /// False before this object's first edit: what came with the log is not undone. ApplyRecovered counts as an edit.
    [[nodiscard]] bool CanUndo() const;
    /// True while something that was undone can be made again: the next edit ends that.
    [[nodiscard]] bool CanRedo() const;
    /// Takes back the last change, without limit within the object's life; returns what it did, one line an edit
    /// (DescribeChange). With nothing to undo, std::logic_error with a sentence.
    std::vector<std::string> Undo();
    /// Makes the change again that was taken back last; returns and throws as Undo does.
    std::vector<std::string> Redo();

    /// Whether the edits differ from those of the log as it was read, or saved last. Linear in the edits.
    [[nodiscard]] bool HasUnsavedChanges() const;
    /// To be called after the log was saved as `logPath`: the journal of the log before ends, and the next one
    /// begins beside the new file. Where it cannot, the next edit says so.
    void NoteSaved(const std::string& logPath);
    /// To be called after something was written into the log in place, an attacca state for one: it becomes
    /// part of the journal. Throws std::runtime_error where the journal cannot be written.
    void NoteChangedInPlace();

    /// Writes every change from now on to the journal beside the log `logPath`, whose file need not be there; changes
    /// made before go into it at once. An empty path ends that. Throws std::runtime_error where another program keeps
    /// that journal, or it holds changes that were neither given to ApplyRecovered nor discarded.
    void KeepJournal(const std::string& logPath);

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace CL
