#include <fmt/format.h>
#include <rtmidi/RtMidi.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <type_traits>
#include <utility>

#include "alsa_subscriptions.h"
#include "device_names.h"
#include "midi_requests.h"
#include "system_ports.h"
#include "tavo_midi_io/jack_clients.h"
#include "uncancelled.h"

namespace tavo_midi_io {

namespace {

/// The one that runs, the one in which RtMidi's client takes a message, and the end of that one.
constexpr unsigned int SendingCycles = 3;

void SaySilently(RtMidiError::Type, const std::string&, void*) {}

/// RtMidi's output on JACK lets its buffer go before its client, which may still be reading it for the port that was
/// just closed: longer than a thread of sound waits for its processor in the middle of that, on a busy machine and
/// without precedence.
constexpr std::chrono::milliseconds LastReading{100};

/// How often ports are listed that come and go meanwhile.
constexpr int MostListings = 8;

std::vector<std::string> ListOnce(RtMidi& midi) {
    std::vector<std::string> names;
    const unsigned int count = midi.getPortCount();
    for (unsigned int index = 0; index < count; ++index)
        names.push_back(midi.getPortName(index));
    return names;
}

/// The system's own names of all ports, in order. RtMidi asks for one after the other: where a device goes between two
/// of them, others seem to be gone with it, so that only what is said twice counts.
std::vector<std::string> ListFullNames(RtMidi& midi) {
    std::vector<std::string> names = ListOnce(midi);
    for (int listing = 1; listing < MostListings; ++listing) {
        std::vector<std::string> again = ListOnce(midi);
        if (again == names) break;
        names = std::move(again);
    }
    return names;
}

/// What RtMidi does on JACK waits for the server: its objects are made, opened and destroyed by MidiRequests.
template <class Object, class... Arguments>
std::shared_ptr<Object> MakeByRequest(Arguments... arguments) {
    auto made = MidiRequests::Get().Ask([arguments...] {
        return std::shared_ptr<Object>(new Object(arguments...),
                                       [](Object* object) { MidiRequests::Get().Close([object] { delete object; }); });
    });
    if (!made) throw std::runtime_error("the MIDI system does not respond");
    return std::move(*made);
}

/// Counts the client that an RtMidi object has on JACK. One that is opened for it after the server has died would take
/// those with it that the process still has.
class CountedClient {
public:
    explicit CountedClient(RtMidi::Api api) : isOnJack_(api == RtMidi::UNIX_JACK) {
        RequireServer();
        if (isOnJack_) jack_clients::NoteOpened();
    }
    ~CountedClient() {
        if (isOnJack_) jack_clients::NoteClosed();
    }
    CountedClient(const CountedClient&) = delete;
    CountedClient& operator=(const CountedClient&) = delete;

    [[nodiscard]] bool GetIsOnJack() const { return isOnJack_; }
    /// Right before RtMidi is asked for something: whatever that is, it first opens the client that it has not got yet.
    void RequireServer() const {
        if (isOnJack_ && !jack_clients::MayOpen()) throw std::runtime_error("the JACK server has ended");
    }

private:
    const bool isOnJack_;
};

/// An RtMidi object, and the port of that full name opened.
template <class Midi>
struct OpenPort {
    OpenPort(RtMidi::Api api, const char* clientName) : client(api), midi(api, clientName) {
        midi.setErrorCallback(&SaySilently);
    }
    ~OpenPort() {
        if constexpr (std::is_same_v<Midi, RtMidiOut>) {
            if (!client.GetIsOnJack()) return;
            midi.closePort();
            std::this_thread::sleep_for(LastReading);
        }
    }
    OpenPort(const OpenPort&) = delete;
    OpenPort& operator=(const OpenPort&) = delete;

