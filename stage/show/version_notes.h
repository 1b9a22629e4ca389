#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "tavo_core/tavo_version.h"

/// What is known of versions besides their edits: `versions.notes` in the show directory holds a line of JSON for each
/// that was saved. Nothing depends on it: what cannot be written or read there is left out.
namespace stage {

struct VersionNote {
    std::int64_t savedAt = 0;  ///< seconds since 1970, UTC
    std::string by;            ///< "anna@lx-pit"
    std::string comment;       ///< may be empty
};

/// Notes that this user has saved the version just now. Blocks on the disk. Never throws.
void NoteVersion(const std::string& showPath, const cmn::TAVOVersion& version, const std::string& comment) noexcept;

/// The newest note of each version.
[[nodiscard]] std::map<cmn::TAVOVersion, VersionNote> ReadVersionNotes(const std::string& showPath);

}  // namespace stage
