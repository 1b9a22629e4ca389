#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "tavo_midi/frame_rate.h"

namespace tavo_midi {

/// A moment on the steady clock and, where it is known, the same moment as a frame of the JACK server, which is exact.
struct TimeCodeMoment {
    /// On the steady clock; the moment at which the object is made, unless it is given.
    std::chrono::nanoseconds time{std::chrono::steady_clock::now().time_since_epoch()};
    /// As the server counts frames, which wraps around; an output that is not on JACK goes by `time`.
    std::optional<std::uint32_t> jackFrame;
};

/// What time code does from a moment on. An order takes back those given before it for later moments.
struct TimeCodeOrder {
    TimeCodeMoment when{};                   ///< may have gone by: it then takes effect at once
    FrameRate frameRate = FrameRate::Fps30;  ///< of all messages that the order brings
    std::int64_t positionNs = 0;             ///< time of day at `when`; it may lie beyond a day
    bool rolls = false;                      ///< quarter frames follow
};

/// Takes what arrives at an input, any number of bytes at a time. Real-time safe; called by one thread at a time.
class MidiByteSink {
public:
    virtual ~MidiByteSink() = default;
    /// `time` is the steady clock's. `bytes` are the caller's and may begin or end in the middle of a message.
    virtual void Take(std::span<const unsigned char> bytes, std::chrono::nanoseconds time) = 0;
};

/// An open connection from another program's or a device's port to a sink, which gets nothing more once the destructor
/// has returned.
class MidiInput {
public:
    virtual ~MidiInput() = default;
    /// False once the connection is gone, whether or not the port is there: as after its device was pulled out and put
    /// in again before anybody looked. Any thread.
    [[nodiscard]] virtual bool IsConnected() { return true; }
};

/// An open connection to another program's or a device's port. Thread-safe.
class MidiOutput {
public:
    virtual ~MidiOutput() = default;
    /// Sends one whole message as soon as possible. False if it could not be taken.
    virtual bool Send(std::span<const unsigned char> message) = 0;
    /// Blocks until everything that Send took has left, and every order of RunTimeCode whose moment has come, as far as
    /// the system acknowledges it. False if it has not left in time or never will.
    virtual bool WaitUntilSent() { return true; }
    /// As MidiInput's.
    [[nodiscard]] virtual bool IsConnected() { return true; }
    /// Sends time code by itself, each message on its sample. False: it cannot, or has no room for the order.
    virtual bool RunTimeCode(const TimeCodeOrder&) { return false; }
    /// Whether RunTimeCode is to be used: constant for an output.
    [[nodiscard]] virtual bool IsSampleAccurate() const { return false; }
};

/// A MIDI system and its ports by name. Names of ports that this product opened itself are left out everywhere.
/// Thread-safe.
class MidiPorts {
public:
    virtual ~MidiPorts() = default;
    /// "JACK", "RtMidi (ALSA)".
    [[nodiscard]] virtual std::string GetSystemName() const = 0;
    /// False once the system has gone; the object is then of no more use.
    [[nodiscard]] virtual bool GetIsAlive() const = 0;
    /// In the system's order, no name twice. What they throw is logged where the ports are watched, and reaches callers
    /// of GetNonTavoMidiSources and GetNonTavoMidiDestinations.
    [[nodiscard]] virtual std::vector<std::string> GetSourceNames() = 0;
    /// The outputs, likewise.
    [[nodiscard]] virtual std::vector<std::string> GetDestinationNames() = 0;
    /// Throws std::runtime_error with a sentence where it cannot be opened. `sink` and the ports outlive the input.
    [[nodiscard]] virtual std::unique_ptr<MidiInput> OpenInput(const std::string& name, MidiByteSink& sink) = 0;
    /// Throws likewise; the ports outlive the output.
    [[nodiscard]] virtual std::unique_ptr<MidiOutput> OpenOutput(const std::string& name) = 0;
};

/// Which MIDI system is used.
enum class MidiSystemChoice {
    Auto,    ///< JACK where a server runs, otherwise RtMidi
    Jack,    ///< JACK; a server is never started
    RtMidi,  ///< the operating system's, through RtMidi
    None,    ///< none of the computer's: chosen ports are waited for
};

/// Opens the computer's MIDI systems. This library knows none itself: tavo_midi_io brings those of JACK and RtMidi, and
/// a program without MIDI devices links neither. Called by one thread at a time.
class MidiPortsOpener {
public:
    virtual ~MidiPortsOpener() = default;
    /// Null where there is no such system, for None never anything. May block for some seconds where a system does not
    /// answer. `wake` is for any thread: to be called when ports come or go and when the system dies, or never.
    [[nodiscard]] virtual std::shared_ptr<MidiPorts> Open(MidiSystemChoice choice, std::function<void()> wake) = 0;
    /// Whether Open(Auto) would now give something better than `inUse`, which it gave before. May block likewise.
    [[nodiscard]] virtual bool HasBetterThan(const MidiPorts& inUse) = 0;
};

/// Sets what opens MIDI systems; null, as at first: no ports are listed and nothing is connected, all else works.
/// Connections are closed and made again by name where the new system has the port. Hosts call
/// tavo_midi_io::InstallMidiPorts instead. Thread-safe.
void SetMidiPortsOpener(std::shared_ptr<MidiPortsOpener> opener);

/// A text for each choice: "auto", "jack", "rtmidi", "none". Another text throws std::out_of_range with a sentence. Any
/// thread.
[[nodiscard]] MidiSystemChoice ConvertStringToMidiSystemChoice(const std::string& text);

/// Chooses the MIDI system of the process, "auto" at first. Connections are closed and made again by name where the new
/// system has the port. A missing system is not an error: nothing is listed until one appears. Thread-safe; may
/// block for some seconds where a port is waited for and the system does not answer.
void SetMidiSystemChoice(MidiSystemChoice choice);
/// Puts a host's own MIDI system in the place of the choice; null takes it away again. Thread-safe. The old ports are
/// let go before this returns, unless a message is being sent over them.
void SetMidiPorts(std::shared_ptr<MidiPorts> ports);
/// Name of the system in use; empty while there is none. Looks for one if none was found so far, which may block for
/// some seconds. Thread-safe.
[[nodiscard]] std::string GetMidiSystemName();

/// Sends one whole message to the port of that name and blocks until it has left (MidiOutput::WaitUntilSent), for a few
/// of a JACK server's periods; nobody else has to wait for it meanwhile. Throws std::runtime_error with a sentence if
/// there is no such port, it takes nothing, or the message does not leave. Thread-safe.
void SendMidiMessage(const std::string& destinationName, std::span<const unsigned char> message);

/// A chosen port came or went.
struct MidiPortReport {
    std::string portName;      ///< as it was chosen
    bool isSource = true;      ///< an input; false for an output
    bool isConnected = false;  ///< it came and is connected; false where it was lost
    std::string sentence;      ///< for the operator
};

/// Sets who is notified of chosen ports that come and go; an empty function takes it away. Called on the thread that
/// watches the ports ("MIDI ports"), under no lock; it must not destroy MIDI objects, and what it throws is logged.
/// When this has returned, the function before is not called any more, unless this was called from inside of it: it
/// waits for a call on another thread. Thread-safe.
void SetMidiPortListener(std::function<void(const MidiPortReport&)> listener);

}  // namespace tavo_midi
