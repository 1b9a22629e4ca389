#pragma once

#include <string>

/// The process's show and settings directories, which the façade sets when it opens a show. Thread-safe, never
/// destroyed; empty until set. Paths are kept as they are given: nothing is checked, and nobody is notified of a
/// change.
class Directories {
public:
    /// The show's own files: music, edits, sounds and `settings.json`.
    static void SetShowDirectory(const std::string& path);
    /// A copy of what was set last.
    [[nodiscard]] static std::string GetShowDirectory();
    /// What belongs to the machine: MIDI settings and the file for what escapes a thread. May be the same.
    static void SetSettingsDirectory(const std::string& path);
    /// A copy of what was set last.
    [[nodiscard]] static std::string GetSettingsDirectory();
};
