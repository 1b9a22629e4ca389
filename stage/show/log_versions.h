#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "stage/show/show_directory.h"
#include "tavo_core/change_log.h"

/// The versions of a show's change log. A version that is there is never written to.
namespace stage {

/// A version as a list of them shows it.
struct LogVersion {
    cmn::TAVOVersion version;
    /// Bare name of its file.
    std::string name;
    std::filesystem::file_time_type writtenAt;
    std::size_t editCount = 0;
    bool isInUse = false;
    /// Changes in its journal that no version holds yet.
    std::size_t unsavedChanges = 0;
    /// Why the log cannot be read, else empty.
    std::string problem;
    /// What of its journal cannot be read, else empty.
    std::string journalProblem;
};

/// The versions of a show, ascending; one that cannot be read is listed with its problem. None is in use where the
/// settings choose one that is not there.
[[nodiscard]] std::vector<LogVersion> ListVersions(const ShowDirectory& directory);

/// The edits of all songs of a log.
[[nodiscard]] std::size_t CountEdits(const CL::ChangeLog& log);

/// The version after the last minor one that `version`'s major number has.
[[nodiscard]] cmn::TAVOVersion NextMinorVersion(const ShowDirectory& directory, const cmn::TAVOVersion& version);
/// The major number after the last one there is, with this minor number.
[[nodiscard]] cmn::TAVOVersion NextMajorVersion(const ShowDirectory& directory, std::uint16_t minorNumber);

/// The bare name of the version written as "1.4"; throws std::invalid_argument where the text is not a version,
/// std::out_of_range with one sentence where there is no such version.
[[nodiscard]] std::string FindLogName(const ShowDirectory& directory, const std::string& version);

/// Saves the log as `version` into the directory and makes it the one that opens; returns the file's path. Throws as
/// CL::ChangeLog::Save and ChooseChangeLog do; a version that is there stays as it is.
std::string SaveVersion(const ShowDirectory& directory, CL::ChangeLog& log, const cmn::TAVOVersion& version);

}  // namespace stage
