#pragma once

#include <memory>
#include <set>
#include <string>
#include <vector>

namespace tavo_midi {

/// A MIDI input or output of the system.
struct MidiEndPoint {
    /// Index among the system's inputs or outputs; it may change when devices come and go.
    unsigned char index = 0;
    std::string name;

    bool operator==(const MidiEndPoint&) const = default;
};

/// The MIDI status bytes that a command may be learned from.
extern const std::set<unsigned char> allowedStatuses;

/// The system's MIDI inputs and outputs other than those that this program opened itself.
[[nodiscard]] std::vector<MidiEndPoint> GetNonTavoMidiSources();
[[nodiscard]] std::vector<MidiEndPoint> GetNonTavoMidiDestinations();

/// The connection to one MIDI input. Thread-safe.
class MidiMessageDispatcher {
public:
    MidiMessageDispatcher();
    ~MidiMessageDispatcher();
    MidiMessageDispatcher(const MidiMessageDispatcher&) = delete;
    MidiMessageDispatcher& operator=(const MidiMessageDispatcher&) = delete;

    /// Ends the connection, if there is one, and waits for a message that is being delivered on another thread.
    void Disconnect();
    [[nodiscard]] bool GetIsConnected() const;
    /// Index of the connected input; 0 while there is none.
    [[nodiscard]] unsigned char GetPortIndex() const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace tavo_midi

using tavo_midi::allowedStatuses;
using tavo_midi::GetNonTavoMidiDestinations;
using tavo_midi::GetNonTavoMidiSources;
using tavo_midi::MidiEndPoint;
using tavo_midi::MidiMessageDispatcher;
