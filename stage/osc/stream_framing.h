#pragma once

#include <cstddef>
#include <deque>
#include <optional>
#include <span>
#include <vector>

namespace stage {

/// How packets lie one after the other in a stream.
enum class StreamFraming {
    Length,  ///< four bytes before each packet hold its length, the highest first (OSC 1.0)
    Slip,    ///< a byte 192 before and after each, as RFC 1055 writes it (OSC 1.1)
};

[[nodiscard]] std::vector<char> Frame(StreamFraming framing, std::span<const char> packet);

/// Takes the packets out of a stream's bytes as they come. The first byte says how they are framed: a packet that is
/// framed by its length begins with a zero, since none is as long as 16 MB.
class StreamReader {
public:
    /// Throws std::invalid_argument with one sentence without a full stop where the stream cannot be OSC; nothing more
    /// can be read from it then.
    void Take(std::span<const char> bytes);
    /// The next whole packet.
    [[nodiscard]] std::optional<std::vector<char>> Next();
    /// Length before anything was taken.
    [[nodiscard]] StreamFraming GetFraming() const { return framing_.value_or(StreamFraming::Length); }

private:
    void TakeSlip_(char byte);
    void TakeLengths_();

    std::optional<StreamFraming> framing_;
    bool isEscaped_ = false;
    std::vector<char> bytes_;  // of a packet that is not whole yet
    std::deque<std::vector<char>> packets_;
};

}  // namespace stage
