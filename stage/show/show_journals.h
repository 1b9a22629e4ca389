#pragma once

#include <string>
#include <vector>

#include "stage/show/show_directory.h"
#include "tavo_core/log_change.h"

namespace stage {

/// The journal of a version of the edits, with what no version holds yet.
struct ShowJournal {
    cmn::TAVOVersion version;
    /// Bare name of the log that it belongs to, which need not be there.
    std::string logName;
    std::vector<CL::LogChange> changes;
    /// The log has the content that the changes were made to.
    bool fitsLog = true;
    /// A program that runs keeps it: its changes are on their way and were not left by anybody.
    bool isKept = false;
    /// Why it cannot be read, or what of it, else empty.
    std::string problem;
};

/// The journals of a show that have something to tell, ascending by version. Blocks on the disk.
[[nodiscard]] std::vector<ShowJournal> FindJournals(const ShowDirectory& directory);

/// What is to be said about one, and done, as a sentence without a full stop; empty for one that is kept.
[[nodiscard]] std::string DescribeJournal(const ShowJournal& journal);

/// The sentences about all of them.
[[nodiscard]] std::vector<std::string> DescribeJournals(const ShowDirectory& directory);

}  // namespace stage
