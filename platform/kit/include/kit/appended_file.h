#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "kit/lock_file.h"

namespace kit {

/// A file that only grows at its end and is held by one object on the machine at a time. Failures are
/// std::runtime_error with one sentence that names the file. Not thread-safe; blocks on the disk.
class AppendedFile {
public:
    /// Opens the file or makes an empty one, and locks it as a LockFile is. FileInUseError where another holds it.
    explicit AppendedFile(const std::string& path);
    /// Lets go of the file, which stays.
    ~AppendedFile();
    AppendedFile(const AppendedFile&) = delete;
    AppendedFile& operator=(const AppendedFile&) = delete;

    /// Bytes of the file as far as they were added durably: what an Append that threw may have left does not count.
    [[nodiscard]] std::uintmax_t GetSize() const { return size_; }

    /// Adds the bytes, durably. Where that fails the file has its former length again, or zeros in their place. Where
    /// that fails as well, the failure was one of flushing, or the file is no longer at its path, the object adds
    /// nothing more; a new one may. The sentence says so where nothing could be taken back.
    void Append(std::string_view bytes);
    /// Cuts the file off, durably.
    void Truncate(std::uintmax_t size);
    /// Takes the name away, durably, and lets go of the file; the object is done then.
    void Remove();

    /// Whether an object holds the file at this moment, in whatever program. Does not disturb it.
    [[nodiscard]] static bool IsHeld(const std::string& path);

private:
    struct Held;
    [[nodiscard]] bool TakeBack();
    [[noreturn]] void TakeBackAndThrow(int error);

    std::string path_;
    std::unique_ptr<Held> held_;
    std::uintmax_t size_ = 0;
    bool isBroken_ = false;
};

}  // namespace kit
