#pragma once

#include <memory>
#include <string>

#include "tests/midi_ports/jack_server.h"

namespace test_support {

/// A session as a process of its own.
class SessionProgram {
public:
    explicit SessionProgram(const std::string& show)
        : child_(std::make_unique<Child>(std::vector<std::string>{SESSION_HAND, show})), opening_(child_->ReadLine()) {}

    /// "ok VERSION COUNT PROBLEM": the version that opened, how many edits are offered, and why edits are refused.
    [[nodiscard]] const std::string& Opening() const { return opening_; }
    [[nodiscard]] bool IsOpen() const { return opening_.starts_with("ok "); }
    std::string Ask(const std::string& line) {
        child_->Write(line);
        return child_->ReadLine();
    }
    bool Does(const std::string& line) { return Ask(line).starts_with("ok "); }
    void Kill() { child_->End(SIGKILL); }
    void Quit() {
        child_->Write("quit");
        child_->ReadLine();
        child_->End(SIGTERM);
    }

private:
    std::unique_ptr<Child> child_;
    std::string opening_;
};

}  // namespace test_support
