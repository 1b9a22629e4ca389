#include "kit/thread_exception_log.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>

#include "kit/mutex.h"
#include "kit/thread_names.h"

namespace kit {

namespace {

struct Log {
    Mutex mutex;
    std::string path KIT_GUARDED_BY(mutex);
};

// Never destroyed, because worker threads may outlive static objects.
Log& GetLog() {
    static Log& log = *new Log;
    return log;
}

std::string FormatUtcNow() {
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    gmtime_r(&now, &parts);
    char text[sizeof "2000-01-01T00:00:00Z"];
    const std::size_t length = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
    return std::string(text, length);
}

bool WriteText(int file, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = ::write(file, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

bool AppendToFile(const std::string& path, std::string_view line) {
    if (path.empty()) return false;
    const int file = ::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NONBLOCK, 0666);
    if (file < 0) return false;
    const bool written = WriteText(file, line);
    ::close(file);
    return written;
}

}  // namespace

void SetThreadExceptionLogPath(const std::string& path) {
    Log& log = GetLog();
    const MutexLock lock(log.mutex);
    log.path = path;
}

std::string GetThreadExceptionLogPath() {
    Log& log = GetLog();
    const MutexLock lock(log.mutex);
    return log.path;
}

void AppendToThreadExceptionLog(std::string_view text) noexcept {
    try {
        std::string line = FormatUtcNow() + " [" + threadNames.GetNameOfCurrentThread() + "] ";
        line += text;
        std::replace_if(
            line.begin(), line.end(), [](char c) { return c == '\n' || c == '\r'; }, ' ');
        line += '\n';
        Log& log = GetLog();
        const MutexLock lock(log.mutex);
        if (!AppendToFile(log.path, line)) WriteText(STDERR_FILENO, line);
    } catch (...) {
        // No memory for the line: the bare text is better than nothing.
        WriteText(STDERR_FILENO, text);
    }
}

}  // namespace kit
