#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "stage/session/unsaved_edits.h"
#include "stage/show/show_directory.h"
#include "tavo_core/bar_positions.h"
#include "tavo_core/change_log.h"
#include "tavo_core/editor.h"
#include "tavo_core/log_change.h"
#include "tavo_core/log_holder.h"
#include "tavo_midi/show_data.h"

namespace stage {

/// A show that is open for editing and not for playing: its music, one version of its edits, and the editor over them.
/// The process's active change log is left alone. Edits are made in memory, all or none, and become a new version by
/// saving; the journal holds them while that is done. Every operation that cannot be done throws an exception of the
/// standard library with one sentence and changes nothing. Not thread-safe; opening and saving block on the disk.
class EditedShow {
public:
    /// Opens the version in use, or `version`, "1.4".
    explicit EditedShow(const std::string& showPath, const std::string& version = "");

    [[nodiscard]] const ShowDirectory& GetDirectory() const { return directory_; }
    [[nodiscard]] const std::string& GetLogPath() const { return logPath_; }
    [[nodiscard]] const tavo_midi::ShowData& GetMusic() const { return music_; }
    /// The edits as they are now; they stay what they are when more are made.
    [[nodiscard]] std::shared_ptr<const CL::ChangeLog> GetLog() const { return holder_.Peek(); }
    /// What was repaired when it was opened, a sentence each. The repairs are saved with the next version.
    [[nodiscard]] const std::vector<std::string>& GetRepairs() const { return repairs_; }
    /// What a session that ended early left in the journal of this version. It is not among the edits.
    [[nodiscard]] const UnsavedEdits& GetUnsavedEdits() const { return unsaved_; }
    /// An unknown song throws.
    [[nodiscard]] const TL::BarPositions& GetPositions(const std::string& song);

    void Add(const std::string& song, const CL::AnyEdit& edit);
    /// Removes the edits with these ids of ListEdits, all of them or none.
    void Remove(const std::string& song, const std::vector<std::size_t>& ids);
    void SetAttacca(const std::string& song, unsigned char attacca);
    /// Makes the edits those of `other`.
    void RollBackTo(const CL::ChangeLog& other);
    /// Makes the unsaved edits again; saving then ends their journal. False where there are none. Throws
    /// std::runtime_error where the journal does not belong to this content of the log, or another program keeps it.
    bool Recover();

    /// What was done, one line for each operation.
    [[nodiscard]] const std::vector<std::string>& GetChanges() const { return changes_; }

    /// Saves the next minor version, or the next major one with minor 0, makes it the one in use, and returns the
    /// file's path.
    std::string Save(bool newMajor);
    /// The same under the next major number; the minor one is kept.
    std::string SaveCopy();
    /// The same as the minor version after the highest version that the show has.
    std::string SaveAsHighest();

private:
    void Repair_();
    void Note_(const std::string& song, const std::string& change);
    std::string SaveAs_(const cmn::TAVOVersion& version);
    void TryToKeepJournal_();

    const ShowDirectory directory_;
    const tavo_midi::ShowData music_;
    const std::string logPath_;
    CL::LogHolder holder_;
    std::vector<std::string> repairs_;
    std::unique_ptr<CL::Editor> editor_;
    UnsavedEdits unsaved_;
    bool keepsJournal_ = false;
    std::map<std::string, TL::BarPositions> positions_;
    std::vector<std::string> changes_;
};

}  // namespace stage
