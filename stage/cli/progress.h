#pragma once

#include <chrono>
#include <functional>
#include <string>

/// Tells on the standard error stream how far long work is, from the first second on: on a terminal, in one line that
/// is cut to its width and cleared at the end; silent elsewhere.
class Progress {
public:
    Progress();
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// `done` of `total` steps are over; `next` names what comes.
    void Report(std::size_t done, std::size_t total, const std::string& next);
    /// The same in words of its own, which are asked for only when they are shown.
    void Tell(const std::function<std::string()>& describe);
    /// Takes the line away.
    void Clear();

private:
    bool isTerminal_;
    bool isShown_ = false;
    std::chrono::steady_clock::time_point next_;
};
