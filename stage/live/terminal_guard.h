#pragma once

#include <termios.h>

#include <string>

namespace stage {

/// Leaves the terminal as it was, on whatever way the program goes out, while it is armed. One at a time.
class TerminalGuard {
public:
    /// `settings` are those of standard input from before, and `restoring` is what has to be written to the terminal
    /// `output`. Standard output becomes that again, and standard error `formerError`, for whatever reports a crash.
    /// From here on std::terminate and the signals that end a program are answered; the first SIGTERM or SIGINT is only
    /// counted.
    static void Arm(int output, int formerError, const termios& settings, const std::string& restoring);
    /// The owner has restored the terminal.
    static void Disarm();
    /// Whether SIGTERM or SIGINT came since it was armed.
    [[nodiscard]] static bool IsAskedToEnd();
};

}  // namespace stage
