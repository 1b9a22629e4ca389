#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/run_program.h"
#include "tests/support/temporary_directory.h"

namespace test_support {

/// A terminal with a shell in it, in a tmux server of its own.
class Terminal {
public:
    Terminal(int columns, int rows) {
        ::mkfifo(Changes_().c_str(), 0600);
        // Both ends, so that nobody waits for the other.
        changes_ = ::open(Changes_().c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
        isOpen_ = Tmux({"new-session", "-d", "-x", std::to_string(columns), "-y", std::to_string(rows),
                        "ulimit -c 0; PS1='$ ' exec sh"})
                      .exitCode == 0;
        Tmux({"pipe-pane", "cat >'" + Changes_() + "'"});
    }
    ~Terminal() {
        Tmux({"kill-server"});
        ::close(changes_);
    }
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    /// False where there is no tmux.
    [[nodiscard]] bool IsOpen() const { return isOpen_; }

    ProgramResult Tmux(std::vector<std::string> words) const {
        const std::vector<std::string> program{
            "/usr/bin/env", "TMUX_TMPDIR=" + (directory_ / ""), "tmux", "-f", "/dev/null", "-u", "-L", "screen"};
        words.insert(words.begin(), program.begin(), program.end());
        return RunProgram(words);
    }
    /// In tmux's names: "Space", "Escape", "q".
    void Press(std::vector<std::string> keys) const {
        keys.insert(keys.begin(), "send-keys");
        Tmux(std::move(keys));
    }
    void RunInShell(const std::string& line) const {
        Tmux({"send-keys", "-l", line});
        Press({"Enter"});
    }
    [[nodiscard]] std::string Capture() const { return Tmux({"capture-pane", "-p"}).out; }
    [[nodiscard]] std::vector<std::string> CaptureLines() const {
        std::vector<std::string> lines;
        std::istringstream stream(Capture());
        for (std::string line; std::getline(stream, line);)
            lines.push_back(line);
        return lines;
    }
    /// Of tmux's variables of the terminal: "alternate_on".
    [[nodiscard]] std::string Ask(const std::string& variable) const {
        const std::string answer = Tmux({"display-message", "-p", "#{" + variable + "}"}).out;
        return answer.substr(0, answer.find('\n'));
    }

    /// Until the text is on the terminal; a failure after 20 seconds without.
    bool WaitFor(const std::string& text) {
        return WaitUntil([&] { return Capture().find(text) != std::string::npos; }, "\"" + text + "\" on it");
    }
    bool WaitUntil(const std::function<bool()>& isSo, const std::string& what) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (!isSo()) {
            if (std::chrono::steady_clock::now() > end) {
                ADD_FAILURE() << "the terminal never had " << what << ":\n" << Capture();
                return false;
            }
            pollfd change{changes_, POLLIN, 0};
            ::poll(&change, 1, 1000);
            char bytes[4096];
            while (::read(changes_, bytes, sizeof bytes) > 0) {
            }
        }
        return true;
    }

private:
    [[nodiscard]] std::string Changes_() const { return directory_ / "changes"; }

    TemporaryDirectory directory_;
    int changes_ = -1;
    bool isOpen_ = false;
};

}  // namespace test_support
