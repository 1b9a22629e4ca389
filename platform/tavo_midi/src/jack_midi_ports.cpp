#include <fmt/format.h>
#include <jack/jack.h>
#include <jack/midiport.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <thread>
#include <utility>

#include "spsc_queue.h"
#include "system_ports.h"
#include "time_code_generator.h"
#include "wide_arithmetic.h"

namespace tavo_midi {

namespace {

constexpr std::size_t kSlots = 4;
constexpr std::size_t kLongestSent = 255;

struct SentMessage {
    unsigned char size = 0;
    unsigned char bytes[kLongestSent] = {};
};

/// What one port needs in the process callback. A slot is handed over by its port: the callback touches the rest only
/// while it is busy and has seen a port.
struct Slot {
    std::atomic<jack_port_t*> port{nullptr};
    std::atomic<bool> isBusy{false};
    bool isTaken = false;  ///< guarded by the ports' mutex

    /// Ends the callback's use of the slot and returns the port.
    jack_port_t* Retire() {
        jack_port_t* const retired = port.exchange(nullptr);
        while (isBusy.load())
            std::this_thread::sleep_for(std::chrono::microseconds(50));
        return retired;
    }
};

struct InputSlot : Slot {
    MidiByteSink* sink = nullptr;
};

struct OutputSlot : Slot {
    SpscQueue<SentMessage, 64> messages;
    SpscQueue<TimeCodeOrder, 64> orders;
    std::optional<TimeCodeGenerator> generator;
    std::optional<TimeCodeMessage> left;  ///< did not fit into the cycle before
};

void Silence() {
    jack_set_error_function([](const char*) {});
    jack_set_info_function([](const char*) {});
}

class JackMidiPorts final : public MidiPorts {
public:
    JackMidiPorts(jack_client_t* client, std::function<void()> wake) : client_(client), wake_(std::move(wake)) {
        jack_set_process_callback(client_, &Process, this);
        jack_on_info_shutdown(client_, &Die, this);
        jack_set_port_registration_callback(
            client_, [](jack_port_id_t, int, void* self) { static_cast<JackMidiPorts*>(self)->wake_(); }, this);
    }
    ~JackMidiPorts() override { jack_client_close(client_); }
    JackMidiPorts(const JackMidiPorts&) = delete;
    JackMidiPorts& operator=(const JackMidiPorts&) = delete;

    [[nodiscard]] bool Activate() { return jack_activate(client_) == 0; }

    [[nodiscard]] std::string GetSystemName() const override { return "JACK"; }
    [[nodiscard]] bool GetIsAlive() const override { return isAlive_; }
    [[nodiscard]] std::vector<std::string> GetSourceNames() override { return List_(JackPortIsOutput); }
    [[nodiscard]] std::vector<std::string> GetDestinationNames() override { return List_(JackPortIsInput); }
    [[nodiscard]] std::unique_ptr<MidiInput> OpenInput(const std::string& name, MidiByteSink& sink) override;
    [[nodiscard]] std::unique_ptr<MidiOutput> OpenOutput(const std::string& name) override;

private:
    class Input;
    class Output;

    template <class SlotType>
    SlotType& TakeSlot_(std::array<SlotType, kSlots>& slots, const char* name, unsigned long flags, jack_port_t*& port);
    void FreeSlot_(Slot& slot);
    [[nodiscard]] std::vector<std::string> List_(unsigned long flags) const;

    static void Die(jack_status_t, const char*, void* self) {
        auto* const ports = static_cast<JackMidiPorts*>(self);
        ports->isAlive_ = false;
        ports->wake_();
    }
    static int Process(jack_nframes_t frames, void* self) {
        static_cast<JackMidiPorts*>(self)->Process_(frames);
        return 0;
    }
    void Process_(jack_nframes_t frames);
    void Receive_(InputSlot& slot, jack_port_t* port, jack_nframes_t frames);
    void Send_(OutputSlot& slot, jack_port_t* port, jack_nframes_t frames);
    void TakeOrders_(OutputSlot& slot);
    /// On the steady clock.
    [[nodiscard]] std::int64_t GetNs_(jack_nframes_t frame) const {
        return static_cast<std::int64_t>(jack_frames_to_time(client_, frame)) * 1000 + serverBehindNs_;
    }

