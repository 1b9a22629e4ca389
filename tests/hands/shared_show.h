#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "stage/show/show_directory.h"
#include "tavo_core/change_log.h"
#include "tests/hands/tick_of.h"
#include "tests/stage/small_show.h"

namespace test_support {

/// How often something is done: as the environment variable says, else `few` times.
inline int CountRounds(const char* variable, int few) {
    const char* text = std::getenv(variable);
    return text == nullptr ? few : std::atoi(text);
}

/// Lets temporary directories lie in memory: thousands of flushes are made, and what reaches a disk is not the
/// question.
class OnMemoryDisk {
protected:
    OnMemoryDisk() {
        if (const char* directory = std::getenv("TMPDIR")) before_ = directory;
        if (::access("/dev/shm", W_OK) == 0) ::setenv("TMPDIR", "/dev/shm", 1);
    }
    ~OnMemoryDisk() {
        if (before_)
            ::setenv("TMPDIR", before_->c_str(), 1);
        else
            ::unsetenv("TMPDIR");
    }

private:
    std::optional<std::string> before_;
};

/// The small show, in a folder that several programs share.
class SharedShow : private OnMemoryDisk, public SmallShow {
protected:
    [[nodiscard]] std::string Path(const std::string& name) const { return Show() + "/" + name; }
    [[nodiscard]] ProgramResult Log(std::vector<std::string> words) const {
        words.insert(words.begin(), {"log", Show()});
        return RunStage(words);
    }
    [[nodiscard]] stage::ShowDirectory Scan() const { return stage::ScanShowDirectory(Show()); }
    [[nodiscard]] CL::ChangeLog LogInUse() const { return CL::ChangeLog::Load(Scan().LogPathInUse()); }
    [[nodiscard]] std::string VersionInUse() const { return LogInUse().GetVersion().GetAsString(); }

    /// The texts of the markers of song 2, each as often as it is there.
    [[nodiscard]] static std::multiset<std::string> MarkersOf(const CL::ChangeLog& log) {
        std::multiset<std::string> texts;
        for (const CL::Marker& marker : log.GetSongLog("2").GetMarkers())
            texts.insert(marker.value());
        return texts;
    }
    [[nodiscard]] ProgramResult AddMarker(const std::string& text) const {
        const std::string place = "t" + std::to_string(TickOf(text));
        return RunStage({"edit", Show(), "add", "marker", "--song", "2", "--at", place, "--text", text});
    }
    [[nodiscard]] std::vector<std::string> LogFiles() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(Show())) {
            if (entry.path().extension() == ".logdata") names.push_back(entry.path().filename().string());
        }
        return names;
    }
};

}  // namespace test_support
