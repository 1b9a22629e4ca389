#include "stage/live/terminal_guard.h"

#include <fcntl.h>
#include <signal.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <exception>

namespace stage {

namespace {

// Signals that end the program unasked, and those by which somebody asks for its end.
constexpr std::array EndingSignals{SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT, SIGHUP, SIGQUIT, SIGTERM, SIGINT};

constexpr std::size_t SignalStackBytes = 1U << 16U;

/// What signal handlers read: nothing of it changes while the guard is armed.
struct Remembered {
    std::array<char, 256> restoring{};
    std::size_t restoringBytes = 0;
    termios settings{};
    int output = -1;
    int formerError = -1;
    int nowhere = -1;
    std::array<struct sigaction, EndingSignals.size()> actions{};
    std::terminate_handler terminate = nullptr;
    stack_t signalStack{};
    // Of the thread that arms, which may have run out of its own.
    std::array<char, SignalStackBytes> stack{};
};
Remembered remembered;

std::atomic<bool> isArmed{false};
std::atomic<int> timesAskedToEnd{0};
static_assert(std::atomic<bool>::is_always_lock_free && std::atomic<int>::is_always_lock_free);

/// Async-signal-safe.
void RestoreTerminal() {
    if (!isArmed.exchange(false)) return;
    const char* text = remembered.restoring.data();
    for (std::size_t left = remembered.restoringBytes; left > 0;) {
        const ssize_t written = write(remembered.output, text, left);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) break;
        text += written;
        left -= static_cast<std::size_t>(written);
    }
    tcsetattr(STDIN_FILENO, TCSANOW, &remembered.settings);
    dup2(remembered.output, STDOUT_FILENO);
    dup2(remembered.formerError, STDERR_FILENO);
    // A thread that is drawing just now must not draw on.
    dup2(remembered.nowhere, remembered.output);
}

void EndBySignal(int signal) {
    const int error = errno;
    const bool isRequest = signal == SIGTERM || signal == SIGINT;
    if (!isRequest || timesAskedToEnd.fetch_add(1) > 0) {
        RestoreTerminal();
        for (std::size_t i = 0; i < EndingSignals.size(); ++i)
            if (EndingSignals[i] == signal) sigaction(signal, &remembered.actions[i], nullptr);
        // Delivered when this handler returns.
        raise(signal);
    }
    errno = error;
}

[[noreturn]] void EndByTerminate() {
    RestoreTerminal();
    if (remembered.terminate != nullptr) remembered.terminate();
    std::abort();
}

}  // namespace

void TerminalGuard::Arm(int output, int formerError, const termios& settings, const std::string& restoring) {
    remembered.restoringBytes = std::min(restoring.size(), remembered.restoring.size());
    std::copy_n(restoring.begin(), remembered.restoringBytes, remembered.restoring.begin());
    remembered.settings = settings;
    remembered.output = output;
    remembered.formerError = formerError;
    remembered.nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    timesAskedToEnd = 0;
    isArmed = true;
    remembered.terminate = std::set_terminate(EndByTerminate);
    stack_t stack{};
    stack.ss_sp = remembered.stack.data();
    stack.ss_size = remembered.stack.size();
    sigaltstack(&stack, &remembered.signalStack);
    struct sigaction action {};
    action.sa_handler = EndBySignal;
    action.sa_flags = SA_ONSTACK | SA_RESTART;
    sigfillset(&action.sa_mask);
    for (std::size_t i = 0; i < EndingSignals.size(); ++i)
        sigaction(EndingSignals[i], &action, &remembered.actions[i]);
}

void TerminalGuard::Disarm() {
    if (!isArmed.exchange(false)) return;
    for (std::size_t i = 0; i < EndingSignals.size(); ++i)
        sigaction(EndingSignals[i], &remembered.actions[i], nullptr);
    std::set_terminate(remembered.terminate);
    sigaltstack(&remembered.signalStack, nullptr);
    close(remembered.nowhere);
}

bool TerminalGuard::IsAskedToEnd() {
    return timesAskedToEnd > 0;
}

}  // namespace stage