    void Open(const std::string& fullName, const char* ownName) {
        client.RequireServer();
        const std::vector<std::string> names = ListFullNames(midi);
        const auto found = std::find(names.begin(), names.end(), fullName);
        if (found != names.end()) midi.openPort(static_cast<unsigned int>(found - names.begin()), ownName);
        // The number that was opened is another device's by then if ports have come or gone meanwhile.
        if (!midi.isPortOpen() || ListFullNames(midi) != names)
            throw std::runtime_error(fmt::format("the MIDI port \"{}\" cannot be opened", fullName));
    }

    const CountedClient client;  // longer than what it counts
    Midi midi;
};

/// The port of ALSA's sequencer that a connection was made with. RtMidi does not notice that a subscription has gone
/// with its device, which may be back under the same address.
class Subscription {
public:
    Subscription(RtMidi::Api api, const std::string& fullName, bool isSource)
        : address_(api == RtMidi::LINUX_ALSA ? FindAddress(fullName) : ""), isSource_(isSource) {}
    [[nodiscard]] bool IsThere() const { return address_.empty() || IsSubscribedTo(address_, isSource_); }

private:
    const std::string address_;
    const bool isSource_;
};

class RtMidiInput final : public MidiInput {
public:
    RtMidiInput(RtMidi::Api api, const std::string& fullName, MidiByteSink& sink)
        : gate_(std::make_shared<Gate>(sink)),
          port_(MakeByRequest<Port>(api, fullName, gate_)),
          subscription_(api, fullName, true) {}
    ~RtMidiInput() override {
        const std::lock_guard lock(gate_->mutex);
        gate_->sink = nullptr;
    }
    RtMidiInput(const RtMidiInput&) = delete;
    RtMidiInput& operator=(const RtMidiInput&) = delete;

    [[nodiscard]] bool IsConnected() override { return subscription_.IsThere(); }

private:
    /// The port may be closed later than this object goes. Nobody else wants the mutex while the port is open.
    struct Gate {
        explicit Gate(MidiByteSink& to) : sink(&to) {}
        std::mutex mutex;
        MidiByteSink* sink;  ///< guarded by mutex
    };
    struct Port {
        Port(RtMidi::Api api, const std::string& fullName, std::shared_ptr<Gate> to)
            : gate(std::move(to)), in(api, "tavo-in") {
            in.midi.ignoreTypes(false, true, true);
            in.midi.setCallback(&Receive, gate.get());
            in.Open(fullName, "in");
        }
        const std::shared_ptr<Gate> gate;
        OpenPort<RtMidiIn> in;
    };

    static void Receive(double, std::vector<unsigned char>* message, void* gatePointer) {
        const auto now = std::chrono::steady_clock::now().time_since_epoch();
        auto& gate = *static_cast<Gate*>(gatePointer);
        DoUncancelled([&] {
            const std::lock_guard lock(gate.mutex);
            if (message != nullptr && gate.sink != nullptr) gate.sink->Take(*message, now);
        });
    }

    const std::shared_ptr<Gate> gate_;
    const std::shared_ptr<Port> port_;
    const Subscription subscription_;
};

class RtMidiOutput final : public MidiOutput {
public:
    RtMidiOutput(RtMidi::Api api, const std::string& fullName, std::shared_ptr<JackPorts> server)
        : server_(std::move(server)), port_(MakeByRequest<Port>(api, fullName)), subscription_(api, fullName, false) {
        if (server_ && !server_->WaitForConnection("tavo-out", fullName))
            throw std::runtime_error(fmt::format("JACK does not connect the MIDI output \"{}\"", fullName));
    }
    [[nodiscard]] bool IsConnected() override { return subscription_.IsThere(); }
    bool Send(std::span<const unsigned char> message) override {
        // RtMidi would wait forever once a server that is gone has left its buffer full.
        if (server_ && !server_->GetIsAlive()) return false;
        const std::lock_guard lock(mutex_);
        port_->out.midi.sendMessage(message.data(), message.size());
        return true;
    }
    /// RtMidi acknowledges nothing. Its JACK client takes a message in its next cycle; ALSA has it when it was sent and
    /// keeps a device's port open until it is out.
    bool WaitUntilSent() override { return !server_ || server_->WaitForCycles(SendingCycles); }

private:
    struct Port {
        Port(RtMidi::Api api, const std::string& fullName) : out(api, "tavo-out") { out.Open(fullName, "out"); }
        OpenPort<RtMidiOut> out;
    };

