#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <optional>
#include <sstream>
#include <vector>

#include "tests/midi_ports/jack_server.h"

/// A decoder of MIDI time code that owes nothing to the sender.
namespace test_support {

/// What the receiver got: the sample and the bytes.
struct Received {
    std::uint32_t frame = 0;
    std::vector<unsigned int> bytes;
};

inline std::optional<Received> Receive(Child& receiver) {
    const auto line = receiver.NextLine();
    if (!line) return std::nullopt;
    std::istringstream words(*line);
    Received received;
    words >> received.frame >> std::hex;
    for (unsigned int byte = 0; words >> byte;)
        received.bytes.push_back(byte);
    return received;
}

struct Address {
    unsigned int hours, minutes, seconds, frames, rate;
    bool operator==(const Address&) const = default;
};

/// The decoder's own way to count: the address two frames later.
inline Address TwoFramesOn(Address address) {
    const std::array<unsigned int, 4> frames{24, 25, 30, 30};
    for (int step = 0; step < 2; ++step) {
        if (++address.frames < frames[address.rate]) continue;
        address.frames = 0;
        if (++address.seconds < 60) continue;
        address.seconds = 0;
        ++address.minutes;
        if (address.rate == 2 && address.minutes % 10 != 0) address.frames = 2;
        if (address.minutes < 60) continue;
        address.minutes = 0;
        address.hours = (address.hours + 1) % 24;
    }
    return address;
}

/// Reads quarter frames until a whole address is there.
inline std::optional<Address> ReadAddress(Child& receiver, std::vector<std::uint32_t>& stamps) {
    std::array<unsigned int, 8> halves{};
    for (unsigned int piece = 0; piece < 8; ++piece) {
        const auto received = Receive(receiver);
        if (!received || received->bytes.size() != 2 || received->bytes[0] != 0xF1 ||
            received->bytes[1] >> 4U != piece) {
            ADD_FAILURE() << "instead of quarter frame " << piece << ": "
                          << (received ? testing::PrintToString(received->bytes) : "nothing")
                          << ", frames later: " << (received && !stamps.empty() ? received->frame - stamps.back() : 0);
            return std::nullopt;
        }
        halves[piece] = received->bytes[1] & 0xFU;
        stamps.push_back(received->frame);
    }
    const unsigned int hours = halves[6] | halves[7] << 4U;
    return Address{hours & 0x1FU, halves[4] | halves[5] << 4U, halves[2] | halves[3] << 4U, halves[0] | halves[1] << 4U,
                   hours >> 5U};
}

inline std::optional<Address> ReadFullFrame(Child& receiver) {
    const auto received = Receive(receiver);
    if (!received || received->bytes.size() != 10 || received->bytes[0] != 0xF0) {
        ADD_FAILURE() << "instead of a full frame: "
                      << (received ? testing::PrintToString(received->bytes) : "nothing");
        return std::nullopt;
    }
    const auto& bytes = received->bytes;
    return Address{bytes[5] & 0x1FU, bytes[6], bytes[7], bytes[8], bytes[5] >> 5U};
}

}  // namespace test_support
