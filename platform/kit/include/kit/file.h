#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

namespace kit {

/// The target of a write that must not replace anything is there already.
class FileExistsError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A file stands under its name, but whether it stays there after a power failure is not known.
class UnconfirmedError : public std::runtime_error {
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
/// then. UnconfirmedError where the file is whole in its place, the directory could not be synchronised, and taking the
/// file away again failed as well. Thread-safe; blocks on the disk.
void WriteNewFileDurably(const std::string& path, std::string_view bytes);

/// The same, but an existing file is replaced and keeps its permissions; after a crash either the old or the new one is
/// there.
void ReplaceFileDurably(const std::string& path, std::string_view bytes);

/// Gives a finished directory another name in the same directory: all its files appear there at once, and after a crash
/// it has either the old name or the new one. `to` may be an empty directory. Throws std::runtime_error with one
/// sentence that names `to` and the system's reason; the directory then has its old name. Blocks on the disk.
void RenameDirectoryDurably(const std::string& from, const std::string& to);

/// What happens to a file that has the name already. Keep: it stays and the new one is refused (FileExistsError).
/// Replace: the new one takes its place and its permissions.
enum class ExistingFile { Keep, Replace };

/// The same for a file that comes in pieces and need not fit into memory. Nothing stands under its name, or what stood
/// there before, until Commit returns; without Commit nothing is left behind. Each operation throws as the functions
/// above do; after a throw the object can only be destroyed. Blocks on the disk.
class DurableWriter {
public:
    /// Makes an empty temporary file in the directory of `path`, which must be there.
    DurableWriter(const std::string& path, ExistingFile existing);
    ~DurableWriter();
    DurableWriter(const DurableWriter&) = delete;
    DurableWriter& operator=(const DurableWriter&) = delete;

    /// Adds to what was written before; any number of times, pieces of any length.
    void Write(std::string_view bytes);
    /// Once, after the last piece.
    void Commit();

private:
    class Target;
    std::unique_ptr<Target> target_;
};

}  // namespace kit
