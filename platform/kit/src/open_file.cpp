#include "open_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <stdexcept>
#include <system_error>
#include <utility>

#include "kit/file.h"
#include "kit/path.h"

namespace kit {

OpenFile::OpenFile(OpenFile&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}

OpenFile& OpenFile::operator=(OpenFile&& other) noexcept {
    OpenFile taken(std::move(other));
    std::swap(descriptor_, taken.descriptor_);
    return *this;
}

int OpenFile::Close() {
    if (!IsOpen() || ::close(std::exchange(descriptor_, -1)) == 0) return 0;
    // Linux has let go of the descriptor by then: closing it again could hit another file.
    return errno == EINTR ? 0 : errno;
}

OpenFile Open(const std::string& path, int flags, unsigned int mode) {
    return OpenFile(Uninterrupted([&] { return ::open(path.c_str(), flags, mode); }));
}

int WriteAll(int descriptor, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = Uninterrupted([&] { return ::write(descriptor, bytes.data(), bytes.size()); });
        if (written < 0) return errno;
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return 0;
}

int Synchronise(int descriptor) {
    return Uninterrupted([&] { return ::fsync(descriptor); }) == 0 ? 0 : errno;
}

int SynchroniseDirectory(int directory) {
    // Some file systems cannot synchronise a directory and say EINVAL: nothing is to be done there.
    const int error = Synchronise(directory);
    return error == EINVAL ? 0 : error;
}

namespace {

// A byte that no file of ours reaches: where locks are mandatory, as on some network file systems, others can still
// read what stands in the file.
constexpr off_t LockedByte = 0x40000000;

struct flock MakeLock() {
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    lock.l_start = LockedByte;
    lock.l_len = 1;
    return lock;
}

}  // namespace

int TryToLock(int descriptor) {
    struct flock lock = MakeLock();
    if (Uninterrupted([&] { return ::fcntl(descriptor, F_OFD_SETLK, &lock); }) == 0) return 0;
    return errno == EACCES ? EWOULDBLOCK : errno;
}

bool IsLockedElsewhere(int descriptor) {
    struct flock lock = MakeLock();
    return Uninterrupted([&] { return ::fcntl(descriptor, F_OFD_GETLK, &lock); }) == 0 && lock.l_type != F_UNLCK;
}

int CheckIsStillAt(const std::string& path, int descriptor) {
    struct stat here {};
    struct stat there {};
    if (::fstat(descriptor, &here) != 0 || ::stat(path.c_str(), &there) != 0) return errno;
    return here.st_dev == there.st_dev && here.st_ino == there.st_ino ? 0 : ENOENT;
}

std::string GetDirectory(const std::string& path) {
    const std::string directory = path.substr(0, path.size() - path::basename(path).size());
    return directory.empty() ? "." : directory;
}

std::string NameForErrors(const std::string& path) {
    return "the file \"" + path + "\" ";
}

void ThrowCannotRead(const std::string& path, int error) {
    if (error == ENOENT) throw std::runtime_error(NameForErrors(path) + "does not exist");
    throw std::runtime_error(NameForErrors(path) + "cannot be read: " + std::system_category().message(error));
}

void ThrowCannotWrite(const std::string& path, int error) {
    if (error == EEXIST) throw FileExistsError(NameForErrors(path) + "exists already and is not overwritten");
    throw std::runtime_error(NameForErrors(path) + "cannot be written: " + std::system_category().message(error));
}

}  // namespace kit
