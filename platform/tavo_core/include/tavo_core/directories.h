#pragma once

#include <string>

/// The process's show and settings directories. Thread-safe; empty until set.
class Directories {
public:
    static void SetShowDirectory(const std::string& path);
    [[nodiscard]] static std::string GetShowDirectory();
    static void SetSettingsDirectory(const std::string& path);
    [[nodiscard]] static std::string GetSettingsDirectory();
};
