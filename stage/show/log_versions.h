#pragma once

#include <chrono>
#include <cstdint>
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
    /// When it was saved, and else when its file was last written.
    std::chrono::system_clock::time_point writtenAt;
    /// "anna@lx-pit"; empty where that is not known.
    std::string by;
    /// What was said about it when it was saved.
    std::string comment;
    std::size_t editCount = 0;
    bool isInUse = false;
    /// Changes in its journal that no version holds yet.
    std::size_t unsavedChanges = 0;
    /// A program that runs keeps the journal.
    bool isEditedNow = false;
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

/// The version after the last minor one that `version`'s major number has, in a log or a journal; after minor number
/// 65535 version 0 of the next major one.
[[nodiscard]] cmn::TAVOVersion NextMinorVersion(const ShowDirectory& directory, const cmn::TAVOVersion& version);
/// The major number after the last one there is, with this minor number. Throws std::runtime_error after 65535.
[[nodiscard]] cmn::TAVOVersion NextMajorVersion(const ShowDirectory& directory, std::uint16_t minorNumber);

/// The bare name of the version written as "1.4"; throws std::invalid_argument where the text is not a version,
/// std::out_of_range with one sentence where there is no such version.
[[nodiscard]] std::string FindLogName(const ShowDirectory& directory, const std::string& version);

/// Makes a version that is being saved the one that opens, in the same step: where the settings have to say so, they
/// announce it before, and it opens as soon as its file is there, whatever becomes of the program.
class VersionInUse {
public:
    /// Throws as AnnounceVersion does; nothing is changed then.
    VersionInUse(const ShowDirectory& directory, const cmn::TAVOVersion& version);
    /// To be called once the version is saved as the file of this bare name. The settings are made plain; where that
    /// fails, the version is in use all the same.
    void NoteSaved(const std::string& name) const;

private:
    const std::string settingsPath_;
    bool opensByItself_ = false;
    bool isAnnounced_ = false;
};

/// Saves the log as `version`, which is not there yet, into the directory and makes it the one that opens; returns the
/// file's path. Throws as CL::ChangeLog::Save and AnnounceVersion do, and a sentence that says so where the version is
/// saved and the disk did not confirm it; a version that is there stays as it is. Who saved it, when, and the comment
/// are noted.
std::string SaveVersion(const ShowDirectory& directory, CL::ChangeLog& log, const cmn::TAVOVersion& version,
                        const std::string& comment = "");

}  // namespace stage
