#pragma once

#include <exception>
#include <string>
#include <string_view>

namespace kit {

/// The file for exceptions that escape a worker thread. Empty at first. Thread-safe.
void SetThreadExceptionLogPath(const std::string& path);
/// What was set last. Thread-safe; waits for a line that is being written.
[[nodiscard]] std::string GetThreadExceptionLogPath();

/// Appends one line: UTC time, name of the calling thread, text (line ends in it become spaces). Writes to stderr if no
/// path is set or the file cannot be written. Thread-safe; never throws; blocks on the disk.
void AppendToThreadExceptionLog(std::string_view text) noexcept;

/// Does the step; where it throws a std::exception, appends that and answers false. For threads that go on whatever
/// happens to one of their steps.
template <class Step>
bool RunLogged(Step&& step) {
    try {
        step();
        return true;
    } catch (const std::exception& problem) {
        AppendToThreadExceptionLog(problem.what());
        return false;
    }
}

}  // namespace kit
