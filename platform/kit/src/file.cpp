#include "kit/file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <system_error>
#include <utility>

#include "durable_rename.h"
#include "kit/path.h"

namespace kit {

namespace {

constexpr std::uintmax_t kReadStep = 1U << 16U;
constexpr mode_t kModeOfNewFile = 0666;

enum class ExistingFile { Keep, Replace };

/// Closes a file at the end of its scope.
class OpenFile {
public:
    explicit OpenFile(int descriptor) : descriptor_(descriptor) {}
    ~OpenFile() {
        if (descriptor_ >= 0) ::close(descriptor_);
    }
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;

    [[nodiscard]] bool IsOpen() const { return descriptor_ >= 0; }
    [[nodiscard]] int Get() const { return descriptor_; }
    /// 0 or the system's error number: some file systems report a failed write only here.
    [[nodiscard]] int Close() { return ::close(std::exchange(descriptor_, -1)) == 0 ? 0 : errno; }

private:
    int descriptor_;
};

std::string NameForErrors(const std::string& path) {
    return "the file \"" + path + "\" ";
}

[[noreturn]] void ThrowCannotRead(const std::string& path, int error) {
    if (error == ENOENT) throw std::runtime_error(NameForErrors(path) + "does not exist");
    throw std::runtime_error(NameForErrors(path) + "cannot be read: " + std::system_category().message(error));
}

[[noreturn]] void ThrowCannotWrite(const std::string& path, int error) {
    if (error == EEXIST) throw FileExistsError(NameForErrors(path) + "exists already and is not overwritten");
    throw std::runtime_error(NameForErrors(path) + "cannot be written: " + std::system_category().message(error));
}

void CheckIsRegular(const std::string& path, const struct stat& status) {
    if (S_ISDIR(status.st_mode)) throw std::runtime_error(NameForErrors(path) + "is a directory");
    if (!S_ISREG(status.st_mode)) throw std::runtime_error(NameForErrors(path) + "is not a regular file");
}

void CheckSize(const std::string& path, std::uintmax_t bytes, std::uintmax_t maxBytes) {
    if (bytes <= maxBytes) return;
    throw std::runtime_error(NameForErrors(path) + "is larger than the " + std::to_string(maxBytes) + " bytes allowed");
}

/// Empty if the path has no directory part.
std::string GetDirectory(const std::string& path) {
    return path.substr(0, path.size() - path::basename(path).size());
}

int SyncDirectory(int directory) {
    // Some file systems cannot synchronise a directory and say EINVAL: nothing is to be done there.
    return ::fsync(directory) == 0 || errno == EINVAL ? 0 : errno;
}

/// A new file in the directory of its target, removed at the end of the scope unless it has become the target.
class TemporaryFile {
public:
    /// Throws as the public writers do.
    TemporaryFile(const std::string& target, ExistingFile existing) : target_(target), file_(Create()) {
        if (!file_.IsOpen()) ThrowCannotWrite(target_, errno);
        struct stat status {};
        if (existing == ExistingFile::Replace && ::stat(target_.c_str(), &status) == 0)
            ::fchmod(file_.Get(), status.st_mode & 07777U);
    }
    ~TemporaryFile() {
        if (isLeftOver_) ::unlink(path_.c_str());
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    void Write(std::string_view bytes) {
        while (!bytes.empty()) {
            const ssize_t written = ::write(file_.Get(), bytes.data(), bytes.size());
            if (written < 0 && errno == EINTR) continue;
            if (written < 0) ThrowCannotWrite(target_, errno);
            bytes.remove_prefix(static_cast<std::size_t>(written));
        }
        if (::fsync(file_.Get()) != 0) ThrowCannotWrite(target_, errno);
        if (const int error = file_.Close(); error != 0) ThrowCannotWrite(target_, error);
    }

    void BecomeTarget(ExistingFile existing) {
        int error = 0;
        if (existing == ExistingFile::Keep)
            error = RenameWithoutReplacing(path_, target_);
        else if (::rename(path_.c_str(), target_.c_str()) != 0)
            error = errno;
        if (error != 0) ThrowCannotWrite(target_, error);
        isLeftOver_ = false;
    }

private:
    [[nodiscard]] int Create() {
        static constinit std::atomic<unsigned int> counter = 0;
        int descriptor = -1;
        do {
            path_ = GetDirectory(target_) + ".tavo-" + std::to_string(::getpid()) + "-" + std::to_string(counter++) +
                    ".tmp";
            descriptor = ::open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kModeOfNewFile);
        } while (descriptor < 0 && errno == EEXIST);
        return descriptor;
    }

    const std::string& target_;
    std::string path_;
    bool isLeftOver_ = true;
    OpenFile file_;
};

void WriteDurably(const std::string& path, std::string_view bytes, ExistingFile existing) {
    // Opened first: where the directory cannot be synchronised later, nothing must be written at all.
    const std::string directory = GetDirectory(path);
    const OpenFile openDirectory(
        ::open(directory.empty() ? "." : directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!openDirectory.IsOpen()) ThrowCannotWrite(path, errno);

    TemporaryFile temporary(path, existing);
    temporary.Write(bytes);
    temporary.BecomeTarget(existing);
    if (const int error = SyncDirectory(openDirectory.Get()); error != 0) {
        if (existing == ExistingFile::Keep) ::unlink(path.c_str());
        ThrowCannotWrite(path, error);
    }
}

}  // namespace

std::string ReadFile(const std::string& path, std::uintmax_t maxBytes) {
    // Non-blocking, so that a pipe under this name is refused instead of waited for.
    const OpenFile file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file.IsOpen()) ThrowCannotRead(path, errno);
    struct stat status {};
    if (::fstat(file.Get(), &status) != 0) ThrowCannotRead(path, errno);
    CheckIsRegular(path, status);
    const auto announcedBytes = static_cast<std::uintmax_t>(status.st_size);
    CheckSize(path, announcedBytes, maxBytes);

    // The size is only what the system announces: files of /proc announce none, and others grow while they are read.
    std::string bytes;
    std::size_t length = 0;
    bytes.resize(static_cast<std::size_t>(announcedBytes) + 1);
    while (true) {
        const ssize_t count = ::read(file.Get(), bytes.data() + length, bytes.size() - length);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) ThrowCannotRead(path, errno);
        if (count == 0) break;
        length += static_cast<std::size_t>(count);
        CheckSize(path, length, maxBytes);
        if (length == bytes.size())
            bytes.resize(length + static_cast<std::size_t>(std::min(kReadStep, maxBytes - length + 1)));
    }
    bytes.resize(length);
    return bytes;
}

void WriteNewFileDurably(const std::string& path, std::string_view bytes) {
    WriteDurably(path, bytes, ExistingFile::Keep);
}

void ReplaceFileDurably(const std::string& path, std::string_view bytes) {
    WriteDurably(path, bytes, ExistingFile::Replace);
}

}  // namespace kit
