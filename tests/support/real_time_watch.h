#pragma once

#include <dlfcn.h>
#include <pthread.h>
#include <signal.h>
#include <sys/prctl.h>
#include <ucontext.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <cstdlib>

/// Counts what a stretch of code does that may make it wait: calls of the system (Linux' syscall user dispatch),
/// allocations and locks (its own malloc, free and pthread_mutex_lock in place of the library's). Included by one
/// source of a program.
namespace test_support {

class RealTimeWatch {
public:
    /// Whether the kernel hands system calls to the program.
    static bool CanWatch() {
#ifdef PR_SET_SYSCALL_USER_DISPATCH
        if (prctl(PR_SET_SYSCALL_USER_DISPATCH, PR_SYS_DISPATCH_ON, 0, 0, &selector_) != 0) return false;
        prctl(PR_SET_SYSCALL_USER_DISPATCH, PR_SYS_DISPATCH_OFF, 0, 0, nullptr);
        return true;
#else
        return false;
#endif
    }
    /// For each thread that is watched, before it is.
    static void PrepareThread() noexcept {
#ifdef PR_SET_SYSCALL_USER_DISPATCH
        if (isPrepared_) return;
        isPrepared_ = true;
        struct sigaction action {};
        action.sa_sigaction = &OnSystemCall_;
        action.sa_flags = SA_SIGINFO;
        sigaction(SIGSYS, &action, nullptr);
        prctl(PR_SET_SYSCALL_USER_DISPATCH, PR_SYS_DISPATCH_ON, 0, 0, &selector_);
#endif
    }

    class Scope {
    public:
        Scope() noexcept {
            isWatching_ = true;
            selector_ = Block;
        }
        ~Scope() {
            selector_ = Allow;
            isWatching_ = false;
        }
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;
    };

    static void Reset() {
        systemCalls_ = allocations_ = locks_ = 0;
    }
    static int CountSystemCalls() {
        return systemCalls_;
    }
    static int CountAllocations() {
        return allocations_;
    }
    static int CountLocks() {
        return locks_;
    }

    static void NoteAllocation() noexcept {
        if (isWatching_) ++allocations_;
    }
    static void NoteLock() noexcept {
        if (isWatching_) ++locks_;
    }

private:
    static constexpr char Allow = 0;
    static constexpr char Block = 1;

    // Counted, and answered with an error: the stretch goes on.
    static void OnSystemCall_(int /*signal*/, siginfo_t* /*info*/, void* context) {
        selector_ = Allow;
        ++systemCalls_;
#ifdef __x86_64__
        static_cast<ucontext_t*>(context)->uc_mcontext.gregs[REG_RAX] = -38;
#else
        static_cast<void>(context);
#endif
    }

    static inline thread_local char selector_ = Allow;
    static inline thread_local bool isPrepared_ = false;
    static inline thread_local bool isWatching_ = false;
    static inline std::atomic<int> systemCalls_{0};
    static inline std::atomic<int> allocations_{0};
    static inline std::atomic<int> locks_{0};
};

}  // namespace test_support

#ifndef TAVO_SANITIZED
// In place of the library's, for the whole program.

extern "C" {
void* __libc_malloc(std::size_t size);
void __libc_free(void* memory);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);

void* malloc(std::size_t size) noexcept {
    test_support::RealTimeWatch::NoteAllocation();
    return __libc_malloc(size);
}
void free(void* memory) noexcept {
    test_support::RealTimeWatch::NoteAllocation();
    __libc_free(memory);
}
void* calloc(std::size_t count, std::size_t size) noexcept {
    test_support::RealTimeWatch::NoteAllocation();
    return __libc_calloc(count, size);
}
void* realloc(void* memory, std::size_t size) noexcept {
    test_support::RealTimeWatch::NoteAllocation();
    return __libc_realloc(memory, size);
}
int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
    using Lock = int (*)(pthread_mutex_t*);
    static Lock library = nullptr;
    if (library == nullptr) library = reinterpret_cast<Lock>(dlsym(RTLD_NEXT, "pthread_mutex_lock"));
    test_support::RealTimeWatch::NoteLock();
    return library(mutex);
}
}
#endif
