#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tests/midi_ports/jack_server.h"
#include "tests/support/log_of_lines.h"

/// A foot pedal on the server.
namespace test_support {

/// Null if it does not come up.
inline std::unique_ptr<Child> StartPeer(const std::string& name) {
    auto peer = std::make_unique<Child>(std::vector<std::string>{MIDI_PEER, name});
    if (peer->ReadLine() != "ready") return nullptr;
    peer->CollectLines();
    return peer;
}

}  // namespace test_support