    jack_client_t* const client_;
    const std::function<void()> wake_;
    std::atomic<bool> isAlive_{true};
    std::mutex mutex_;  ///< guards which slots are taken
    std::array<InputSlot, kSlots> inputs_;
    std::array<OutputSlot, kSlots> outputs_;
    // The process callback's. The server's counter of frames, which wraps after a day, written out; the same moment and
    // the server's own clock as against the steady clock.
    std::int64_t cycleStart_ = 0;
    std::int64_t cycleStartNs_ = 0;
    std::int64_t serverBehindNs_ = 0;
};

class JackMidiPorts::Input final : public MidiInput {
public:
    Input(JackMidiPorts& ports, InputSlot& slot) : ports_(ports), slot_(slot) {}
    ~Input() override { ports_.FreeSlot_(slot_); }
    Input(const Input&) = delete;
    Input& operator=(const Input&) = delete;

private:
    JackMidiPorts& ports_;
    InputSlot& slot_;
};

class JackMidiPorts::Output final : public MidiOutput {
public:
    Output(JackMidiPorts& ports, OutputSlot& slot) : ports_(ports), slot_(slot) {}
    ~Output() override { ports_.FreeSlot_(slot_); }
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    bool Send(std::span<const unsigned char> message) override {
        if (message.empty() || message.size() > kLongestSent) return false;
        SentMessage sent{static_cast<unsigned char>(message.size()), {}};
        std::copy(message.begin(), message.end(), sent.bytes);
        const std::lock_guard lock(mutex_);
        return slot_.messages.Push(sent);
    }
    bool RunTimeCode(const TimeCodeOrder& order) override {
        const std::lock_guard lock(mutex_);
        return slot_.orders.Push(order);
    }
    [[nodiscard]] bool IsSampleAccurate() const override { return true; }

private:
    JackMidiPorts& ports_;
    OutputSlot& slot_;
    std::mutex mutex_;  ///< makes callers one writing thread
};

template <class SlotType>
SlotType& JackMidiPorts::TakeSlot_(std::array<SlotType, kSlots>& slots, const char* name, unsigned long flags,
                                   jack_port_t*& port) {
    const std::lock_guard lock(mutex_);
    for (std::size_t index = 0; index < kSlots; ++index) {
        SlotType& slot = slots[index];
        if (slot.isTaken) continue;
        const std::string portName = index == 0 ? name : fmt::format("{} {}", name, index + 1);
        port = jack_port_register(client_, portName.c_str(), JACK_DEFAULT_MIDI_TYPE, flags, 0);
        if (port == nullptr) break;
        slot.isTaken = true;
        return slot;
    }
    throw std::runtime_error(fmt::format("JACK gives no further MIDI port \"{}\".", name));
}

void JackMidiPorts::FreeSlot_(Slot& slot) {
    jack_port_t* const port = slot.Retire();
    if (port != nullptr && isAlive_) jack_port_unregister(client_, port);
    const std::lock_guard lock(mutex_);
    slot.isTaken = false;
}

std::unique_ptr<MidiInput> JackMidiPorts::OpenInput(const std::string& name, MidiByteSink& sink) {
    jack_port_t* port = nullptr;
    InputSlot& slot = TakeSlot_(inputs_, "in", JackPortIsInput, port);
    slot.sink = &sink;
    slot.port = port;
    auto input = std::make_unique<Input>(*this, slot);
    if (jack_connect(client_, name.c_str(), jack_port_name(port)) != 0)
        throw std::runtime_error(fmt::format("JACK does not connect the MIDI input \"{}\".", name));
    return input;
}

std::unique_ptr<MidiOutput> JackMidiPorts::OpenOutput(const std::string& name) {
    jack_port_t* port = nullptr;
    OutputSlot& slot = TakeSlot_(outputs_, "out", JackPortIsOutput, port);
    for (SentMessage message; slot.messages.Pop(message);) {
    }
    for (TimeCodeOrder order; slot.orders.Pop(order);) {
    }
    slot.generator.emplace(jack_get_sample_rate(client_));
    slot.left.reset();
    auto output = std::make_unique<Output>(*this, slot);
    const bool isConnected = jack_connect(client_, jack_port_name(port), name.c_str()) == 0;
    slot.port = port;
    if (!isConnected) throw std::runtime_error(fmt::format("JACK does not connect the MIDI output \"{}\".", name));
    return output;
}

std::vector<std::string> JackMidiPorts::List_(unsigned long flags) const {
    std::vector<std::string> names;
    if (!isAlive_) return names;
    const char** const found = jack_get_ports(client_, nullptr, JACK_DEFAULT_MIDI_TYPE, flags);
    if (found == nullptr) return names;
    for (const char** name = found; *name != nullptr; ++name) {
        if (!IsOwnPortName(*name)) names.emplace_back(*name);
    }
    jack_free(found);
    return names;
}

void JackMidiPorts::Process_(jack_nframes_t frames) {
    const jack_nframes_t start = jack_last_frame_time(client_);
    cycleStart_ += static_cast<std::int32_t>(start - static_cast<jack_nframes_t>(cycleStart_));
    const std::chrono::nanoseconds now = std::chrono::steady_clock::now().time_since_epoch();
    serverBehindNs_ = now.count() - static_cast<std::int64_t>(jack_get_time()) * 1000;
    cycleStartNs_ = GetNs_(start);
    const auto use = [&](auto& slots, auto operation) {
        for (auto& slot : slots) {
            slot.isBusy.store(true);
            if (jack_port_t* const port = slot.port.load()) (this->*operation)(slot, port, frames);
            slot.isBusy.store(false);
        }
    };
    use(inputs_, &JackMidiPorts::Receive_);
    use(outputs_, &JackMidiPorts::Send_);
}

void JackMidiPorts::Receive_(InputSlot& slot, jack_port_t* port, jack_nframes_t frames) {
    void* const buffer = jack_port_get_buffer(port, frames);
    const jack_nframes_t start = jack_last_frame_time(client_);
    const std::uint32_t count = jack_midi_get_event_count(buffer);
    for (std::uint32_t index = 0; index < count; ++index) {
        jack_midi_event_t event{};
        if (jack_midi_event_get(&event, buffer, index) != 0) continue;
        slot.sink->Take({event.buffer, event.size}, std::chrono::nanoseconds(GetNs_(start + event.time)));
    }
}

void JackMidiPorts::Send_(OutputSlot& slot, jack_port_t* port, jack_nframes_t frames) {
    void* const buffer = jack_port_get_buffer(port, frames);
    jack_midi_clear_buffer(buffer);
    // Events must be written in the order of their frames: what is to leave at once comes first.
    for (SentMessage message; slot.messages.Pop(message);) {
        if (jack_midi_event_write(buffer, 0, message.bytes, message.size) != 0) break;
    }
    TakeOrders_(slot);
    TimeCodeMessage message;
    while (true) {
        if (slot.left)
            message = *std::exchange(slot.left, std::nullopt);
        else if (!slot.generator->Next(cycleStart_, cycleStart_ + frames, message))
            return;
        const std::int64_t offset = std::max<std::int64_t>(0, message.at - cycleStart_);
        if (jack_midi_event_write(buffer, static_cast<jack_nframes_t>(offset), message.bytes.data(), message.size) == 0)
            continue;
        slot.left = message;
        return;
    }
}

void JackMidiPorts::TakeOrders_(OutputSlot& slot) {
    const jack_nframes_t sampleRate = jack_get_sample_rate(client_);
    for (TimeCodeOrder order; slot.orders.Pop(order);) {
        std::int64_t at = cycleStart_;
        if (order.when.jackFrame) {
            at += static_cast<std::int32_t>(*order.when.jackFrame - static_cast<jack_nframes_t>(cycleStart_));
        } else {
            at += DivideToNearest(Wide{order.when.time.count() - cycleStartNs_} * sampleRate, nanosecondsPerSecond);
        }
        slot.generator->Post({at, order.frameRate, order.positionNs, order.rolls});
    }
}

}  // namespace

bool IsJackServerRunning() {
    Silence();
    jack_client_t* const client = jack_client_open("tavo", JackNoStartServer, nullptr);
    if (client != nullptr) jack_client_close(client);
    return client != nullptr;
}

std::shared_ptr<MidiPorts> OpenJackMidiPorts(std::function<void()> wake) {
    Silence();
    jack_client_t* const client = jack_client_open("tavo", JackNoStartServer, nullptr);
    if (client == nullptr) return nullptr;
    auto ports = std::make_shared<JackMidiPorts>(client, std::move(wake));
    if (!ports->Activate()) return nullptr;
    return ports;
}

}  // namespace tavo_midi
