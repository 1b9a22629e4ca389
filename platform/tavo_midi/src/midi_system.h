#pragma once

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <span>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include "replaceable.h"
#include "tavo_midi/midi_ports.h"

namespace tavo_midi {

/// A connection that is wanted to a port by name, whether the port is there or not. The system calls its operations
/// under its own lock: they must not call the system.
class MidiConnection {
public:
    virtual ~MidiConnection() = default;
    [[nodiscard]] virtual bool IsSource() const = 0;
    /// Throws std::runtime_error with a sentence.
    virtual void Open(MidiPorts& ports, const std::string& portName) = 0;
    virtual void Close() = 0;
    /// Whether the open connection is still there, though its port may be.
    [[nodiscard]] virtual bool IsConnected() = 0;
    /// What the operator should know of the open connection, a sentence; empty as a rule.
    [[nodiscard]] virtual std::string GetRemark() { return {}; }
};

/// The process's one MIDI system: which one is in use, and the thread that finds wanted ports again. Thread-safe.
class MidiSystem {
public:
    /// Never destroyed.
    static MidiSystem& Get();

    void SetOpener(std::shared_ptr<MidiPortsOpener> opener);
    void SetChoice(MidiSystemChoice choice);
    void SetHostPorts(std::shared_ptr<MidiPorts> ports);
    void SetListener(std::function<void(const MidiPortReport&)> listener);
    /// These two look for a system only where there is none and nothing is wanted: else the watching thread does, and
    /// nobody waits for it.
    [[nodiscard]] std::string GetSystemName();
    /// The position of a port in its list is its index.
    [[nodiscard]] std::vector<std::string> GetNames(bool sources);

    /// See SendMidiMessage.
    void SendOnce(const std::string& destinationName, std::span<const unsigned char> message);

    /// Users keep the system open between look-ups; with the last one it is closed.
    void AddUser();
    void RemoveUser();

    /// Tries at once, and whenever ports come and go until Unwant.
    void Want(MidiConnection& connection, const std::string& portName);
    /// The connection is closed afterwards, and the system does not know it any more.
    void Unwant(MidiConnection& connection);
    /// Does not wait for a system that does not respond.
    [[nodiscard]] bool IsOpen(const MidiConnection& connection);

    /// Has the ports looked at soon. Any thread, also a MIDI system's own; no lock that is held for long.
    void Wake();

private:
    struct Wanted {
        MidiConnection* connection;
        std::string portName;
        bool isOpen = false;
        bool wasOpen = false;
    };

    MidiSystem() = default;
    MidiPorts* FindPorts_();
    template <class Ask>
    auto AskPorts_(Ask ask);
    void ReleasePorts_();
    void ClosePorts_();
    void PreferBetter_();
    void Look_();
    void LookUnlessPortsThrow_() noexcept;
    void LookAt_(Wanted& wanted, const std::vector<std::string>& names);
    void CloseLost_(Wanted& wanted);
    void Show_();
    void Report_(const Wanted& wanted, const std::string& what);
    void Tell_();
    void Watch_(const std::stop_token& stop);

    std::mutex mutex_;
    // Guarded by mutex_:
    std::shared_ptr<MidiPortsOpener> opener_;
    MidiSystemChoice choice_ = MidiSystemChoice::Auto;
    std::shared_ptr<MidiPorts> hostPorts_;
    std::shared_ptr<MidiPorts> ports_;
    std::vector<Wanted> wanted_;
    int users_ = 0;
    std::vector<MidiPortReport> reports_;  ///< not reported yet
    bool isLookProblemLogged_ = false;     ///< not again until a look succeeds
    std::jthread watcher_;

    // What is in force, for those who only ask: mutex_ is held while a system is waited for. Taken after mutex_.
    std::mutex shownMutex_;
    // Guarded by shownMutex_:
    std::shared_ptr<MidiPorts> shownPorts_;
    std::vector<const MidiConnection*> shownOpen_;
    bool isWatched_ = false;  ///< something is wanted: the watching thread looks for a system

    // Synchronises itself. Only the watching thread calls it.
    Replaceable<std::function<void(const MidiPortReport&)>> listener_;

    std::mutex wakeMutex_;
    std::condition_variable_any wake_;
    bool mustLook_ = false;  ///< guarded by wakeMutex_
};

}  // namespace tavo_midi
