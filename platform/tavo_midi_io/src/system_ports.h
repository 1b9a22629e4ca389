#pragma once

#include <functional>
#include <memory>
#include <string_view>

#include "tavo_midi/midi_ports.h"

namespace tavo_midi_io {

using tavo_midi::MidiByteSink;
using tavo_midi::MidiInput;
using tavo_midi::MidiOutput;
using tavo_midi::MidiPorts;

/// Ports of this product: "tavo:…", and "tavo-01:…" of a second running program.
[[nodiscard]] bool IsOwnPortName(std::string_view name);

inline constexpr std::string_view JackSystemName = "JACK";

/// A JACK server.
class JackPorts : public MidiPorts {
public:
    /// Waits until the server sends through a connection that another client of this product ("tavo-out:...") has made
    /// to `destinationName`. A new connection is there from the server's next cycle on; what is sent before is lost.
    virtual bool WaitForConnection(const std::string& ownPrefix, const std::string& destinationName) = 0;
    /// Waits for so many cycles of the server; false if they are not made in time.
    virtual bool WaitForCycles(unsigned int count) = 0;
};

/// Whether a JACK server runs; never starts one.
[[nodiscard]] bool IsJackServerRunning();
/// Null where no server runs, or one that hangs. `wake` is called on the server's threads when ports come and go
/// and when it dies.
[[nodiscard]] std::shared_ptr<JackPorts> OpenJackMidiPorts(std::function<void()> wake);
/// Null where RtMidi finds no MIDI system. Changes are not announced: the watching thread has to look.
[[nodiscard]] std::shared_ptr<MidiPorts> OpenRtMidiPorts(std::function<void()> wake);

}  // namespace tavo_midi_io
