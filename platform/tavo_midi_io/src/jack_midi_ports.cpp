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
#include <string_view>
#include <thread>
#include <utility>

#include "kit/spsc_queue.h"
#include "message_outbox.h"
#include "midi_requests.h"
#include "system_ports.h"
#include "tavo_midi/time_code_generator.h"
#include "tavo_midi_io/jack_clients.h"
#include "uncancelled.h"

namespace tavo_midi_io {

namespace {

using tavo_midi::TimeCodeGenerator;
using tavo_midi::TimeCodeMessage;
using tavo_midi::TimeCodeOrder;

constexpr std::size_t Slots = 4;
/// After so many cycles a new connection is there for all clients: one may still be in the cycle before.
constexpr int SettledCycles = 2;
/// How often a thread that waits for a cycle looks.
constexpr std::chrono::microseconds LookInterval{500};
/// A server that has made no cycle for so long hangs: it is as good as gone.
constexpr std::chrono::seconds Standstill{1};
/// How long a program that opens a client may overlook who leaves: until it has mapped the server's memory.
constexpr std::chrono::milliseconds Opening{200};
constexpr std::chrono::milliseconds LongestStay{500};

/// What one port needs in the process callback. A slot is handed over by its port: the callback touches the rest only
/// while it is busy and has seen a port.
struct Slot {
    std::atomic<jack_port_t*> port{nullptr};
    std::atomic<bool> isBusy{false};
    std::atomic<bool> isEnding{false};  ///< an output's: its buffer is to be emptied and the port let go
    jack_port_t* endedPort = nullptr;   ///< set with isEnding
    bool isTaken = false;               ///< guarded by the ports' mutex

    /// Ends the callback's use of the slot and returns the port.
    jack_port_t* Retire() {
        jack_port_t* const retired = port.exchange(nullptr);
        while (isBusy.load())
            std::this_thread::sleep_for(std::chrono::microseconds(50));
        return retired == nullptr ? endedPort : retired;
    }
};

struct InputSlot : Slot {
    MidiByteSink* sink = nullptr;
};

struct OutputSlot : Slot {
    MessageOutbox messages;
    kit::SpscQueue<TimeCodeOrder, 64> orders;
    std::size_t takenOrders = 0;                 ///< the callback's
    std::size_t obeyedOrders = 0;                ///< the callback's: all taken but those that are due and not written
    std::atomic<std::size_t> finishedOrders{0};  ///< obeyed before the cycle that runs
    std::optional<TimeCodeGenerator> generator;
    std::optional<TimeCodeMessage> left;  ///< did not fit into the cycle before
    /// Cycles that saw the connection. It is made in the server's next cycle only; what is sent before is lost.
    int connectedCycles = 0;

    /// Waits for the cycle that empties the port's buffer, for `patience` at most. A buffer that nobody empties any
    /// more would be sent again in each cycle until the port is gone.
    void End(std::chrono::nanoseconds patience) {
        isEnding = true;
        const auto end = std::chrono::steady_clock::now() + patience;
        while (port.load() != nullptr && std::chrono::steady_clock::now() < end)
            std::this_thread::sleep_for(LookInterval);
    }
};

void Silence() {
    jack_set_error_function([](const char*) {});
    jack_set_info_function([](const char*) {});
}

std::int64_t SteadyNs() {
    return std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
}

/// Constructed, activated and destroyed by MidiRequests.
class JackMidiPorts final : public JackPorts {
public:
    JackMidiPorts(jack_client_t* client, std::function<void()> wake)
        : client_(client),
          wake_(std::move(wake)),
          standstill_(Standstill +
                      std::chrono::milliseconds(4000) * jack_get_buffer_size(client) / jack_get_sample_rate(client)),
          lastCycleNs_(SteadyNs()),
          lastArrivalNs_(SteadyNs()) {
        handOvers_.fetch_add(1, std::memory_order_release);
        jack_set_process_callback(client_, &Process, this);
        jack_on_info_shutdown(client_, &Die, this);
        jack_set_port_registration_callback(
            client_, [](jack_port_id_t, int, void* self) { DoUncancelled([self] { TakeOver(self)->wake_(); }); }, this);
        jack_set_client_registration_callback(
            client_,
            [](const char*, int isArrival, void* self) {
                DoUncancelled([=] {
                    if (isArrival != 0) TakeOver(self)->lastArrivalNs_ = SteadyNs();
                });
            },
            this);
    }
    ~JackMidiPorts() override {
        LetOthersArrive_();
        jack_client_close(client_);
        jack_clients::NoteClosed();
    }
    JackMidiPorts(const JackMidiPorts&) = delete;
    JackMidiPorts& operator=(const JackMidiPorts&) = delete;

