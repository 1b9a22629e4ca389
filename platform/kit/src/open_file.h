#pragma once

#include <cerrno>
#include <string>
#include <string_view>

/// What the durable writers share. Results that are an int are 0 or the system's error number; a call that a signal
/// interrupts is made again.
namespace kit {

/// Repeats a system call for as long as a signal interrupts it.
template <class Call>
auto Uninterrupted(Call call) {
    auto result = call();
    while (result < 0 && errno == EINTR)
        result = call();
    return result;
}

/// Closes a file at the end of its scope.
class OpenFile {
public:
    OpenFile() = default;
    explicit OpenFile(int descriptor) : descriptor_(descriptor) {}
    ~OpenFile() { static_cast<void>(Close()); }
    OpenFile(OpenFile&& other) noexcept;
    OpenFile& operator=(OpenFile&& other) noexcept;
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;

    [[nodiscard]] bool IsOpen() const { return descriptor_ >= 0; }
    [[nodiscard]] int Get() const { return descriptor_; }
    /// Some file systems report a failed write only here.
    [[nodiscard]] int Close();

private:
    int descriptor_ = -1;
};

/// As open(2); errno says why it failed.
[[nodiscard]] OpenFile Open(const std::string& path, int flags, unsigned int mode = 0);
[[nodiscard]] int WriteAll(int descriptor, std::string_view bytes);
[[nodiscard]] int Synchronise(int descriptor);
[[nodiscard]] int SynchroniseDirectory(int directory);

/// Locks the file for this open file alone, as LockFile's comment says; 0, EWOULDBLOCK where another has it, or another
/// error. The file is open for writing.
[[nodiscard]] int TryToLock(int descriptor);
/// Whether another open file has it locked. The file is open for reading.
[[nodiscard]] bool IsLockedElsewhere(int descriptor);
/// Whether the path still leads to the open file: whoever held it before may have removed it. 0, ENOENT where it does
/// not, or another error.
[[nodiscard]] int CheckIsStillAt(const std::string& path, int descriptor);

/// The directory part of a path, "." where there is none.
[[nodiscard]] std::string GetDirectory(const std::string& path);

/// The beginning of a sentence about a file.
[[nodiscard]] std::string NameForErrors(const std::string& path);
[[noreturn]] void ThrowCannotRead(const std::string& path, int error);
/// EEXIST becomes FileExistsError.
[[noreturn]] void ThrowCannotWrite(const std::string& path, int error);

}  // namespace kit
