#include "tavo_midi/midi_message_dispatcher.h"

#include <fmt/format.h>
#include <semaphore.h>

#include <algorithm>
#include <atomic>
#include <exception>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <utility>

#include "kit/real_time.h"
#include "kit/spsc_queue.h"
#include "kit/thread_names.h"
#include "midi_parser.h"
#include "midi_system.h"
#include "tavo_core/tavo_log_exception.h"

namespace tavo_midi {

namespace {

constexpr std::size_t MostPorts = 256;
constexpr std::size_t PieceBytes = 23;
/// Room for 0.8 s of 10 000 messages a second.
constexpr std::size_t Pieces = 8192;
/// Above ordinary threads, below all that make sound or time code.
constexpr int DeliveryPriority = 3;

struct Piece {
    std::int64_t arrivalNs = 0;
    unsigned char size = 0;
    unsigned char bytes[PieceBytes] = {};
};

std::set<unsigned char> MakeAllowedStatuses() {
    std::set<unsigned char> statuses{0xFA, 0xFB, 0xFC};
    for (const unsigned int kind : {0x90U, 0xB0U, 0xC0U}) {
        for (unsigned int channel = 0; channel < 16; ++channel)
            statuses.insert(static_cast<unsigned char>(kind + channel));
    }
    return statuses;
}

std::vector<MidiEndPoint> ListEndPoints(bool sources) {
    std::vector<MidiEndPoint> endPoints;
    for (std::string& name : MidiSystem::Get().GetNames(sources)) {
        if (endPoints.size() == MostPorts) break;
        endPoints.push_back({static_cast<unsigned char>(endPoints.size()), std::move(name)});
    }
    return endPoints;
}

}  // namespace

// Threads may read it until the very end of the process.
const std::set<unsigned char>& allowedStatuses = *new std::set<unsigned char>(MakeAllowedStatuses());

std::vector<MidiEndPoint> GetNonTavoMidiSources() {
    return ListEndPoints(true);
}

std::vector<MidiEndPoint> GetNonTavoMidiDestinations() {
    return ListEndPoints(false);
}

struct MidiMessageDispatcher::Impl : MidiConnection, MidiByteSink {
    struct Entry {
        const void* target;
        Listener listener;
        bool isRemoved = false;
    };

    // Recursive: a listener may deliver, remove itself and end the connection. Taken before the system's lock.
    std::recursive_mutex deliveryMutex;
    // Guarded by deliveryMutex; the queue's reading side, too:
    std::vector<std::shared_ptr<Entry>> entries;
    std::int64_t arrivalNs = 0;
    MidiParser parser{[this](MidiParser::Message message) { Notify(message, std::chrono::nanoseconds(arrivalNs)); }};

    kit::SpscQueue<Piece, Pieces> queue;
    std::atomic<std::uint64_t> dropped{0};
    sem_t arrived{};
    std::atomic<bool> mustEnd{false};
    std::atomic<bool> mustReset{false};  ///< the message that has begun will not be finished

    std::thread deliveryThread;  ///< guarded by deliveryMutex

    mutable std::mutex nameMutex;
    std::string portName;  ///< guarded by nameMutex

    std::unique_ptr<MidiInput> input;  ///< guarded by the system's lock

    Impl() { sem_init(&arrived, 0, 0); }
    ~Impl() override { sem_destroy(&arrived); }
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    [[nodiscard]] bool IsSource() const override { return true; }
    void Open(MidiPorts& ports, const std::string& name) override { input = ports.OpenInput(name, *this); }
    void Close() override {
        input.reset();
        mustReset = true;
    }

    [[nodiscard]] bool IsConnected() override { return input->IsConnected(); }

    void Take(std::span<const unsigned char> bytes, std::chrono::nanoseconds time) override {
        const std::size_t pieces = (bytes.size() + PieceBytes - 1) / PieceBytes;
        if (queue.GetRoom() < pieces) {
            dropped.fetch_add(pieces, std::memory_order_relaxed);
            return;
        }
        while (!bytes.empty()) {
            Piece piece{time.count(), static_cast<unsigned char>(std::min(bytes.size(), PieceBytes)), {}};
            std::copy_n(bytes.begin(), piece.size, piece.bytes);
            static_cast<void>(queue.Push(piece));
            bytes = bytes.subspan(piece.size);
        }
        // The one system call here: it waits for nothing, and only a wake delivers without delay.
        sem_post(&arrived);
    }

    void DeliverArrivals() {
        kit::threadNames.SetNameOfCurrentThread("MIDI delivery");
        while (!mustEnd) {
            while (sem_wait(&arrived) != 0) {
            }
            // The lock is let go between chunks, for those who wait to disconnect.
            while (DeliverPieceOrLog()) {
            }
        }
    }

