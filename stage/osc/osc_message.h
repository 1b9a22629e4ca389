#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <variant>
#include <vector>

/// Messages of Open Sound Control 1.0 as values, and the packets that carry them; liblo reads and writes the format.
namespace stage {

/// An argument of a type that nothing here has a use for.
struct OscOther {
    char tag = 'b';

    bool operator==(const OscOther&) const = default;
};

/// i and h are whole numbers, f and d others, s and S text, T and F truth.
using OscValue = std::variant<std::int64_t, double, std::string, bool, OscOther>;

/// A plain value.
struct OscMessage {
    std::string address;
    std::vector<OscValue> arguments;

    bool operator==(const OscMessage&) const = default;
};

/// A packet of no more bytes is read or written: what one UDP datagram holds.
inline constexpr std::size_t LongestOscPacket = 65507;

/// The messages of a packet, those of a bundle in their order, bundles in bundles included; its time tags are not
/// looked at. A message without type tags, as old senders write it, has no arguments. Throws std::invalid_argument with
/// one sentence without a full stop. Any thread; any bytes.
[[nodiscard]] std::vector<OscMessage> ReadOscPacket(std::span<const char> packet);

/// The packet of one message. Whole numbers are written as i where they fit and as h elsewhere, others as f. Throws
/// std::invalid_argument where it would be too long.
[[nodiscard]] std::vector<char> WriteOscPacket(const OscMessage& message);
/// Of several, to be taken at `moment` by the clock on the wall.
[[nodiscard]] std::vector<char> WriteOscBundle(std::span<const OscMessage> messages,
                                               std::chrono::system_clock::time_point moment);

}  // namespace stage
