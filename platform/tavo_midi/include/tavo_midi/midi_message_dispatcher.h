#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <span>
#include <string>
#include <vector>

namespace tavo_midi {

/// A MIDI input or output of the system.
struct MidiEndPoint {
    /// Index among the system's inputs or outputs; it may change when devices come and go.
    unsigned char index = 0;
    /// As the system has it, no two alike: by it a connection finds its port again.
    std::string name;

    /// Index and name count.
    bool operator==(const MidiEndPoint&) const = default;
};

/// The MIDI status bytes that a command may be learned from: note-on, controller and program change on each channel,
/// and a sequencer's start, continue and stop. Never destroyed.
extern const std::set<unsigned char>& allowedStatuses;

/// The system's first 256 MIDI inputs other than those that this product opened itself. Empty where there is no MIDI
/// system. Any thread; may block for some seconds where a system does not answer. What a host's own ports
/// throw reaches the caller.
[[nodiscard]] std::vector<MidiEndPoint> GetNonTavoMidiSources();
/// The outputs, likewise.
[[nodiscard]] std::vector<MidiEndPoint> GetNonTavoMidiDestinations();

/// The connection to one MIDI input, which is known by its name: where the port goes and comes back, the connection is
/// made again. What arrives is delivered in order on the thread "MIDI delivery", one whole message at a time, with
/// running status written out. Arriving messages that the listeners are too slow for are dropped and counted.
/// Thread-safe; a listener may call everything but the destructor. On other threads, what connects, disconnects,
/// delivers or changes the listeners waits for a message that is being delivered; opening and looking for a port may
/// block for some seconds where the MIDI system does not answer.
class MidiMessageDispatcher {
public:
    /// `arrival` is the steady clock's. What a listener throws is logged.
    using Listener = std::function<void(std::span<const unsigned char> message, std::chrono::nanoseconds arrival)>;

    /// Connects nothing and starts no thread.
    MidiMessageDispatcher();
    /// Disconnects and ends the delivery thread.
    ~MidiMessageDispatcher();
    MidiMessageDispatcher(const MidiMessageDispatcher&) = delete;
    MidiMessageDispatcher& operator=(const MidiMessageDispatcher&) = delete;

    /// Connects to the input of that index instead of the one before. Throws std::out_of_range with a sentence if there
    /// is none, and changes nothing then.
    void ConnectSourceByIndex(unsigned char index);
    /// Connects to the input of that name instead of the one before, now or when it comes.
    void ConnectSourceByName(const std::string& name);
    /// Ends the connection, if there is one, and waits for a message that is being delivered on another thread.
    void Disconnect();
    /// Whether an input is connected that is there.
    [[nodiscard]] bool GetIsConnected() const;
    /// Index of the connected input; 0 while there is none.
    [[nodiscard]] unsigned char GetPortIndex() const;
    /// Name of the chosen input, there or not; empty while none is chosen.
    [[nodiscard]] std::string GetPortName() const;

    /// `target` is an identity only. The listener hears from the next message on.
    void AddListener(const void* target, Listener listener);
    /// Takes away all listeners of `target`, if there are any. Waits for one that runs on another thread.
    void RemoveListener(const void* target);
    /// Delivers the whole messages in `bytes` on the calling thread, as if they had come from a port now. A message
    /// that is cut off at the end is left out.
    void Deliver(std::span<const unsigned char> bytes);

    /// Pieces of up to 23 bytes that were dropped since the beginning because a listener held up delivery. Lock-free.
    [[nodiscard]] std::uint64_t GetDroppedCount() const;

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
