#include "stage/show/show_directory.h"

#include <algorithm>
#include <stdexcept>

#include "kit/path.h"

namespace stage {

namespace {

cmn::TAVOVersion ParseVersionInName(const std::string& name) {
    cmn::TAVOVersion version;
    version.SetWithFileName(name);
    return version;
}

/// A journal bears the name of its log with something after it; one of a log without a version is none of the show's.
void AddJournal(const std::string& name, ShowDirectory& show) {
    const std::string logName = name.substr(0, name.rfind('.'));
    if (kit::path::extension(logName) != ".logdata") return;
    try {
        show.journaledLogs.emplace(ParseVersionInName(logName), logName);
    } catch (const std::invalid_argument&) {
    }
}

}  // namespace

std::string ShowDirectory::ShowDataPath() const {
    return PathOf(showDataName);
}

std::string ShowDirectory::NewestLogPath() const {
    return PathOf(logNames.rbegin()->second);
}

std::string ShowDirectory::LogNameInUse(const Settings& settings) const {
    if (!settings.nextVersion.empty()) {
        cmn::TAVOVersion next;
        next.SetWithString(settings.nextVersion);
        if (const auto saved = logNames.find(next); saved != logNames.end()) return saved->second;
    }
    if (settings.changeLog.empty()) return logNames.rbegin()->second;
    const bool isThere = std::any_of(logNames.begin(), logNames.end(),
                                     [&](const auto& entry) { return entry.second == settings.changeLog; });
    if (!isThere)
        throw std::runtime_error("settings.json chooses the change log \"" + settings.changeLog +
                                 "\", which is not there; `stage log SHOW use` chooses another one");
    return settings.changeLog;
}

std::string ShowDirectory::LogPathInUse(const Settings& settings) const {
    return PathOf(LogNameInUse(settings));
}

std::string ShowDirectory::LogPathInUse() const {
    return LogPathInUse(ReadSettings(SettingsPath()));
}

std::string ShowDirectory::SettingsPath() const {
    return PathOf("settings.json");
}

std::string ShowDirectory::PathOf(const std::string& name) const {
    return kit::path::Join(path, name);
}

ShowDirectory ScanAnyDirectory(const std::string& path, std::vector<std::string>& problems) {
    ShowDirectory show;
    show.path = path;
    for (const std::string& name : kit::listdir(path)) {
        const std::string extension = kit::path::extension(name);
        if (extension == ".logdata") {
            try {
                show.logNames[ParseVersionInName(name)] = name;
            } catch (const std::invalid_argument& problem) {
                problems.push_back("the name of the change log \"" + name + "\" ends in no version: " + problem.what());
            }
        } else if (extension == ".journal") {
            AddJournal(name, show);
        } else if (extension == ".showdata") {
            show.showDataName = name;
        } else if (extension == ".score") {
            show.scoreName = name;
        }
    }
    return show;
}

ShowDirectory ScanShowDirectory(const std::string& path) {
    std::vector<std::string> problems;
    ShowDirectory show = ScanAnyDirectory(path, problems);
    if (!problems.empty()) throw std::invalid_argument(problems.front());
    if (show.showDataName.empty()) throw std::runtime_error("Cannot locate showdata file");
    if (show.logNames.empty()) throw std::runtime_error("Cannot locate change log file.");
    return show;
}

}  // namespace stage
