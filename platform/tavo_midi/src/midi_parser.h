#pragma once

#include <cstddef>
#include <functional>
#include <span>
#include <vector>

namespace tavo_midi {

/// Cuts a stream of bytes into whole messages (MIDI 1.0): running status is written out, real-time bytes may stand in
/// the middle of other messages, and what fits nowhere is passed over. Memory is bounded.
class MidiParser {
public:
    using Message = std::span<const unsigned char>;
    /// A longer System Exclusive message is passed over.
    static constexpr std::size_t LongestMessage = 65536;

    explicit MidiParser(std::function<void(Message)> deliver) : deliver_(std::move(deliver)) {}

    void Feed(Message bytes);
    /// Forgets a message that has begun, as after the loss of a port.
    void Reset();

private:
    void FeedByte_(unsigned char byte);
    void FeedStatus_(unsigned char status);
    void FeedData_(unsigned char byte);
    void EndSystemExclusive_();

    const std::function<void(Message)> deliver_;
    std::vector<unsigned char> message_;
    std::size_t length_ = 0;  ///< of the whole message; 0 while none has begun
    bool isSystemExclusive_ = false;
    bool isTooLong_ = false;
};

}  // namespace tavo_midi
