#pragma once

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tavo_midi_io/install_midi_ports.h"
#include "tests/support/sanitizers.h"

/// Real processes around the test: a JACK server with its dummy driver in a /dev/shm of the test's own, and devices on
/// it.
namespace test_support {

/// A child process with pipes to its standard input and output.
class Child {
public:
    explicit Child(std::vector<std::string> words) {
        int in[2];
        int out[2];
        if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0) return;
        std::vector<char*> arguments;
        for (std::string& word : words)
            arguments.push_back(word.data());
        arguments.push_back(nullptr);
        pid_ = ::fork();
        if (pid_ == 0) {
            ::dup2(in[0], 0);
            ::dup2(out[1], 1);
            ::execvp(arguments[0], arguments.data());
            ::_exit(127);
        }
        ::close(in[0]);
        ::close(out[1]);
        in_ = ::fdopen(in[1], "w");
        out_ = ::fdopen(out[0], "r");
    }
    ~Child() { End(SIGTERM); }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    /// What the program answered at its end, 0 if all was well.
    int End(int signal) {
        if (pid_ <= 0) return 0;
        int status = 0;
        ::kill(pid_, signal);
        // One that stands still ends only when it goes on.
        ::kill(pid_, SIGCONT);
        ::waitpid(pid_, &status, 0);
        pid_ = -1;
        std::fclose(in_);
        if (reader_.joinable()) reader_.join();
        std::fclose(out_);
        return status;
    }
    [[nodiscard]] pid_t GetPid() const { return pid_; }
    void Signal(int signal) { ::kill(pid_, signal); }
    void Write(const std::string& line) {
        std::fputs((line + "\n").c_str(), in_);
        std::fflush(in_);
    }
    std::string ReadLine() {
        std::string text;
        char part[256];
        while (std::fgets(part, sizeof part, out_) != nullptr) {
            text += part;
            if (text.back() != '\n') continue;
            text.pop_back();
            break;
        }
        return text;
    }
    /// From now on lines are taken by a thread and handed out by NextLine.
    void CollectLines() {
        reader_ = std::thread([this] {
            for (std::string line = ReadLine(); !line.empty(); line = ReadLine()) {
                const auto moment = std::chrono::steady_clock::now();
                const std::lock_guard lock(mutex_);
                lines_.emplace_back(line, moment);
                changed_.notify_all();
            }
        });
    }
    std::optional<std::string> NextLine(std::chrono::milliseconds patience = std::chrono::seconds(5)) {
        std::unique_lock lock(mutex_);
        if (!changed_.wait_for(lock, patience, [this] { return !lines_.empty(); })) return std::nullopt;
        std::string line = std::move(lines_.front().first);
        momentOfLine_ = lines_.front().second;
        lines_.pop_front();
        return line;
    }
    /// When the line came that NextLine answered last.
    [[nodiscard]] std::chrono::steady_clock::time_point GetMomentOfLine() const { return momentOfLine_; }

private:
    pid_t pid_ = -1;
    std::FILE* in_ = nullptr;
    std::FILE* out_ = nullptr;
    std::thread reader_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<std::pair<std::string, std::chrono::steady_clock::time_point>> lines_;
    std::chrono::steady_clock::time_point momentOfLine_;
};

/// Gives the process a /dev/shm of its own, once; false where that is not permitted. To be called while it has one
/// thread.
inline bool EnterOwnSharedMemory() {
    static const bool isEntered = [] {
        return ::unshare(CLONE_NEWNS) == 0 && ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
               ::mount("tmpfs", "/dev/shm", "tmpfs", 0, nullptr) == 0;
    }();
    return isEntered;
}

/// Starts a server and waits until it runs; null if none comes up. It waits for its clients (-S): without that it goes
/// on over those that a busy machine holds up, and loses what they send in that cycle.
inline std::unique_ptr<Child> StartJackServer(const std::string& options = "-S", unsigned int framesPerSecond = 48000,
                                              unsigned int periodFrames = 128) {
    auto server = std::make_unique<Child>(
        std::vector<std::string>{"sh", "-c",
                                 "exec jackd -R -P 70 " + options + " -d dummy -r " + std::to_string(framesPerSecond) +
                                     " -p " + std::to_string(periodFrames) + " >/dev/null 2>&1"});
    // jack_wait looks once a second only.
    Child wait(
        {"sh", "-c", "for look in $(seq 500); do jack_lsp >/dev/null 2>&1 && echo up && exit; sleep 0.02; done"});
    if (wait.ReadLine() != "up") return nullptr;
    return server;
}

/// Starts the test's server in a /dev/shm of its own and has the process see the computer's MIDI ports; returns why a
/// test has to be skipped, else nothing.
inline std::string PrepareJackServer(std::unique_ptr<Child>& server, unsigned int periodFrames = 128) {
    tavo_midi_io::InstallMidiPorts();
    if (!EnterOwnSharedMemory())
        return "A /dev/shm of its own, which a JACK server of its own needs, is not permitted here.";
    server = StartJackServer("-S", 48000, periodFrames);
    return server ? "" : "No JACK server with the dummy driver can be started here.";
}

}  // namespace test_support
