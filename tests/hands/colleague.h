#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <exception>
#include <functional>
#include <iostream>
#include <stdexcept>
#include <string>

namespace test_support {

/// Lets one process wait for another. To be made before they are forked; is opened once or several times and stays
/// open.
class Gate {
public:
    Gate() {
        if (::pipe(ends_) != 0) throw std::runtime_error("cannot make a pipe");
    }
    ~Gate() {
        ::close(ends_[0]);
        ::close(ends_[1]);
    }
    Gate(const Gate&) = delete;
    Gate& operator=(const Gate&) = delete;

    void Open() const {
        const char token = 0;
        while (::write(ends_[1], &token, 1) != 1)
            ;
    }
    /// For one process alone. A call that fails is made again: a tracer may have lied.
    void Wait() const {
        char token = 0;
        while (::read(ends_[0], &token, 1) != 1)
            ;
    }

private:
    int ends_[2] = {-1, -1};
};

/// Somebody who works on a show at the same time, as a process of its own; it is ended after a minute. For processes
/// with one thread.
class Colleague {
public:
    explicit Colleague(const std::function<void()>& work) {
        if (::pipe(ends_) != 0) throw std::runtime_error("cannot make a pipe");
        std::cout.flush();
        child_ = ::fork();
        if (child_ < 0) throw std::runtime_error("cannot fork");
        if (child_ == 0) Be(work);
        ::close(ends_[1]);
    }
    ~Colleague() {
        ::close(ends_[0]);
        if (child_ > 0) ::waitpid(child_, nullptr, 0);
    }
    Colleague(const Colleague&) = delete;
    Colleague& operator=(const Colleague&) = delete;

    /// Waits for the end of the work: empty where it was done, else what it threw.
    std::string Finish() {
        std::string problem;
        char c = 0;
        while (::read(ends_[0], &c, 1) == 1)
            problem += c;
        int status = 0;
        ::waitpid(child_, &status, 0);
        child_ = -1;
        if (problem.empty() && status != 0) problem = "the program ended with status " + std::to_string(status);
        return problem;
    }

private:
    [[noreturn]] void Be(const std::function<void()>& work) const {
        ::alarm(60);
        int exitCode = 0;
        try {
            work();
        } catch (const std::exception& problem) {
            const std::string sentence = problem.what();
            exitCode = ::write(ends_[1], sentence.data(), sentence.size()) > 0 ? 0 : 1;
        }
        ::_exit(exitCode);
    }

    int ends_[2] = {-1, -1};
    pid_t child_ = -1;
};

}  // namespace test_support
