#pragma once

#include <chrono>
#include <string>

/// Tells on the standard error stream how far long work is: on a terminal in one line that is cleared at the end, else
/// in a line every second, from the first second on.
class Progress {
public:
    Progress();
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// `done` of `total` steps are over; `next` names what comes.
    void Report(std::size_t done, std::size_t total, const std::string& next);

private:
    bool isTerminal_;
    bool isShown_ = false;
    std::chrono::steady_clock::time_point last_;
};
