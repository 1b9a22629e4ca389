#pragma once

#include <filesystem>
#include <string>
#include <thread>

#include "kit/file.h"
#include "kit/thread_exception_log.h"
#include "tests/support/log_of_lines.h"
#include "tests/support/temporary_directory.h"

namespace test_support {

/// The thread exception log of this process for a scope, in a file of its own.
class ExceptionLog {
public:
    ExceptionLog() : pathBefore_(kit::GetThreadExceptionLogPath()) { kit::SetThreadExceptionLogPath(path_); }
    ~ExceptionLog() { kit::SetThreadExceptionLogPath(pathBefore_); }
    ExceptionLog(const ExceptionLog&) = delete;
    ExceptionLog& operator=(const ExceptionLog&) = delete;

    [[nodiscard]] std::string Read() const {
        return std::filesystem::exists(path_) ? kit::ReadFile(path_, 1U << 20U) : std::string();
    }
    /// Waits until another thread has logged a line with the text.
    [[nodiscard]] bool WaitFor(const std::string& text) const {
        const auto end = std::chrono::steady_clock::now() + Patience;
        while (std::chrono::steady_clock::now() < end) {
            if (Read().find(text) != std::string::npos) return true;
            std::this_thread::yield();
        }
        return false;
    }

private:
    const TemporaryDirectory directory_;
    const std::string path_ = directory_ / "tavo.threaderr";
    const std::string pathBefore_;
};

}  // namespace test_support
