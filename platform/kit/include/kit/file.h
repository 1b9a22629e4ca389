#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

namespace kit {

/// The target of a write that must not replace anything is there already.
class FileExistsError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// All bytes of a regular file. Throws std::runtime_error with one sentence that names the file: missing, a directory,
/// longer than maxBytes, unreadable. Reads at most one byte beyond maxBytes, whatever size is announced. Blocks on the
/// disk.
[[nodiscard]] std::string ReadFile(const std::string& path, std::uintmax_t maxBytes);

/// Writes a file so that a crash at any moment leaves either no file or the whole one: a temporary file beside it is
/// written, synchronised and renamed, then the directory is synchronised. Throws FileExistsError if the target exists,
/// otherwise std::runtime_error with one sentence that names the file and the system's reason; nothing is left behind
/// then.
void WriteNewFileDurably(const std::string& path, std::string_view bytes);

/// The same, but an existing file is replaced and keeps its permissions; after a crash either the old or the new one is
/// there.
void ReplaceFileDurably(const std::string& path, std::string_view bytes);

}  // namespace kit
