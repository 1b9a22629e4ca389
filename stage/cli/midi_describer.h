#pragma once

#include <array>
#include <span>
#include <string>

/// Says what messages of time code, show control and machine control mean to a reader.
class MidiDescriber {
public:
    /// What the message, one of those that came in order, says; empty for other messages, and for a quarter frame that
    /// does not complete an address.
    [[nodiscard]] std::string Describe(std::span<const unsigned char> message);

private:
    [[nodiscard]] std::string DescribeQuarterFrame_(unsigned char data);

    std::array<unsigned char, 8> halves_{};
    int lastPiece_ = -1;
    int direction_ = 0;  // +1 forwards, -1 backwards, 0 not known yet
    int piecesInOrder_ = 0;
};
