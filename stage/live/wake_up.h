#pragma once

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <system_error>

namespace stage {

/// Ends a thread's wait for input early. Rings that nobody has waited for yet are one.
class WakeUp {
public:
    /// Throws std::system_error where the system has no descriptor to give.
    WakeUp() : descriptor_(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
        if (descriptor_ < 0) throw std::system_error(errno, std::generic_category());
    }
    ~WakeUp() { ::close(descriptor_); }
    WakeUp(const WakeUp&) = delete;
    WakeUp& operator=(const WakeUp&) = delete;

    /// Any thread; never blocks.
    void Ring() noexcept {
        const std::uint64_t one = 1;
        // It fails where it has rung more often than can be counted, and has rung then.
        [[maybe_unused]] const ssize_t written = ::write(descriptor_, &one, sizeof one);
    }
    /// For the thread that waits.
    void Clear() noexcept {
        std::uint64_t count = 0;
        [[maybe_unused]] const ssize_t taken = ::read(descriptor_, &count, sizeof count);
    }
    /// To be polled for input.
    [[nodiscard]] int GetDescriptor() const { return descriptor_; }

private:
    const int descriptor_;
};

}  // namespace stage
