#pragma once

#include <map>
#include <string>
#include <vector>

#include "stage/show/settings.h"
#include "tavo_core/tavo_version.h"

namespace stage {

/// What a show directory holds. File names are bare, without the directory.
struct ShowDirectory {
    std::string path;
    /// The last `.showdata` file in the order of names.
    std::string showDataName;
    /// The `.logdata` files by the version in their names; of two files with one version the later name.
    std::map<cmn::TAVOVersion, std::string> logNames;
    /// The logs that have a journal beside them, by version; the logs themselves need not be there.
    std::multimap<cmn::TAVOVersion, std::string> journaledLogs;
    /// The last `.score` file; empty where there is none.
    std::string scoreName;

    [[nodiscard]] std::string ShowDataPath() const;
    /// The log of the highest version.
    [[nodiscard]] std::string NewestLogPath() const;
    /// The bare name of the log that opens: the one that the settings choose, or announced and is there by now, else
    /// that of the highest version. Throws std::runtime_error with one sentence where they choose one that is not
    /// there.
    [[nodiscard]] std::string LogNameInUse(const Settings& settings) const;
    /// Its path.
    [[nodiscard]] std::string LogPathInUse(const Settings& settings) const;
    /// Its path by the show's own settings.json, which is read.
    [[nodiscard]] std::string LogPathInUse() const;
    [[nodiscard]] std::string SettingsPath() const;
    /// The path of a file that an edit names, relative to the show.
    [[nodiscard]] std::string PathOf(const std::string& name) const;
};

/// Scans the directory by the same rules as the player does: extensions are compared whole and with case, a log's
/// version is what follows the last '-' of its name. Throws std::runtime_error with one sentence where the directory
/// cannot be read or holds no show data or no log, std::invalid_argument for a log whose name holds no version.
[[nodiscard]] ShowDirectory ScanShowDirectory(const std::string& path);

/// The same without the demand that show data and a log are there: an empty name or map stands for what is missing. A
/// log whose name holds no version is left out, and a sentence about it appended to `problems`.
[[nodiscard]] ShowDirectory ScanAnyDirectory(const std::string& path, std::vector<std::string>& problems);

}  // namespace stage
