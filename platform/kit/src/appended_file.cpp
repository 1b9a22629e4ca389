#include "kit/appended_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>

#include "open_file.h"

namespace kit {

namespace {

constexpr unsigned int ModeOfAppendedFile = 0666;

}  // namespace

struct AppendedFile::Held {
    OpenFile directory;
    OpenFile file;
};

AppendedFile::AppendedFile(const std::string& path) : path_(path), held_(std::make_unique<Held>()) {
    held_->directory = Open(GetDirectory(path), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (!held_->directory.IsOpen()) ThrowCannotWrite(path, errno);
    for (int error = ENOENT; error != 0;) {
        held_->file = Open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NONBLOCK, ModeOfAppendedFile);
        if (!held_->file.IsOpen()) ThrowCannotWrite(path, errno);
        if (const int refusal = TryToLock(held_->file.Get()); refusal != 0) {
            if (refusal != EWOULDBLOCK) ThrowCannotWrite(path, refusal);
            throw FileInUseError(NameForErrors(path) + "is in use by another program");
        }
        error = CheckIsStillAt(path, held_->file.Get());
        if (error != 0 && error != ENOENT) ThrowCannotWrite(path, error);
    }

    struct stat status {};
    if (::fstat(held_->file.Get(), &status) != 0) ThrowCannotWrite(path, errno);
    if (!S_ISREG(status.st_mode)) throw std::runtime_error(NameForErrors(path) + "is not a regular file");
    size_ = static_cast<std::uintmax_t>(status.st_size);
    // Whoever made the file may have died before its name was durable.
    if (const int error = SynchroniseDirectory(held_->directory.Get()); error != 0) ThrowCannotWrite(path, error);
}

AppendedFile::~AppendedFile() = default;

void AppendedFile::Append(std::string_view bytes) {
    if (isBroken_)
        throw std::runtime_error(NameForErrors(path_) +
                                 "could not be written to before, and nobody knows what the disk holds of it");
    if (const int error = WriteAll(held_->file.Get(), bytes); error != 0) TakeBackAndThrow(error);
    if (const int error = Synchronise(held_->file.Get()); error != 0) {
        // The system forgets what it could not write: a later flush would succeed without it.
        isBroken_ = true;
        TakeBackAndThrow(error);
    }
    // A file without its name would be gone with this program.
    if (const int error = CheckIsStillAt(path_, held_->file.Get()); error != 0) {
        isBroken_ = true;
        if (error != ENOENT) TakeBackAndThrow(error);
        static_cast<void>(TakeBack());
        throw std::runtime_error(NameForErrors(path_) + "was removed or moved while it was in use");
    }
    size_ += bytes.size();
}

bool AppendedFile::TakeBack() {
    const auto length = static_cast<off_t>(size_);
    if (Uninterrupted([&] { return ::ftruncate(held_->file.Get(), length); }) == 0) return true;
    isBroken_ = true;
    // Bytes that stay must at least not be read as what they were.
    const int file = held_->file.Get();
    const int flags = ::fcntl(file, F_GETFL);
    if (flags < 0 || ::fcntl(file, F_SETFL, flags & ~O_APPEND) != 0) return false;
    const off_t end = ::lseek(file, 0, SEEK_END);
    if (end < 0 || ::lseek(file, length, SEEK_SET) < 0) return false;
    return end <= length || WriteAll(file, std::string(static_cast<std::size_t>(end - length), '\0')) == 0;
}

void AppendedFile::TakeBackAndThrow(int error) {
    if (TakeBack()) ThrowCannotWrite(path_, error);
    throw std::runtime_error(NameForErrors(path_) + "cannot be written: " + std::system_category().message(error) +
                             "; it may hold all the same what was to be added");
}

void AppendedFile::Truncate(std::uintmax_t size) {
    const auto length = static_cast<off_t>(size);
    if (Uninterrupted([&] { return ::ftruncate(held_->file.Get(), length); }) != 0) ThrowCannotWrite(path_, errno);
    size_ = size;
    if (const int error = Synchronise(held_->file.Get()); error != 0) {
        isBroken_ = true;
        ThrowCannotWrite(path_, error);
    }
}

void AppendedFile::Remove() {
    if (::unlink(path_.c_str()) != 0 && errno != ENOENT) ThrowCannotWrite(path_, errno);
    const int error = SynchroniseDirectory(held_->directory.Get());
    held_.reset();
    if (error != 0) ThrowCannotWrite(path_, error);
}

bool AppendedFile::IsHeld(const std::string& path) {
    const OpenFile file = Open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    return file.IsOpen() && IsLockedElsewhere(file.Get());
}

}  // namespace kit
