#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "stage/show/edit_ids.h"
#include "stage/show/show_directory.h"
#include "stage/show/show_hold.h"
#include "stage/show/show_journals.h"
#include "stage/words/edit_target.h"
#include "tavo_core/bar_positions.h"
#include "tavo_core/change_log.h"
#include "tavo_core/editor.h"
#include "tavo_core/log_change.h"
#include "tavo_core/log_holder.h"
#include "tavo_midi/show_data.h"

namespace stage {

/// A show that is open for editing and not for playing: its music, one version of its edits, and the editor over them.
/// The process's active change log is left alone. Edits are made in memory, all or none, and become a new version by
/// saving. Every operation that cannot be done throws an exception of the standard library with one sentence and
/// changes nothing. Not thread-safe; opening and saving block on the disk.
class EditedShow final : public EditTarget {
public:
    enum class Access {
        Read,    ///< nothing is saved
        Change,  ///< the show is held as long as the object lives, so that nobody saves in between
    };

    /// Opens the version in use, or `version`, "1.4". Where the show is to be changed and another program holds it,
    /// waits as ShowHold says and throws ShowHeldError then.
    explicit EditedShow(const std::string& showPath, Access access = Access::Change, const std::string& version = "");

    [[nodiscard]] const ShowDirectory& GetDirectory() const { return directory_; }
    [[nodiscard]] const std::string& GetLogPath() const { return logPath_; }
    [[nodiscard]] const tavo_midi::ShowData& GetMusic() override { return music_; }
    /// The edits as they are now; they stay what they are when more are made.
    [[nodiscard]] std::shared_ptr<const CL::ChangeLog> GetLog() const override { return holder_.Peek(); }
    /// What was repaired when it was opened, a sentence each. The repairs are saved with the next version.
    [[nodiscard]] const std::vector<std::string>& GetRepairs() const { return repairs_; }
    /// An unknown song throws.
    [[nodiscard]] const TL::BarPositions& GetPositions(const std::string& song) override;
    [[nodiscard]] std::vector<std::size_t> GetIds(const std::string& song) override;
    [[nodiscard]] std::string GetUnnamedSong() override { return ""; }

    void Add(const std::string& song, const CL::AnyEdit& edit) override;
    void Change(const std::string& song, const CL::AnyEdit& from, const CL::AnyEdit& to) override;
    void Remove(const std::string& song, const std::vector<CL::AnyEdit>& edits) override;
    void SetAttacca(const std::string& song, unsigned char attacca) override;
    /// Takes back the last change, or makes it again; a line for each edit that this changed. std::logic_error with a
    /// sentence where there is none.
    std::vector<std::string> Undo();
    std::vector<std::string> Redo();
    /// Makes the edits those of `other`.
    void RollBackTo(const CL::ChangeLog& other);

    /// What became of the edits that sessions left unsaved.
    struct Recovery {
        /// The versions that they were made to; empty where there are none.
        std::vector<std::string> versions;
        /// A sentence without a full stop for each edit that could not be laid on. The journal stays then.
        std::vector<std::string> refusals;
    };
    /// Lays the unsaved edits that were made to `version`, or to all versions, on top of these. Saving ends their
    /// journals. Throws std::runtime_error where a journal cannot be read or another program keeps it.
    Recovery Recover(const std::string& version);
    /// Ends the journals whose edits are all in the version that is open.
    void EndRecovered();

    /// What was done, one line for each operation.
    [[nodiscard]] const std::vector<std::string>& GetChanges() const { return changes_; }

    /// Cues among the edits made that nobody would notice, a sentence each.
    [[nodiscard]] const std::vector<std::string>& GetWarnings() const { return warnings_; }

    /// Saves the next minor version, or the next major one with minor 0, makes it the one in use, and returns the
    /// file's path. Throws as SaveVersion does.
    std::string Save(bool newMajor);
    /// What is said about the next version that is saved.
    void SetComment(const std::string& comment) { comment_ = comment; }
    /// The same under the next major number; the minor one is kept.
    std::string SaveCopy();
    /// The same as the minor version after the highest version that the show has.
    std::string SaveAsHighest();

private:
    void Repair_();
    void Note_(const std::string& song, const std::string& change);
    void WarnOfCue_(const std::string& song, const CL::AnyEdit& edit);
    std::string SaveAs_(const cmn::TAVOVersion& version);
    void RecoverFrom_(const ShowJournal& journal, Recovery& recovery);

    // Taken before anything is read.
    const std::optional<ShowHold> hold_;
    ShowDirectory directory_;  // as it was found, or saved into last
    const tavo_midi::ShowData music_;
    std::string logPath_;
    CL::LogHolder holder_;
    std::vector<std::string> repairs_;
    std::unique_ptr<CL::Editor> editor_;
    /// Bare names of the logs whose journals end with the next version.
    std::vector<std::string> recoveredLogs_;
    std::map<std::string, TL::BarPositions> positions_;
    std::optional<EditIds> ids_;
    std::vector<std::string> changes_;
    std::vector<std::string> warnings_;
    std::string comment_;
};

}  // namespace stage
