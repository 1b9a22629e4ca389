#pragma once

#include <string>
#include <vector>

#include "tavo_core/log_change.h"

namespace stage {

/// What a session that ended early left in the journal of a version of the edits.
struct UnsavedEdits {
    std::vector<CL::LogChange> changes;
    /// A line for each edit.
    std::vector<std::string> lines;
    /// What of the journal cannot be used, a sentence each.
    std::vector<std::string> problems;
};

/// Reads the journal of the log at `logPath`; empty where there is none. Blocks on the disk. Throws std::runtime_error
/// with one sentence for a journal that cannot be read.
[[nodiscard]] UnsavedEdits ReadUnsavedEdits(const std::string& logPath, const TL::ShowTimelines& timelines);

}  // namespace stage
