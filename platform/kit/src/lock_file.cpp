#include "kit/lock_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <thread>

#include "open_file.h"

namespace kit {

namespace {

constexpr unsigned int ModeOfLockFile = 0666;
constexpr std::size_t LongestNote = 1000;
constexpr std::chrono::milliseconds BetweenTries{10};

/// The file at the path, locked; not open where another has it.
OpenFile OpenLocked(const std::string& path) {
    for (;;) {
        OpenFile file = Open(path, O_RDWR | O_CREAT | O_CLOEXEC | O_NONBLOCK, ModeOfLockFile);
        if (!file.IsOpen()) ThrowCannotWrite(path, errno);
        struct stat status {};
        if (::fstat(file.Get(), &status) != 0) ThrowCannotWrite(path, errno);
        if (!S_ISREG(status.st_mode)) throw std::runtime_error(NameForErrors(path) + "is not a regular file");
        const int refusal = TryToLock(file.Get());
        if (refusal == EWOULDBLOCK) return {};
        if (refusal != 0) ThrowCannotWrite(path, refusal);
        const int error = CheckIsStillAt(path, file.Get());
        if (error == 0) return file;
        if (error != ENOENT) ThrowCannotWrite(path, error);
    }
}

}  // namespace

struct LockFile::Held {
    OpenFile file;
};

LockFile::LockFile(const std::string& path, std::string_view note, std::chrono::milliseconds wait)
    : path_(path), held_(std::make_unique<Held>()) {
    const auto end = std::chrono::steady_clock::now() + wait;
    for (;;) {
        held_->file = OpenLocked(path);
        if (held_->file.IsOpen()) break;
        if (std::chrono::steady_clock::now() >= end)
            throw FileInUseError(NameForErrors(path) + "is in use by another program");
        std::this_thread::sleep_for(BetweenTries);
    }
    // Only for others to read: a holder without a note holds it as well.
    if (Uninterrupted([&] { return ::ftruncate(held_->file.Get(), 0); }) == 0)
        static_cast<void>(WriteAll(held_->file.Get(), note.substr(0, LongestNote)));
}

LockFile::~LockFile() {
    static_cast<void>(!Uninterrupted([&] { return ::ftruncate(held_->file.Get(), 0); }));
}

void LockFile::RequireStillThere() const {
    const int error = CheckIsStillAt(path_, held_->file.Get());
    if (error == 0) return;
    if (error != ENOENT) ThrowCannotWrite(path_, error);
    throw std::runtime_error(NameForErrors(path_) + "was removed or replaced while it was in use");
}

std::optional<std::string> LockFile::FindHolder(const std::string& path) {
    const OpenFile file = Open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (!file.IsOpen() || !IsLockedElsewhere(file.Get())) return std::nullopt;
    std::array<char, LongestNote> note{};
    const ssize_t length = Uninterrupted([&] { return ::read(file.Get(), note.data(), note.size()); });
    return std::string(note.data(), length < 0 ? 0 : static_cast<std::size_t>(length));
}

}  // namespace kit
