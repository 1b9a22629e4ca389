#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tavo_core/log_change.h"

/// The text of a journal: a line for the log it belongs to, a line for each change, perhaps one for the log it was
/// saved in. A line is a JSON object that begins with a checksum of all that follows and of the lines before.
namespace tavo_core::journal {

inline constexpr std::uintmax_t LongestFile = 256U << 20U;

/// A 64-bit FNV-1a hash, going on from `before`.
[[nodiscard]] std::uint64_t Hash(std::string_view bytes, std::uint64_t before = 0xcbf29ce484222325U);

/// A hash of the edits and attacca states of a log, however it is called and whatever its version.
[[nodiscard]] std::string HashOfEdits(const CL::ChangeLog& log);

/// Which content of which log a journal belongs to.
struct Origin {
    std::string logName;
    /// Bytes of the log's file; none where there was no file.
    std::optional<std::uintmax_t> bytes;
    std::string hash;

    bool operator==(const Origin&) const = default;
};
/// The file's of that path. Throws std::runtime_error where it is there and cannot be read.
[[nodiscard]] Origin FindOrigin(const std::string& logPath);

/// One line with its line end; `newerLogs` are the names of newer versions that are there already. `chain` is the
/// checksum of the line before and becomes that of this one.
[[nodiscard]] std::string WriteOrigin(const Origin& origin, const std::vector<std::string>& newerLogs,
                                      std::uint64_t& chain);
[[nodiscard]] std::string WriteChange(const CL::LogChange& change, const std::string& stateAfter, std::uint64_t& chain);
[[nodiscard]] std::string WriteSavedIn(const std::string& logName, std::uint64_t& chain);

struct Text {
    std::optional<Origin> origin;
    std::vector<std::string> newerLogs;
    std::vector<CL::LogChange> changes;
    /// HashOfEdits after the last change.
    std::string stateAfter;
    std::string savedIn;
    /// Bytes of the lines that are good, from the start, and the last one's checksum.
    std::uintmax_t goodBytes = 0;
    std::uint64_t chain = 0;
    std::vector<std::string> problems;
};
/// Reads a journal's text up to the first line that is torn or damaged. Throws std::runtime_error with one sentence
/// where it is not a journal; `name` stands for the file.
[[nodiscard]] Text Read(const std::string& text, const std::string& name);

}  // namespace tavo_core::journal
