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
#include "open_file.h"

namespace kit {

namespace {

constexpr std::uintmax_t ReadStep = 1U << 16U;
constexpr mode_t ModeOfNewFile = 0666;

void CheckIsRegular(const std::string& path, const struct stat& status) {
    if (S_ISDIR(status.st_mode)) throw std::runtime_error(NameForErrors(path) + "is a directory");
    if (!S_ISREG(status.st_mode)) throw std::runtime_error(NameForErrors(path) + "is not a regular file");
}

void CheckSize(const std::string& path, std::uintmax_t bytes, std::uintmax_t maxBytes) {
    if (bytes <= maxBytes) return;
    throw std::runtime_error(NameForErrors(path) + "is larger than the " + std::to_string(maxBytes) + " bytes allowed");
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
        if (const int error = WriteAll(file_.Get(), bytes); error != 0) ThrowCannotWrite(target_, error);
    }

    void Finish() {
        if (const int error = Synchronise(file_.Get()); error != 0) ThrowCannotWrite(target_, error);
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
    [[nodiscard]] OpenFile Create() {
        static constinit std::atomic<unsigned int> counter = 0;
        OpenFile file;
        do {
            path_ = path::Join(GetDirectory(target_),
                               ".tavo-" + std::to_string(::getpid()) + "-" + std::to_string(counter++) + ".tmp");
            file = Open(path_, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, ModeOfNewFile);
        } while (!file.IsOpen() && errno == EEXIST);
        return file;
    }

    const std::string& target_;
    std::string path_;
    bool isLeftOver_ = true;
    OpenFile file_;
};

}  // namespace

std::string ReadFile(const std::string& path, std::uintmax_t maxBytes) {
    // Non-blocking, so that a pipe under this name is refused instead of waited for.
    const OpenFile file = Open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
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
        const ssize_t count =
            Uninterrupted([&] { return ::read(file.Get(), bytes.data() + length, bytes.size() - length); });
        if (count < 0) ThrowCannotRead(path, errno);
        if (count == 0) break;
        length += static_cast<std::size_t>(count);
        CheckSize(path, length, maxBytes);
        if (length == bytes.size())
            bytes.resize(length + static_cast<std::size_t>(std::min(ReadStep, maxBytes - length + 1)));
    }
    bytes.resize(length);
    return bytes;
}

class DurableWriter::Target {
public:
    Target(const std::string& path, ExistingFile existing)
        : path_(path), existing_(existing), directory_(OpenDirectory(path)), temporary_(path_, existing) {}

    void Write(std::string_view bytes) { temporary_.Write(bytes); }

    void Commit() {
        temporary_.Finish();
        temporary_.BecomeTarget(existing_);
        if (const int error = SynchroniseDirectory(directory_.Get()); error != 0) {
            if (existing_ == ExistingFile::Keep && ::unlink(path_.c_str()) == 0) ThrowCannotWrite(path_, error);
            throw UnconfirmedError(NameForErrors(path_) + "is written, but its directory cannot be synchronised: " +
                                   std::system_category().message(error));
        }
    }

private:
    static OpenFile OpenDirectory(const std::string& path) {
        // Opened first: where the directory cannot be synchronised later, nothing must be written at all.
        OpenFile directory = Open(GetDirectory(path), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (!directory.IsOpen()) ThrowCannotWrite(path, errno);
        return directory;
    }

    const std::string path_;
    const ExistingFile existing_;
    OpenFile directory_;
    TemporaryFile temporary_;
};

DurableWriter::DurableWriter(const std::string& path, ExistingFile existing)
    : target_(std::make_unique<Target>(path, existing)) {}

DurableWriter::~DurableWriter() = default;

void DurableWriter::Write(std::string_view bytes) {
    target_->Write(bytes);
}

void DurableWriter::Commit() {
    target_->Commit();
}

namespace {

void WriteDurably(const std::string& path, std::string_view bytes, ExistingFile existing) {
    DurableWriter writer(path, existing);
    writer.Write(bytes);
    writer.Commit();
}

}  // namespace

void WriteNewFileDurably(const std::string& path, std::string_view bytes) {
    WriteDurably(path, bytes, ExistingFile::Keep);
}

void ReplaceFileDurably(const std::string& path, std::string_view bytes) {
    WriteDurably(path, bytes, ExistingFile::Replace);
}

namespace {

std::string WithoutLastSeparators(std::string path) {
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
    return path;
}

void CheckDirectoryWasMade(const std::string& path, int error) {
    if (error == 0) return;
    throw std::runtime_error("the directory \"" + path +
                             "\" cannot be made: " + std::error_code(error, std::generic_category()).message());
}

}  // namespace

void RenameDirectoryDurably(const std::string& from, const std::string& to) {
    const std::string parent = GetDirectory(WithoutLastSeparators(to));
    const OpenFile directory = Open(parent, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    CheckDirectoryWasMade(to, directory.IsOpen() ? 0 : errno);
    CheckDirectoryWasMade(to, ::rename(from.c_str(), to.c_str()) == 0 ? 0 : errno);
    const int error = SynchroniseDirectory(directory.Get());
    if (error != 0) static_cast<void>(::rename(to.c_str(), from.c_str()));
    CheckDirectoryWasMade(to, error);
}

}  // namespace kit
