#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <memory>
#include <string>
#include <vector>

#include "tavo_midi/midi_ports.h"
#include "tests/midi_ports/jack_server.h"
#include "tests/support/log_of_lines.h"

/// A foot pedal on the server.
namespace test_support {

/// Over which system a test reaches the server's ports, and the server's period.
struct PortCase {
    tavo_midi::MidiSystemChoice system;
    unsigned int periodFrames;

    [[nodiscard]] bool IsJack() const { return system == tavo_midi::MidiSystemChoice::Jack; }
    /// "Jack_4096".
    [[nodiscard]] std::string GetName() const {
        return (IsJack() ? "Jack_" : "RtMidi_") + std::to_string(periodFrames);
    }
    /// How often something that takes a few periods is done: so that long periods do not make a test long.
    [[nodiscard]] int GetRounds(int roundsAt128) const {
        return std::max(3,
                        static_cast<int>(static_cast<unsigned int>(roundsAt128) * 128 / std::max(128U, periodFrames)));
    }
};

inline constexpr std::array<PortCase, 5> PortCases{{{tavo_midi::MidiSystemChoice::Jack, 64},
                                                    {tavo_midi::MidiSystemChoice::Jack, 128},
                                                    {tavo_midi::MidiSystemChoice::Jack, 1024},
                                                    {tavo_midi::MidiSystemChoice::Jack, 4096},
                                                    {tavo_midi::MidiSystemChoice::RtMidi, 128}}};

inline std::string NamePortCase(const testing::TestParamInfo<PortCase>& info) {
    return info.param.GetName();
}

/// Null if it does not come up.
inline std::unique_ptr<Child> StartPeer(const std::string& name) {
    auto peer = std::make_unique<Child>(std::vector<std::string>{MIDI_PEER, name});
    if (peer->ReadLine() != "ready") return nullptr;
    peer->CollectLines();
    return peer;
}

}  // namespace test_support
