#include "stage/show/log_versions.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <limits>
#include <set>
#include <stdexcept>

#include "kit/file.h"
#include "kit/path.h"
#include "stage/show/show_journals.h"
#include "stage/show/version_notes.h"

namespace stage {

namespace {

std::string FindNameInUse(const ShowDirectory& directory) {
    try {
        return directory.LogNameInUse(ReadSettings(directory.SettingsPath()));
    } catch (const std::runtime_error&) {
        return "";
    }
}

std::chrono::system_clock::time_point FindLastWriting(const std::string& path) {
    std::error_code ignored;
    const auto system = std::chrono::file_clock::to_sys(std::filesystem::last_write_time(path, ignored));
    return std::chrono::time_point_cast<std::chrono::system_clock::duration>(system);
}

}  // namespace

std::vector<LogVersion> ListVersions(const ShowDirectory& directory) {
    const std::string nameInUse = FindNameInUse(directory);
    const std::vector<ShowJournal> journals = FindJournals(directory);
    const std::map<cmn::TAVOVersion, VersionNote> notes = ReadVersionNotes(directory.path);
    std::vector<LogVersion> versions;
    for (const auto& [version, name] : directory.logNames) {
        LogVersion entry;
        entry.version = version;
        entry.name = name;
        entry.isInUse = name == nameInUse;
        const std::string path = directory.PathOf(name);
        entry.writtenAt = FindLastWriting(path);
        if (const auto note = notes.find(version); note != notes.end()) {
            if (note->second.savedAt > 0)
                entry.writtenAt = std::chrono::system_clock::from_time_t(note->second.savedAt);
            entry.by = note->second.by;
            entry.comment = note->second.comment;
        }
        try {
            entry.editCount = CountEdits(CL::ChangeLog::Load(path));
        } catch (const std::runtime_error& problem) {
            entry.problem = problem.what();
        }
        const auto journal = std::find_if(journals.begin(), journals.end(),
                                          [&entry](const ShowJournal& each) { return each.logName == entry.name; });
        if (journal != journals.end()) {
            entry.unsavedChanges = journal->changes.size();
            entry.isEditedNow = journal->isKept;
            entry.journalProblem = journal->problem;
        }
        versions.push_back(std::move(entry));
    }
    return versions;
}

std::size_t CountEdits(const CL::ChangeLog& log) {
    std::size_t count = 0;
    for (const auto& [number, songLog] : log.GetSongLogs())
        songLog.ForEachSequence([&](const auto& sequence) { count += sequence.size(); });
    return count;
}

namespace {

/// The versions that have a log or a journal.
std::set<cmn::TAVOVersion> CollectVersions(const ShowDirectory& directory) {
    std::set<cmn::TAVOVersion> versions;
    for (const auto& [version, name] : directory.logNames)
        versions.insert(version);
    for (const auto& [version, name] : directory.journaledLogs)
        versions.insert(version);
    return versions;
}

constexpr auto LastNumber = std::numeric_limits<std::uint16_t>::max();

}  // namespace

cmn::TAVOVersion NextMinorVersion(const ShowDirectory& directory, const cmn::TAVOVersion& version) {
    cmn::TAVOVersion next = version;
    for (const cmn::TAVOVersion& other : CollectVersions(directory)) {
        if (other.major_number == version.major_number) next = std::max(next, other);
    }
    if (next.minor_number == LastNumber) return NextMajorVersion(directory, 0);
    ++next.minor_number;
    return next;
}

cmn::TAVOVersion NextMajorVersion(const ShowDirectory& directory, std::uint16_t minorNumber) {
    const std::set<cmn::TAVOVersion> versions = CollectVersions(directory);
    cmn::TAVOVersion next{0, minorNumber};
    if (!versions.empty()) next.major_number = versions.rbegin()->major_number;
    if (next.major_number == LastNumber)
        throw std::runtime_error(fmt::format("the show has a version {}, after which there is no major number",
                                             versions.rbegin()->GetAsString()));
    ++next.major_number;
    return next;
}

std::string FindLogName(const ShowDirectory& directory, const std::string& version) {
    cmn::TAVOVersion wanted;
    wanted.SetWithString(version);
    const auto found = directory.logNames.find(wanted);
    if (found == directory.logNames.end())
        throw std::out_of_range(fmt::format("the show has no version {}, its versions are {} to {}", version,
                                            directory.logNames.begin()->first.GetAsString(),
                                            directory.logNames.rbegin()->first.GetAsString()));
    return found->second;
}

VersionInUse::VersionInUse(const ShowDirectory& directory, const cmn::TAVOVersion& version)
    : settingsPath_(directory.SettingsPath()),
      opensByItself_(directory.logNames.empty() || version > directory.logNames.rbegin()->first) {
    const Settings settings = ReadSettings(settingsPath_);
    isAnnounced_ = !opensByItself_ || !settings.changeLog.empty() || !settings.nextVersion.empty();
    if (isAnnounced_) AnnounceVersion(settingsPath_, version.GetAsString());
}

void VersionInUse::NoteSaved(const std::string& name) const {
    if (!isAnnounced_) return;
    try {
        ChooseChangeLog(settingsPath_, opensByItself_ ? "" : name);
    } catch (const std::runtime_error&) {
        // What is announced holds.
    }
}

std::string SaveVersion(const ShowDirectory& directory, CL::ChangeLog& log, const cmn::TAVOVersion& version,
                        const std::string& comment) {
    const VersionInUse inUse(directory, version);
    log.GetVersion() = version;
    log.SetDirectory(directory.path);
    std::string path;
    try {
        path = log.Save("");
    } catch (const kit::UnconfirmedError& problem) {
        throw std::runtime_error(fmt::format("version {} is saved and in use, but may not outlast a power failure: {}",
                                             version.GetAsString(), problem.what()));
    }
    inUse.NoteSaved(kit::path::basename(path));
    NoteVersion(directory.path, version, comment);
    return path;
}

}  // namespace stage