    [[nodiscard]] bool Activate() { return jack_activate(client_) == 0; }

    [[nodiscard]] std::string GetSystemName() const override { return std::string(JackSystemName); }
    /// Also false once the server has stood still: it neither answers then nor announces it.
    [[nodiscard]] bool GetIsAlive() const override {
        if (std::chrono::nanoseconds(SteadyNs() - lastCycleNs_) > standstill_) isAlive_ = false;
        return isAlive_;
    }
    [[nodiscard]] std::vector<std::string> GetSourceNames() override { return List_(JackPortIsOutput); }
    [[nodiscard]] std::vector<std::string> GetDestinationNames() override { return List_(JackPortIsInput); }
    [[nodiscard]] std::unique_ptr<MidiInput> OpenInput(const std::string& name, MidiByteSink& sink) override;
    [[nodiscard]] std::unique_ptr<MidiOutput> OpenOutput(const std::string& name) override;
    bool WaitForConnection(const std::string& ownPrefix, const std::string& destinationName) override;
    bool WaitForCycles(unsigned int count) override;

private:
    class Input;
    class Output;

    template <class SlotType>
    SlotType& TakeSlot_(std::array<SlotType, Slots>& slots);
    /// Registers the slot's port and connects it with `otherName`, or throws and frees the slot.
    jack_port_t* Connect_(Slot& slot, const std::string& ownName, unsigned long flags, const std::string& otherName);
    void FreeSlot_(Slot& slot);
    /// "out", "out 2".
    template <class SlotType>
    [[nodiscard]] static std::string NameSlot_(const char* name, const std::array<SlotType, Slots>& slots,
                                               const SlotType& slot) {
        return &slot == slots.data() ? name : fmt::format("{} {}", name, &slot - slots.data() + 1);
    }
    /// A program that opens its client right now would overlook that this one leaves, and never wake the next one in
    /// its place, which may well be ours: with a server that waits for its clients, all of them then stand still.
    void LetOthersArrive_() const;
    [[nodiscard]] bool IsConnectionMade_(const std::string& ownPrefix, const std::string& destinationName) const;
    [[nodiscard]] std::vector<std::string> List_(unsigned long flags) const;

