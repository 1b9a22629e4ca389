#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tavo_core/log_change.h"

namespace CL {

/// The changes made to a change log since its file was written: a file beside the log, its name and ".journal" behind
/// it. JSON text (RFC 8259), one line a change with a checksum, each durable before Append returns. A crash at any
/// moment leaves all changes that were appended, and perhaps one torn line, which reading leaves out. A file of one
/// program at a time. Not thread-safe. Blocks on the disk.
class EditJournal {
public:
    /// Opens or creates the journal of the log at `logPath` for appending. Throws std::runtime_error with one sentence:
    /// another program has it open, the directory cannot be written.
    explicit EditJournal(const std::string& logPath);
    ~EditJournal();
    EditJournal(const EditJournal&) = delete;
    EditJournal& operator=(const EditJournal&) = delete;

    /// Adds one line. Throws std::runtime_error with one sentence where it cannot; the file is then as before.
    void Append(const LogChange& change);
    /// Removes the file, durably; the object can go on to append to a new one.
    void Discard();

    /// What a journal holds.
    struct Contents {
        std::vector<LogChange> changes;
        /// Sentences about lines that were left out; a torn last line is one.
        std::vector<std::string> problems;
    };
    /// The journal of the log at `logPath`; empty where there is none. Throws std::runtime_error with one sentence for
    /// a file that cannot be read or is none of ours.
    [[nodiscard]] static Contents Read(const std::string& logPath);
    [[nodiscard]] static std::string PathFor(const std::string& logPath);

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace CL
