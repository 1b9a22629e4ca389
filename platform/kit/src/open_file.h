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

/// The directory part of a path, "." where there is none.
[[nodiscard]] std::string GetDirectory(const std::string& path);

/// The beginning of a sentence about a file.
[[nodiscard]] std::string NameForErrors(const std::string& path);
[[noreturn]] void ThrowCannotRead(const std::string& path, int error);
/// EEXIST becomes FileExistsError.
[[noreturn]] void ThrowCannotWrite(const std::string& path, int error);

}  // namespace kit
