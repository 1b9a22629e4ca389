#include <fmt/format.h>
#include <rtmidi/RtMidi.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <mutex>
#include <stdexcept>
#include <utility>

#include "midi_requests.h"
#include "system_ports.h"
#include "uncancelled.h"

namespace tavo_midi_io {

namespace {

void SaySilently(RtMidiError::Type, const std::string&, void*) {}

/// "Pedal" of "Pedal 128:0": ALSA's numbers are others after every replug.
std::string WithoutNumbers(const std::string& name) {
    const std::size_t space = name.rfind(' ');
    if (space == std::string::npos) return name;
    const std::string tail = name.substr(space + 1);
    const bool isAddress = tail.find_first_not_of("0123456789:") == std::string::npos && tail.find(':') != tail.npos;
    return isAddress ? name.substr(0, space) : name;
}

/// One name for each port, "" for ports of this product; the second of the same name is told apart by a number.
std::vector<std::string> NamePorts(RtMidi& midi) {
    std::vector<std::string> names;
    const unsigned int count = midi.getPortCount();
    for (unsigned int index = 0; index < count; ++index) {
        const std::string base = WithoutNumbers(midi.getPortName(index));
        std::string name = IsOwnPortName(base) ? std::string() : base;
        for (int number = 2; !name.empty() && std::find(names.begin(), names.end(), name) != names.end(); ++number)
            name = fmt::format("{} ({})", base, number);
        names.push_back(std::move(name));
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

/// An RtMidi object, and the port of that name opened.
template <class Midi>
struct OpenPort {
    OpenPort(RtMidi::Api api, const char* clientName) : midi(api, clientName) { midi.setErrorCallback(&SaySilently); }
    void Open(const std::string& name, const char* ownName) {
        const std::vector<std::string> names = NamePorts(midi);
        const auto found = std::find(names.begin(), names.end(), name);
        if (found != names.end()) midi.openPort(static_cast<unsigned int>(found - names.begin()), ownName);
        if (!midi.isPortOpen()) throw std::runtime_error(fmt::format("the MIDI port \"{}\" cannot be opened", name));
    }

    Midi midi;
};

class RtMidiInput final : public MidiInput {
public:
    RtMidiInput(RtMidi::Api api, const std::string& name, MidiByteSink& sink)
        : gate_(std::make_shared<Gate>(sink)), port_(MakeByRequest<Port>(api, name, gate_)) {}
    ~RtMidiInput() override {
        const std::lock_guard lock(gate_->mutex);
        gate_->sink = nullptr;
    }
    RtMidiInput(const RtMidiInput&) = delete;
    RtMidiInput& operator=(const RtMidiInput&) = delete;

private:
    /// The port may be closed later than this object goes. Nobody else wants the mutex while the port is open.
    struct Gate {
        explicit Gate(MidiByteSink& to) : sink(&to) {}
        std::mutex mutex;
        MidiByteSink* sink;  ///< guarded by mutex
    };
    struct Port {
        Port(RtMidi::Api api, const std::string& name, std::shared_ptr<Gate> to)
            : gate(std::move(to)), in(api, "tavo-in") {
            in.midi.ignoreTypes(false, true, true);
            in.midi.setCallback(&Receive, gate.get());
            in.Open(name, "in");
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
};

class RtMidiOutput final : public MidiOutput {
public:
    RtMidiOutput(RtMidi::Api api, const std::string& name, std::shared_ptr<JackPorts> server)
        : server_(std::move(server)), port_(MakeByRequest<Port>(api, name)) {
        if (server_ && !server_->WaitForConnection("tavo-out", name))
            throw std::runtime_error(fmt::format("JACK does not connect the MIDI output \"{}\"", name));
    }
    bool Send(std::span<const unsigned char> message) override {
        // RtMidi would wait forever once a server that is gone has left its buffer full.
        if (server_ && !server_->GetIsAlive()) return false;
        const std::lock_guard lock(mutex_);
        port_->out.midi.sendMessage(message.data(), message.size());
        return true;
    }

private:
    struct Port {
        Port(RtMidi::Api api, const std::string& name) : out(api, "tavo-out") { out.Open(name, "out"); }
        OpenPort<RtMidiOut> out;
    };

    const std::shared_ptr<JackPorts> server_;
    std::mutex mutex_;
    const std::shared_ptr<Port> port_;
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
    [[nodiscard]] std::vector<std::string> GetSourceNames() override { return List_(in_->midi); }
    [[nodiscard]] std::vector<std::string> GetDestinationNames() override { return List_(out_->midi); }
    [[nodiscard]] std::unique_ptr<MidiInput> OpenInput(const std::string& name, MidiByteSink& sink) override {
        return std::make_unique<RtMidiInput>(api_, name, sink);
    }
    [[nodiscard]] std::unique_ptr<MidiOutput> OpenOutput(const std::string& name) override {
        return std::make_unique<RtMidiOutput>(api_, name, server_);
    }

private:
    [[nodiscard]] std::vector<std::string> List_(RtMidi& midi) {
        const std::lock_guard lock(mutex_);
        if (!GetIsAlive()) return {};
        std::vector<std::string> names = NamePorts(midi);
        std::erase(names, std::string());
        return names;
    }

    const RtMidi::Api api_;
    const std::shared_ptr<JackPorts> server_;  ///< where RtMidi itself stands on JACK
    std::mutex mutex_;
    const std::shared_ptr<OpenPort<RtMidiIn>> in_;
    const std::shared_ptr<OpenPort<RtMidiOut>> out_;
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
