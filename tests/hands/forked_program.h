#pragma once

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <exception>
#include <functional>
#include <iostream>
#include <stdexcept>
#include <string>

#include "tests/support/run_program.h"

namespace test_support {

struct ForkedResult {
    ProgramResult program;
    double seconds = 0;     // by the clock on the wall
    double cpuSeconds = 0;  // that it computed, which nobody else's work lengthens
};

/// The text of a file that has no name.
inline std::string ReadWhole(int descriptor) {
    std::string text(static_cast<std::size_t>(::lseek(descriptor, 0, SEEK_END)), '\0');
    if (::pread(descriptor, text.data(), text.size(), 0) != static_cast<ssize_t>(text.size())) text.clear();
    ::close(descriptor);
    return text;
}

/// Runs `body` as a program of its own, which begins much sooner than one that is loaded; it is ended after a minute.
/// `body` returns the exit code; what it throws is printed and is 1. For processes with one thread.
inline ForkedResult RunForked(const std::function<int()>& body, const std::string& input = "") {
    const int in = ::memfd_create("in", 0);
    const int out = ::memfd_create("out", 0);
    const int err = ::memfd_create("err", 0);
    if (::write(in, input.data(), input.size()) < 0) throw std::runtime_error("cannot write");
    ::lseek(in, 0, SEEK_SET);
    std::cout.flush();
    const auto begin = std::chrono::steady_clock::now();
    const pid_t child = ::fork();
    if (child < 0) throw std::runtime_error("cannot fork");
    if (child == 0) {
        ::alarm(60);
        ::dup2(in, STDIN_FILENO);
        ::dup2(out, STDOUT_FILENO);
        ::dup2(err, STDERR_FILENO);
        int exitCode = 1;
        try {
            exitCode = body();
        } catch (const std::exception& problem) {
            std::cerr << "stage: " << problem.what() << '\n';
        }
        std::cout.flush();
        std::fflush(nullptr);
        ::_exit(exitCode);
    }
    int status = 0;
    rusage usage{};
    if (::wait4(child, &status, 0, &usage) != child) throw std::runtime_error("cannot wait");
    ForkedResult result;
    result.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    const auto asSeconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    result.cpuSeconds = asSeconds(usage.ru_utime) + asSeconds(usage.ru_stime);
    result.program.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    result.program.peakMegabytes = usage.ru_maxrss / 1024;
    ::close(in);
    result.program.out = ReadWhole(out);
    result.program.err = ReadWhole(err);
    return result;
}

}  // namespace test_support
