#pragma once

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/temporary_directory.h"

namespace test_support {

struct ProgramResult {
    /// 128 and the signal's number where one ended the program.
    int exitCode = -1;
    std::string out;
    std::string err;
    long peakMegabytes = 0;
};

inline std::string ReadAll(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

inline void WriteAll(const std::string& path, const std::string& bytes) {
    std::ofstream file(path, std::ios::binary);
    file << bytes;
    if (!file.flush()) throw std::runtime_error("cannot write " + path);
}

/// Runs a program to its end. One that computes for longer than a minute is killed.
inline ProgramResult RunProgram(const std::vector<std::string>& words) {
    const TemporaryDirectory directory;
    const std::string outPath = directory / "out";
    const std::string errPath = directory / "err";
    std::vector<char*> arguments;
    for (const std::string& word : words)
        arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    const pid_t child = ::fork();
    if (child < 0) throw std::runtime_error("cannot fork");
    if (child == 0) {
        const rlimit limit{60, 60};
        ::setrlimit(RLIMIT_CPU, &limit);
        ::dup2(::open("/dev/null", O_RDONLY), STDIN_FILENO);
        ::dup2(::open(outPath.c_str(), O_WRONLY | O_CREAT, 0600), STDOUT_FILENO);
        ::dup2(::open(errPath.c_str(), O_WRONLY | O_CREAT, 0600), STDERR_FILENO);
        ::execv(arguments[0], arguments.data());
        ::_exit(127);
    }
    int status = 0;
    rusage usage{};
    if (::wait4(child, &status, 0, &usage) != child) throw std::runtime_error("cannot wait");
    ProgramResult result;
    result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    result.out = ReadAll(outPath);
    result.err = ReadAll(errPath);
    result.peakMegabytes = usage.ru_maxrss / 1024;
    return result;
}

#ifdef STAGE_BINARY
/// Runs the host program, where it is built.
inline ProgramResult RunStage(std::vector<std::string> words) {
    words.insert(words.begin(), STAGE_BINARY);
    return RunProgram(words);
}
#endif

}  // namespace test_support