    /// What throws although no listener did, such as a lack of memory for a long message, costs one chunk.
    bool DeliverPieceOrLog() {
        try {
            return DeliverPiece();
        } catch (const std::exception& problem) {
            TavoLogException(problem.what(), __FILE__, __LINE__);
        } catch (...) {
            TavoLogException("Unknown exception.", __FILE__, __LINE__);
        }
        mustReset = true;
        return true;
    }

    bool DeliverPiece() {
        const std::lock_guard lock(deliveryMutex);
        Piece piece;
        if (mustEnd || !queue.Pop(piece)) return false;
        arrivalNs = piece.arrivalNs;
        if (mustReset.exchange(false)) parser.Reset();
        parser.Feed({piece.bytes, piece.size});
        return true;
    }

    /// Called under deliveryMutex.
    void Notify(std::span<const unsigned char> message, std::chrono::nanoseconds arrival) {
        const auto all = entries;
        for (const auto& entry : all) {
            if (entry->isRemoved) continue;
            try {
                entry->listener(message, arrival);
            } catch (const std::exception& problem) {
                TavoLogException(problem.what(), __FILE__, __LINE__);
            } catch (...) {
                TavoLogException("Unknown exception.", __FILE__, __LINE__);
            }
        }
    }

    /// Ends the connection and forgets what has arrived. Called under deliveryMutex.
    void EndConnection(const std::string& nextPortName) {
        MidiSystem::Get().Unwant(*this);
        Piece piece;
        while (queue.Pop(piece)) {
        }
        mustReset = true;
        const std::lock_guard lock(nameMutex);
        portName = nextPortName;
    }
};

MidiMessageDispatcher::MidiMessageDispatcher() : impl_(std::make_unique<Impl>()) {
    MidiSystem::Get().AddUser();
}

MidiMessageDispatcher::~MidiMessageDispatcher() {
    Disconnect();
    impl_->mustEnd = true;
    sem_post(&impl_->arrived);
    if (impl_->deliveryThread.joinable()) impl_->deliveryThread.join();
    MidiSystem::Get().RemoveUser();
}

void MidiMessageDispatcher::ConnectSourceByIndex(unsigned char index) {
    const std::vector<std::string> names = MidiSystem::Get().GetNames(true);
    if (index >= names.size())
        throw std::out_of_range(
            names.empty() ? fmt::format("there is no MIDI input {}: the system has none", index)
                          : fmt::format("there is no MIDI input {}: the last one is {}", index, names.size() - 1));
    ConnectSourceByName(names[index]);
}

void MidiMessageDispatcher::ConnectSourceByName(const std::string& name) {
    const std::lock_guard lock(impl_->deliveryMutex);
    impl_->EndConnection(name);
    if (!impl_->deliveryThread.joinable()) {
        impl_->deliveryThread = std::thread([impl = impl_.get()] { impl->DeliverArrivals(); });
        // A press must not wait for what else the machine computes. Where that is not permitted, it may have to.
        static_cast<void>(kit::MakeRealTime(impl_->deliveryThread, DeliveryPriority));
    }
    MidiSystem::Get().Want(*impl_, name);
}

void MidiMessageDispatcher::Disconnect() {
    const std::lock_guard lock(impl_->deliveryMutex);
    impl_->EndConnection("");
}

bool MidiMessageDispatcher::GetIsConnected() const {
    return MidiSystem::Get().IsOpen(*impl_);
}

unsigned char MidiMessageDispatcher::GetPortIndex() const {
    if (!GetIsConnected()) return 0;
    const std::vector<std::string> names = MidiSystem::Get().GetNames(true);
    const auto found = std::find(names.begin(), names.end(), GetPortName());
    return found == names.end() ? static_cast<unsigned char>(0) : static_cast<unsigned char>(found - names.begin());
}

std::string MidiMessageDispatcher::GetPortName() const {
    const std::lock_guard lock(impl_->nameMutex);
    return impl_->portName;
}

void MidiMessageDispatcher::AddListener(const void* target, Listener listener) {
    const std::lock_guard lock(impl_->deliveryMutex);
    impl_->entries.push_back(std::make_shared<Impl::Entry>(Impl::Entry{target, std::move(listener)}));
}

void MidiMessageDispatcher::RemoveListener(const void* target) {
    const std::lock_guard lock(impl_->deliveryMutex);
    std::erase_if(impl_->entries, [&](const auto& entry) {
        if (entry->target != target) return false;
        entry->isRemoved = true;
        return true;
    });
}

void MidiMessageDispatcher::Deliver(std::span<const unsigned char> bytes) {
    const std::lock_guard lock(impl_->deliveryMutex);
    const std::chrono::nanoseconds now = std::chrono::steady_clock::now().time_since_epoch();
    MidiParser([&](MidiParser::Message message) { impl_->Notify(message, now); }).Feed(bytes);
}

std::uint64_t MidiMessageDispatcher::GetDroppedCount() const {
    return impl_->dropped;
}

}  // namespace tavo_midi
