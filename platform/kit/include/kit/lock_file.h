#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace kit {

/// Another program holds the file.
class FileInUseError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A file that exists to be locked: one object has it at a time, on this machine and, as far as a network file system
/// carries POSIX record locks to its server (NFS with its lock service, SMB), on all machines that share the directory.
/// The lock belongs to the open file (F_OFD_SETLK) and ends with its owner, however that ends; the file stays. Failures
/// are std::runtime_error with one sentence that names the file. Not thread-safe; blocks on the disk.
class LockFile {
public:
    /// Makes the file where it is missing, and waits for the lock for at most `wait`: FileInUseError where another has
    /// it for longer. `note` is what FindHolder gives to others meanwhile; it may get lost on a full disk.
    LockFile(const std::string& path, std::string_view note, std::chrono::milliseconds wait);
    ~LockFile();
    LockFile(const LockFile&) = delete;
    LockFile& operator=(const LockFile&) = delete;

    /// Throws where the file was removed or replaced meanwhile: another may have locked the one that is there now.
    void RequireStillThere() const;

    /// The note of whoever has the lock, empty where it cannot be read; none where nobody has it. Does not disturb
    /// whoever tries to get it.
    [[nodiscard]] static std::optional<std::string> FindHolder(const std::string& path);

private:
    struct Held;
    const std::string path_;
    std::unique_ptr<Held> held_;
};

}  // namespace kit
