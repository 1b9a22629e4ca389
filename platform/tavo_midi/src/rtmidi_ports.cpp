#include <fmt/format.h>
#include <rtmidi/RtMidi.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <utility>

#include "system_ports.h"

namespace tavo_midi {

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

template <class Midi>
std::unique_ptr<Midi> Make(RtMidi::Api api, const std::string& clientName) {
    auto midi = std::make_unique<Midi>(api, clientName);
    midi->setErrorCallback(&SaySilently);
    return midi;
}

/// Opens the port of that name, or throws.
void OpenByName(RtMidi& midi, const std::string& name, const char* ownName) {
    const std::vector<std::string> names = NamePorts(midi);
    const auto found = std::find(names.begin(), names.end(), name);
    if (found != names.end()) midi.openPort(static_cast<unsigned int>(found - names.begin()), ownName);
    if (!midi.isPortOpen()) throw std::runtime_error(fmt::format("The MIDI port \"{}\" cannot be opened.", name));
}

class RtMidiInput final : public MidiInput {
public:
    RtMidiInput(RtMidi::Api api, const std::string& name, MidiByteSink& sink)
        : sink_(sink), midi_(Make<RtMidiIn>(api, "tavo-in")) {
        midi_->ignoreTypes(false, true, true);
        midi_->setCallback(&Receive, this);
        OpenByName(*midi_, name, "in");
    }

private:
    static void Receive(double, std::vector<unsigned char>* message, void* self) {
        const auto now = std::chrono::steady_clock::now().time_since_epoch();
        if (message != nullptr) static_cast<RtMidiInput*>(self)->sink_.Take(*message, now);
    }

    MidiByteSink& sink_;
    std::unique_ptr<RtMidiIn> midi_;
};

class RtMidiOutput final : public MidiOutput {
public:
    RtMidiOutput(RtMidi::Api api, const std::string& name) : midi_(Make<RtMidiOut>(api, "tavo-out")) {
        OpenByName(*midi_, name, "out");
        // A guess at how long a new connection may take to hold: a full frame sent at once has been seen to get lost.
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    bool Send(std::span<const unsigned char> message) override {
        const std::lock_guard lock(mutex_);
        midi_->sendMessage(message.data(), message.size());
        return true;
    }

private:
    std::mutex mutex_;
    std::unique_ptr<RtMidiOut> midi_;
};

class RtMidiPorts final : public MidiPorts {
public:
    RtMidiPorts(RtMidi::Api api, std::shared_ptr<MidiPorts> server)
        : api_(api),
          server_(std::move(server)),
          in_(Make<RtMidiIn>(api, "tavo-list-in")),
          out_(Make<RtMidiOut>(api, "tavo-list-out")) {}

    [[nodiscard]] std::string GetSystemName() const override {
        return fmt::format("RtMidi ({})", RtMidi::getApiDisplayName(api_));
    }
    /// RtMidi does not notice that its JACK server has died.
    [[nodiscard]] bool GetIsAlive() const override { return !server_ || server_->GetIsAlive(); }
    [[nodiscard]] std::vector<std::string> GetSourceNames() override { return List_(*in_); }
    [[nodiscard]] std::vector<std::string> GetDestinationNames() override { return List_(*out_); }
    [[nodiscard]] std::unique_ptr<MidiInput> OpenInput(const std::string& name, MidiByteSink& sink) override {
        return std::make_unique<RtMidiInput>(api_, name, sink);
    }
    [[nodiscard]] std::unique_ptr<MidiOutput> OpenOutput(const std::string& name) override {
        return std::make_unique<RtMidiOutput>(api_, name);
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
    const std::shared_ptr<MidiPorts> server_;  ///< where RtMidi itself stands on JACK
    std::mutex mutex_;
    std::unique_ptr<RtMidiIn> in_;
    std::unique_ptr<RtMidiOut> out_;
};

}  // namespace

std::shared_ptr<MidiPorts> OpenRtMidiPorts(std::function<void()> wake) {
    std::vector<RtMidi::Api> apis;
    RtMidi::getCompiledApi(apis);
    for (const RtMidi::Api api : apis) {
        if (api == RtMidi::RTMIDI_DUMMY) continue;
        // ALSA complains on the terminal where it has no sequencer.
        if (api == RtMidi::LINUX_ALSA && ::access("/dev/snd/seq", R_OK | W_OK) != 0) continue;
        std::shared_ptr<MidiPorts> server;
        if (api == RtMidi::UNIX_JACK && !(server = OpenJackMidiPorts(wake))) continue;
        try {
            return std::make_shared<RtMidiPorts>(api, std::move(server));
        } catch (const RtMidiError&) {
            // The next one, then.
        }
    }
    return nullptr;
}

}  // namespace tavo_midi
