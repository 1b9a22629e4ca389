#include "tests/saving/traced_child.h"

#include <fcntl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <filesystem>
#include <initializer_list>
#include <stdexcept>
#include <string>
#include <system_error>

namespace test_support {

#if defined(__x86_64__)

namespace {

using Registers = user_regs_struct;

bool IsOneOf(std::uint64_t call, std::initializer_list<long> calls) {
    return std::find(calls.begin(), calls.end(), static_cast<long>(call)) != calls.end();
}

bool Writes(const Registers& registers) {
    const bool opensForWriting = registers.orig_rax == SYS_openat && (registers.rdx & (O_WRONLY | O_RDWR)) != 0;
    return opensForWriting || IsOneOf(registers.orig_rax, {SYS_write, SYS_fsync, SYS_rename, SYS_renameat2, SYS_link,
                                                           SYS_unlink, SYS_ftruncate});
}

bool TouchesFiles(const Registers& registers) {
    return Writes(registers) ||
           IsOneOf(registers.orig_rax, {SYS_openat, SYS_read, SYS_close, SYS_fcntl, SYS_fstat, SYS_stat, SYS_newfstatat,
                                        SYS_statx, SYS_getdents64, SYS_lseek});
}

/// Calls that the system may break off for a signal's sake.
bool CanBeInterrupted(const Registers& registers) {
    return IsOneOf(registers.orig_rax,
                   {SYS_openat, SYS_read, SYS_write, SYS_fsync, SYS_close, SYS_ftruncate, SYS_fcntl});
}

/// A pipe is no file of a show. A sanitizer asks by one whether memory can be read, and takes no other answer than its
/// own.
bool WritesToPipe(pid_t child, const Registers& registers) {
    if (registers.orig_rax != SYS_write) return false;
    std::error_code ignored;
    const std::filesystem::path target = std::filesystem::read_symlink(
        "/proc/" + std::to_string(child) + "/fd/" + std::to_string(registers.rdi), ignored);
    return target.native().starts_with("pipe:");
}

/// Follows one process from stop to stop.
class Tracer {
public:
    Tracer(pid_t child, int talk, const Fault& fault) : child_(child), talk_(talk), fault_(fault) {}

    /// Until the process has ended and been waited for.
    void Follow(ChildResult& result) {
        int status = 0;
        for (;;) {
            // Fails where the process was killed: it only waits to be waited for then.
            static_cast<void>(::ptrace(PTRACE_SYSCALL, child_, nullptr, signal_));
            signal_ = 0;
            if (::waitpid(child_, &status, 0) != child_ || WIFSIGNALED(status)) return;
            if (WIFEXITED(status)) {
                result.finished = WEXITSTATUS(status) == 0;
                return;
            }
            if (WSTOPSIG(status) != (SIGTRAP | 0x80)) {
                signal_ = WSTOPSIG(status);
                continue;
            }
            isInside_ = !isInside_;
            if (isInside_) {
                Enter(result);
            } else {
                Leave();
            }
        }
    }

private:
    void Enter(ChildResult& result) {
        Registers registers{};
        ::ptrace(PTRACE_GETREGS, child_, nullptr, &registers);
        const bool speaks = registers.orig_rax == SYS_write && registers.rdi == static_cast<std::uint64_t>(talk_);
        words_ += speaks ? 1 : 0;
        if (speaks || words_ < fault_.afterWords) return;
        if (fault_.kind == Fault::Kind::Kill) {
            if (++count_ != fault_.call) return;
            result.wasFaulted = true;
            ::kill(child_, SIGKILL);
            return;
        }
        if (fault_.error == EINTR ? !CanBeInterrupted(registers) : !TouchesFiles(registers)) return;
        if (WritesToPipe(child_, registers)) return;
        ++count_;
        const bool isIt = count_ == fault_.call;
        const bool failsOn =
            count_ >= fault_.call &&
            ((fault_.kind == Fault::Kind::ErrorsOn && Writes(registers)) ||
             (fault_.kind == Fault::Kind::ErrorNoCutBack && (isIt || registers.orig_rax == SYS_ftruncate)));
        result.wasFaulted |= isIt && fault_.kind != Fault::Kind::None;
        if (fault_.kind == Fault::Kind::ShortWrite && isIt && registers.orig_rax == SYS_write) {
            registers.rdx = (registers.rdx + 1) / 2;
            ::ptrace(PTRACE_SETREGS, child_, nullptr, &registers);
        } else if ((fault_.kind == Fault::Kind::Error && isIt) || failsOn) {
            // The kernel refuses a call of this number and does nothing.
            registers.orig_rax = ~std::uint64_t{0};
            ::ptrace(PTRACE_SETREGS, child_, nullptr, &registers);
            lies_ = true;
        }
    }

    void Leave() {
        if (!lies_) return;
        lies_ = false;
        Registers registers{};
        ::ptrace(PTRACE_GETREGS, child_, nullptr, &registers);
        registers.rax = static_cast<std::uint64_t>(-static_cast<std::int64_t>(fault_.error));
        ::ptrace(PTRACE_SETREGS, child_, nullptr, &registers);
    }

    pid_t child_;
    int talk_;
    Fault fault_;
    unsigned int count_ = 0;
    std::size_t words_ = 0;
    bool isInside_ = false;
    bool lies_ = false;
    int signal_ = 0;
};

[[noreturn]] void BeChild(int talk, const std::function<void(std::function<void(char)>)>& body) {
    if (::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) ::_exit(77);
    ::raise(SIGSTOP);
    body([talk](char c) {
        if (::write(talk, &c, 1) != 1) ::_exit(3);
    });
    ::_exit(0);
}

}  // namespace

ChildResult RunTraced(const Fault& fault, const std::function<void(std::function<void(char)>)>& body) {
    int ends[2];
    if (::pipe(ends) != 0) throw std::runtime_error("cannot make a pipe");
    const pid_t child = ::fork();
    if (child < 0) throw std::runtime_error("cannot fork");
    if (child == 0) {
        ::close(ends[0]);
        BeChild(ends[1], body);
    }
    ChildResult result;
    int status = 0;
    ::waitpid(child, &status, 0);
    result.couldTrace = WIFSTOPPED(status) &&
                        ::ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL) == 0;
    if (result.couldTrace) {
        Tracer(child, ends[1], fault).Follow(result);
    } else if (WIFSTOPPED(status)) {
        ::kill(child, SIGKILL);
        ::waitpid(child, &status, 0);
    }
    ::close(ends[1]);
    char said = 0;
    while (::read(ends[0], &said, 1) == 1)
        result.said += said;
    ::close(ends[0]);
    return result;
}

#else

ChildResult RunTraced(const Fault&, const std::function<void(std::function<void(char)>)>&) {
    ChildResult result;
    result.couldTrace = false;
    return result;
}

#endif

}  // namespace test_support
