#include "stage/show/log_versions.h"

#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>

#include "kit/path.h"
#include "tavo_core/edit_journal.h"

namespace stage {

namespace {

std::string FindNameInUse(const ShowDirectory& directory) {
    try {
        return directory.LogNameInUse(ReadSettings(directory.SettingsPath()));
    } catch (const std::runtime_error&) {
        return "";
    }
}

}  // namespace

std::vector<LogVersion> ListVersions(const ShowDirectory& directory) {
    const std::string nameInUse = FindNameInUse(directory);
    std::vector<LogVersion> versions;
    for (const auto& [version, name] : directory.logNames) {
        LogVersion entry{version, name, {}, 0, name == nameInUse, 0, "", ""};
        const std::string path = directory.PathOf(name);
        std::error_code ignored;
        entry.writtenAt = std::filesystem::last_write_time(path, ignored);
        try {
            entry.editCount = CountEdits(CL::ChangeLog::Load(path));
        } catch (const std::runtime_error& problem) {
            entry.problem = problem.what();
        }
        try {
            const CL::EditJournal::Contents journal = CL::EditJournal::Read(path);
            entry.unsavedChanges = journal.changes.size();
            if (!journal.problems.empty()) entry.journalProblem = journal.problems.front();
        } catch (const std::runtime_error& problem) {
            entry.journalProblem = problem.what();
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

cmn::TAVOVersion NextMinorVersion(const ShowDirectory& directory, const cmn::TAVOVersion& version) {
    cmn::TAVOVersion next = version;
    for (const auto& [other, name] : directory.logNames) {
        if (other.major_number == version.major_number) next = std::max(next, other);
    }
    ++next.minor_number;
    return next;
}

cmn::TAVOVersion NextMajorVersion(const ShowDirectory& directory, std::uint16_t minorNumber) {
    cmn::TAVOVersion next{0, minorNumber};
    if (!directory.logNames.empty()) next.major_number = directory.logNames.rbegin()->first.major_number;
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

std::string SaveVersion(const ShowDirectory& directory, CL::ChangeLog& log, const cmn::TAVOVersion& version) {
    log.GetVersion() = version;
    log.SetDirectory(directory.path);
    std::string path = log.Save("");
    const bool opensByItself = directory.logNames.empty() || version > directory.logNames.rbegin()->first;
    ChooseChangeLog(directory.SettingsPath(), opensByItself ? "" : kit::path::basename(path));
    return path;
}

}  // namespace stage
