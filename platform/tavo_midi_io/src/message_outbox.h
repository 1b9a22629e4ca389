#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <optional>
#include <span>

#include "kit/spsc_queue.h"

namespace tavo_midi_io {

/// Messages on their way into a port's buffers, which a server takes cycle by cycle. One thread sends, another one, the
/// process callback, writes; both sides are wait-free and real-time safe.
class MessageOutbox {
public:
    static constexpr std::size_t LongestMessage = 255;

    /// For the sending thread. False, and nothing is done, for a message that is too long or empty, or where 64 wait.
    [[nodiscard]] bool Push(std::span<const unsigned char> bytes) {
        if (bytes.empty() || bytes.size() > LongestMessage) return false;
        Message message{static_cast<unsigned char>(bytes.size()), {}};
        std::copy(bytes.begin(), bytes.end(), message.bytes);
        if (!messages_.Push(message)) return false;
        ++pushed_;
        return true;
    }
    /// For the sending thread: whether the server has taken every message, and whether it never could take one.
    [[nodiscard]] bool IsAllTaken() const { return taken_.load(std::memory_order_acquire) == pushed_; }
    [[nodiscard]] bool HasRefused() const { return hasRefused_.load(std::memory_order_acquire); }

    /// A cycle begins: the server has taken what the cycles before have written.
    void BeginCycle() { taken_.store(written_, std::memory_order_release); }
    /// Writes what fits into the cycle's buffer, which is empty at the call; the rest waits for the next cycle.
    /// `write(bytes, size)` is false where a message has no room.
    template <class Write>
    void WriteTo(Write write) {
        bool isEmpty = true;
        for (Message message; Next_(message); isEmpty = false) {
            if (write(message.bytes, std::size_t{message.size})) {
                ++written_;
                continue;
            }
            if (!isEmpty) {
                left_ = message;
                return;
            }
            // No buffer will ever have room for it, and those behind it are not to wait forever.
            hasRefused_.store(true, std::memory_order_release);
            ++written_;
        }
    }

    /// While neither side uses it.
    void Clear() {
        for (Message message; Next_(message);) {
        }
        pushed_ = written_ = 0;
        taken_ = 0;
        hasRefused_ = false;
    }

private:
    struct Message {
        unsigned char size = 0;
        unsigned char bytes[LongestMessage] = {};
    };

    bool Next_(Message& message) {
        if (!left_) return messages_.Pop(message);
        message = *left_;
        left_.reset();
        return true;
    }

    kit::SpscQueue<Message, 64> messages_;
    std::size_t pushed_ = 0;  ///< the sending thread's
    // The process callback's:
    std::optional<Message> left_;  ///< did not fit into the cycle before
    std::size_t written_ = 0;

    std::atomic<std::size_t> taken_{0};
    std::atomic<bool> hasRefused_{false};
};

}  // namespace tavo_midi_io