    const std::shared_ptr<JackPorts> server_;
    std::mutex mutex_;
    const std::shared_ptr<Port> port_;
    const Subscription subscription_;
};

class RtMidiPorts final : public MidiPorts {
public:
    RtMidiPorts(RtMidi::Api api, std::shared_ptr<JackPorts> server)
        : api_(api),
          server_(std::move(server)),
          in_(MakeByRequest<OpenPort<RtMidiIn>>(api, "tavo-list-in")),
          out_(MakeByRequest<OpenPort<RtMidiOut>>(api, "tavo-list-out")) {}

    [[nodiscard]] std::string GetSystemName() const override {
        return fmt::format("RtMidi ({})", RtMidi::getApiDisplayName(api_));
    }
    /// RtMidi does not notice that its JACK server has died.
    [[nodiscard]] bool GetIsAlive() const override { return !server_ || server_->GetIsAlive(); }
    [[nodiscard]] std::vector<std::string> GetSourceNames() override { return List_(in_->midi, sources_); }
    [[nodiscard]] std::vector<std::string> GetDestinationNames() override { return List_(out_->midi, destinations_); }
    [[nodiscard]] std::unique_ptr<MidiInput> OpenInput(const std::string& name, MidiByteSink& sink) override {
        return std::make_unique<RtMidiInput>(api_, FindFullName_(sources_, name), sink);
    }
    [[nodiscard]] std::unique_ptr<MidiOutput> OpenOutput(const std::string& name) override {
        return std::make_unique<RtMidiOutput>(api_, FindFullName_(destinations_, name), server_);
    }

private:
    [[nodiscard]] std::vector<std::string> List_(RtMidi& midi, DeviceNames& devices) {
        const std::lock_guard lock(mutex_);
        if (!GetIsAlive()) return {};
        std::vector<std::string> names = devices.Name(ListFullNames(midi));
        std::erase(names, std::string());
        return names;
    }
    [[nodiscard]] std::string FindFullName_(const DeviceNames& devices, const std::string& name) {
        const std::lock_guard lock(mutex_);
        const auto found = devices.FindFullName(name);
        if (!found) throw std::runtime_error(fmt::format("there is no MIDI port \"{}\"", name));
        return *found;
    }

    const RtMidi::Api api_;
    const std::shared_ptr<JackPorts> server_;  ///< where RtMidi itself stands on JACK
    std::mutex mutex_;
    // Guarded by mutex_, both when they list:
    const std::shared_ptr<OpenPort<RtMidiIn>> in_;
    const std::shared_ptr<OpenPort<RtMidiOut>> out_;
    DeviceNames sources_;
    DeviceNames destinations_;
};

}  // namespace

std::shared_ptr<MidiPorts> OpenRtMidiPorts(std::function<void()> wake) {
    std::vector<RtMidi::Api> apis;
    RtMidi::getCompiledApi(apis);
    for (const RtMidi::Api api : apis) {
        if (api == RtMidi::RTMIDI_DUMMY) continue;
        // ALSA complains on the terminal where it has no sequencer.
        if (api == RtMidi::LINUX_ALSA && ::access("/dev/snd/seq", R_OK | W_OK) != 0) continue;
        std::shared_ptr<JackPorts> server;
        if (api == RtMidi::UNIX_JACK && !(server = OpenJackMidiPorts(wake))) continue;
        try {
            return std::make_shared<RtMidiPorts>(api, std::move(server));
        } catch (const std::exception&) {
            // The next one, then.
        }
    }
    return nullptr;
}

}  // namespace tavo_midi_io
