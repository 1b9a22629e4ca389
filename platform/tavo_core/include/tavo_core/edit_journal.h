#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tavo_core/log_change.h"

namespace CL {

/// The changes made to a change log since its file was written: a file beside the log, its name with ".journal" after
/// it. JSON texts (RFC 8259), one a line, each with a checksum that also covers the lines before it: first which
/// content of which log the journal belongs to and which newer ones there were, then the changes, each durable before
/// Append returns. A crash at any moment leaves all changes that were appended, and perhaps one torn line, which
/// reading leaves out. A file of one program at a time. Not thread-safe. Blocks on the disk.
class EditJournal {
public:
    /// Opens or creates the journal of the log at `logPath`, whose file need not be there, for appending. A journal
    /// whose changes have been saved begins anew; one that cannot be read refuses until Discard. Throws
    /// std::runtime_error with one sentence: another program has it open, the directory cannot be written.
    explicit EditJournal(const std::string& logPath);
    /// Leaves a journal with changes where it is and removes one without.
    ~EditJournal();
    EditJournal(const EditJournal&) = delete;
    EditJournal& operator=(const EditJournal&) = delete;

    /// The changes that were in the file when it was opened.
    [[nodiscard]] const std::vector<LogChange>& GetChangesAtOpening() const;

    /// Why Append refuses until Discard: the file holds changes to another content of the log, or cannot be read. Empty
    /// where it does not.
    [[nodiscard]] const std::string& GetRefusal() const;

    /// Adds one line; `after` is the log once the change is made. Throws std::runtime_error with one sentence where it
    /// cannot; the file is then as before. After a failed flush the object takes no more; a new one may.
    void Append(const LogChange& change, const ChangeLog& after);
    /// Takes the line back that was appended last. Throws as Append does.
    void TakeBackLast();
    /// Notes that the changes are in the log file `logName` now, and removes the file. A crash in between leaves a
    /// journal that Read knows to be saved. Throws as Discard does.
    void EndAsSavedIn(const std::string& logName);
    /// Removes the file, durably; the next Append begins a new one. Throws std::runtime_error with one sentence.
    void Discard();

    /// What a journal holds.
    struct Contents {
        /// Empty as well where the log itself, or a newer version written since, holds their result already.
        std::vector<LogChange> changes;
        /// The changes in their place where they were made to another content of the log than there is now.
        std::vector<LogChange> foreignChanges;
        /// Sentences about what was left out: a torn last line, changes to another content of the log.
        std::vector<std::string> problems;
    };
    /// The journal of the log at `logPath`; empty where there is none. Throws std::runtime_error with one sentence for
    /// a file that cannot be read or is none of ours.
    [[nodiscard]] static Contents Read(const std::string& logPath);
    /// `logPath` with ".journal" after it. Looks at no file.
    [[nodiscard]] static std::string PathFor(const std::string& logPath);

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace CL