    /// For callbacks on the thread that reports ports and the server's end: it is older than the object, and
    /// libjack gives it the object's address without anything that orders memory between threads.
    static JackMidiPorts* TakeOver(void* self) {
        static_cast<void>(handOvers_.load(std::memory_order_acquire));
        return static_cast<JackMidiPorts*>(self);
    }
    static void Die(jack_status_t, const char*, void* self) {
        DoUncancelled([self] {
            JackMidiPorts* const ports = TakeOver(self);
            jack_clients::NoteServerDied();
            ports->isAlive_ = false;
            ports->wake_();
        });
    }
    static int Process(jack_nframes_t frames, void* self) {
        DoUncancelled([=] { static_cast<JackMidiPorts*>(self)->Process_(frames); });
        return 0;
    }
    void Process_(jack_nframes_t frames);
    void Receive_(InputSlot& slot, jack_port_t* port, jack_nframes_t frames);
    void Send_(OutputSlot& slot, jack_port_t* port, jack_nframes_t frames);
    void TakeOrders_(OutputSlot& slot);
    [[nodiscard]] std::chrono::nanoseconds GetPeriod_() const {
        return std::chrono::nanoseconds(std::int64_t{1'000'000'000} * jack_get_buffer_size(client_) /
                                        jack_get_sample_rate(client_));
    }
    /// On the steady clock.
    [[nodiscard]] std::int64_t GetNs_(jack_nframes_t frame) const {
        return static_cast<std::int64_t>(jack_frames_to_time(client_, frame)) * 1000 + serverBehindNs_;
    }

    static inline std::atomic<unsigned int> handOvers_{0};  ///< objects that callbacks may know of

    jack_client_t* const client_;
    const std::function<void()> wake_;
    const std::chrono::nanoseconds standstill_;
    mutable std::atomic<bool> isAlive_{true};
    std::atomic<std::int64_t> lastCycleNs_;
    std::atomic<std::int64_t> lastArrivalNs_;  ///< of a client, this one or another
    std::atomic<unsigned int> cycles_{0};
    std::mutex mutex_;  ///< guards which slots are taken
    std::array<InputSlot, Slots> inputs_;
    std::array<OutputSlot, Slots> outputs_;
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
    ~Output() override {
        if (ports_.GetIsAlive()) slot_.End(std::chrono::milliseconds(100) + 2 * ports_.GetPeriod_());
        ports_.FreeSlot_(slot_);
    }
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    bool Send(std::span<const unsigned char> message) override {
        const std::lock_guard lock(mutex_);
        return slot_.messages.Push(message);
    }
    bool WaitUntilSent() override {
        // A connection settles first, then the message is written in one cycle and taken by the next.
        const auto start = std::chrono::steady_clock::now();
        const auto settled = start + std::chrono::milliseconds(100) + 4 * ports_.GetPeriod_();
        const auto end = start + MidiRequests::Patience + 8 * ports_.GetPeriod_();
        while (ports_.GetIsAlive() && std::chrono::steady_clock::now() < end) {
            // The other port has gone: nothing will be sent any more.
            jack_port_t* const port = slot_.port;
            const bool isAlone = port == nullptr || jack_port_connected(port) == 0;
            if (isAlone && std::chrono::steady_clock::now() > settled) return false;
            {
                const std::lock_guard lock(mutex_);
                if (slot_.messages.IsAllTaken() && slot_.finishedOrders == orders_) return !slot_.messages.HasRefused();
            }
            std::this_thread::sleep_for(LookInterval);
        }
        return false;
    }
    bool RunTimeCode(const TimeCodeOrder& order) override {
        const std::lock_guard lock(mutex_);
        if (!slot_.orders.Push(order)) return false;
        ++orders_;
        return true;
    }
    [[nodiscard]] bool IsSampleAccurate() const override { return true; }

private:
    JackMidiPorts& ports_;
    OutputSlot& slot_;
    std::mutex mutex_;        ///< makes callers one writing thread
    std::size_t orders_ = 0;  ///< given so far; guarded by mutex_
};

template <class SlotType>
SlotType& JackMidiPorts::TakeSlot_(std::array<SlotType, Slots>& slots) {
    const std::lock_guard lock(mutex_);
    const auto free = std::find_if(slots.begin(), slots.end(), [](const Slot& slot) { return !slot.isTaken; });
    if (free == slots.end()) throw std::runtime_error("JACK has no further MIDI port");
    free->isTaken = true;
    return *free;
}

jack_port_t* JackMidiPorts::Connect_(Slot& slot, const std::string& ownName, unsigned long flags,
                                     const std::string& otherName) {
    struct Opened {
        jack_port_t* port = nullptr;
        bool isConnected = false;
    };
    std::optional<Opened> opened;
    if (GetIsAlive()) {
        opened = MidiRequests::Get().Ask([client = client_, ownName, flags, otherName] {
            Opened made;
            made.port = jack_port_register(client, ownName.c_str(), JACK_DEFAULT_MIDI_TYPE, flags, 0);
            if (made.port == nullptr) return made;
            const char* const own = jack_port_name(made.port);
            const bool isSource = (flags & JackPortIsOutput) != 0;
            made.isConnected =
                jack_connect(client, isSource ? own : otherName.c_str(), isSource ? otherName.c_str() : own) == 0;
            if (!made.isConnected) jack_port_unregister(client, made.port);
            return made;
        });
        if (!opened) isAlive_ = false;
    }
    if (opened && opened->isConnected) return opened->port;
    FreeSlot_(slot);
    if (!opened) throw std::runtime_error("the JACK server does not respond");
    throw std::runtime_error(fmt::format("JACK does not connect the MIDI port \"{}\"", otherName));
}

void JackMidiPorts::FreeSlot_(Slot& slot) {
    jack_port_t* const port = slot.Retire();
    if (port != nullptr && GetIsAlive())
        MidiRequests::Get().Close([client = client_, port] { jack_port_unregister(client, port); });
    const std::lock_guard lock(mutex_);
    slot.isTaken = false;
}

std::unique_ptr<MidiInput> JackMidiPorts::OpenInput(const std::string& name, MidiByteSink& sink) {
    InputSlot& slot = TakeSlot_(inputs_);
    jack_port_t* const port = Connect_(slot, NameSlot_("in", inputs_, slot), JackPortIsInput, name);
    slot.sink = &sink;
    slot.port = port;
    auto input = std::make_unique<Input>(*this, slot);
    // With the connection, it is the other program that wakes this one. Some never do, because they overlooked a client
    // that left: the server then stands still for us, and the client is to be opened again.
    if (!WaitForCycles(SettledCycles + 1)) throw std::runtime_error("the JACK server stands still");
    return input;
}

std::unique_ptr<MidiOutput> JackMidiPorts::OpenOutput(const std::string& name) {
    OutputSlot& slot = TakeSlot_(outputs_);
    jack_port_t* const port = Connect_(slot, NameSlot_("out", outputs_, slot), JackPortIsOutput, name);
    slot.messages.Clear();
    slot.takenOrders = 0;
    slot.obeyedOrders = 0;
    slot.finishedOrders = 0;
    for (TimeCodeOrder order; slot.orders.Pop(order);) {
    }
    slot.generator.emplace(jack_get_sample_rate(client_));
    slot.left.reset();
    slot.connectedCycles = 0;
    slot.isEnding = false;
    slot.endedPort = nullptr;
    slot.port = port;
    return std::make_unique<Output>(*this, slot);
}

bool JackMidiPorts::WaitForConnection(const std::string& ownPrefix, const std::string& destinationName) {
    const auto end = std::chrono::steady_clock::now() + MidiRequests::Patience;
    std::optional<unsigned int> madeAt;
    while (GetIsAlive() && std::chrono::steady_clock::now() < end) {
        if (!madeAt && IsConnectionMade_(ownPrefix, destinationName)) madeAt = cycles_;
        // The cycle in which it was seen may have begun for its client before.
        if (madeAt && cycles_ - *madeAt >= unsigned{SettledCycles}) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return false;
}

bool JackMidiPorts::WaitForCycles(unsigned int count) {
    const unsigned int start = cycles_;
    const auto end = std::chrono::steady_clock::now() + MidiRequests::Patience + count * GetPeriod_();
    while (GetIsAlive() && std::chrono::steady_clock::now() < end) {
        if (cycles_ - start >= count) return true;
        std::this_thread::sleep_for(LookInterval);
    }
    return false;
}

void JackMidiPorts::LetOthersArrive_() const {
    const std::int64_t end = SteadyNs() + std::chrono::nanoseconds(LongestStay).count();
    for (std::int64_t now = SteadyNs(); GetIsAlive() && now < end; now = SteadyNs()) {
        if (now - lastArrivalNs_ >= std::chrono::nanoseconds(Opening).count()) return;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

/// What the server's cycle that runs knows, not what the next one will.
bool JackMidiPorts::IsConnectionMade_(const std::string& ownPrefix, const std::string& destinationName) const {
    const jack_port_t* const port = jack_port_by_name(client_, destinationName.c_str());
    const char** const found = port == nullptr ? nullptr : jack_port_get_all_connections(client_, port);
    if (found == nullptr) return false;
    bool isMade = false;
    for (const char** name = found; *name != nullptr; ++name)
        isMade = isMade || std::string_view(*name).starts_with(ownPrefix);
    jack_free(found);
    return isMade;
}

std::vector<std::string> JackMidiPorts::List_(unsigned long flags) const {
    std::vector<std::string> names;
    if (!GetIsAlive()) return names;
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
    lastCycleNs_ = now.count();
    ++cycles_;
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
    const std::int64_t now = SteadyNs();
    const std::uint32_t count = jack_midi_get_event_count(buffer);
    for (std::uint32_t index = 0; index < count; ++index) {
        jack_midi_event_t event{};
        if (jack_midi_event_get(&event, buffer, index) != 0) continue;
        // What a device sent in the period before has its place in this one, which has not come to its end.
        const std::int64_t arrival = std::min(GetNs_(start + event.time - frames), now);
        slot.sink->Take({event.buffer, event.size}, std::chrono::nanoseconds(arrival));
    }
}

void JackMidiPorts::Send_(OutputSlot& slot, jack_port_t* port, jack_nframes_t frames) {
    void* const buffer = jack_port_get_buffer(port, frames);
    jack_midi_clear_buffer(buffer);
    slot.messages.BeginCycle();
    slot.finishedOrders = slot.obeyedOrders;
    if (slot.isEnding) {
        slot.endedPort = port;
        slot.port = nullptr;
        return;
    }
    if (slot.connectedCycles < SettledCycles) {
        if (jack_port_connected(port) > 0) ++slot.connectedCycles;
        return;
    }
    // Events must be written in the order of their frames: what is to leave at once comes first.
    slot.messages.WriteTo([buffer](const unsigned char* bytes, std::size_t size) {
        return jack_midi_event_write(buffer, 0, bytes, size) == 0;
    });
    TakeOrders_(slot);
    TimeCodeMessage message;
    while (true) {
        if (slot.left)
            message = *std::exchange(slot.left, std::nullopt);
        else if (!slot.generator->Next(cycleStart_, cycleStart_ + frames, message))
            break;
        const std::int64_t offset = std::max<std::int64_t>(0, message.at - cycleStart_);
        if (jack_midi_event_write(buffer, static_cast<jack_nframes_t>(offset), message.bytes.data(), message.size) == 0)
            continue;
        slot.left = message;
        return;
    }
    // Where cycles come late, what is due lies in one of the next.
    const std::chrono::nanoseconds sinceStart(SteadyNs() - cycleStartNs_);
    slot.obeyedOrders =
        slot.takenOrders - slot.generator->CountDue(cycleStart_ + slot.generator->CountUnits(sinceStart));
}

void JackMidiPorts::TakeOrders_(OutputSlot& slot) {
    for (TimeCodeOrder order; slot.orders.Pop(order);) {
        std::int64_t at = cycleStart_;
        if (order.when.jackFrame) {
            at += static_cast<std::int32_t>(*order.when.jackFrame - static_cast<jack_nframes_t>(cycleStart_));
        } else {
            at += slot.generator->CountUnits(order.when.time - std::chrono::nanoseconds(cycleStartNs_));
        }
        slot.generator->Post({at, order.frameRate, order.positionNs, order.rolls});
        ++slot.takenOrders;
    }
}

/// Null where no server runs. For MidiRequests' thread.
std::shared_ptr<JackMidiPorts> OpenActive(const std::function<void()>& wake) {
    if (!jack_clients::MayOpen()) return nullptr;
    jack_client_t* const client = jack_client_open("tavo", JackNoStartServer, nullptr);
    if (client == nullptr) return nullptr;
    jack_clients::NoteOpened();
    const auto close = [](JackMidiPorts* ports) { MidiRequests::Get().Close([ports] { delete ports; }); };
    std::shared_ptr<JackMidiPorts> ports(new JackMidiPorts(client, wake), close);
    if (!ports->Activate()) return nullptr;
    return ports;
}

}  // namespace

bool IsJackServerRunning() {
    return MidiRequests::Get()
        .Ask([] {
            Silence();
            if (!jack_clients::MayOpen()) return false;
            jack_client_t* const client = jack_client_open("tavo", JackNoStartServer, nullptr);
            if (client != nullptr) jack_client_close(client);
            return client != nullptr;
        })
        .value_or(false);
}

std::shared_ptr<JackPorts> OpenJackMidiPorts(std::function<void()> wake) {
    return MidiRequests::Get()
        .Ask([wake = std::move(wake)]() -> std::shared_ptr<JackPorts> {
            Silence();
            std::shared_ptr<JackMidiPorts> ports = OpenActive(wake);
            for (int again = 0; ports && jack_clients::HasMissedALeaver() && again < 3; ++again) {
                ports.reset();
                ports = OpenActive(wake);
            }
            return ports;
        })
        .value_or(nullptr);
}

}  // namespace tavo_midi_io
