// A device on the JACK server for tests: ports NAME:out (a pedal) and NAME:in (a receiver). Lines on standard input:
// "send 90 3C 40", "flood 20000 10000" (that many messages, so many a second). What arrives is written on standard
// output: the sample, then the bytes. The end of the input ends it.

#include <jack/jack.h>
#include <jack/midiport.h>
#include <jack/ringbuffer.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <iostream>
#include <sstream>
#include <string>
#include <thread>

namespace {

/// A message that arrived at a frame, or is to be sent.
struct Message {
    std::uint32_t frame;
    std::uint32_t size;
    std::array<unsigned char, 16> bytes;
};

/// A queue that never keeps the server's cycle waiting.
class Queue {
public:
    ~Queue() { jack_ringbuffer_free(ring_); }
    Queue() = default;
    Queue(const Queue&) = delete;
    Queue& operator=(const Queue&) = delete;

    void Push(const Message& message) {
        if (jack_ringbuffer_write_space(ring_) >= sizeof message)
            jack_ringbuffer_write(ring_, reinterpret_cast<const char*>(&message), sizeof message);
    }
    bool Pop(Message& message) {
        return jack_ringbuffer_read_space(ring_) >= sizeof message &&
               jack_ringbuffer_read(ring_, reinterpret_cast<char*>(&message), sizeof message) == sizeof message;
    }

private:
    jack_ringbuffer_t* const ring_ = jack_ringbuffer_create(std::size_t{1} << 16U);
};

struct Peer {
    jack_client_t* client = nullptr;
    jack_port_t* in = nullptr;
    jack_port_t* out = nullptr;
    Queue toSend;
    Queue arrivals;
    std::atomic<int> floodLeft{0};
    std::atomic<int> floodPerSecond{0};
    double floodDue = 0;
    std::atomic<bool> mustEnd{false};
};

int Process(jack_nframes_t frames, void* argument) {
    auto& peer = *static_cast<Peer*>(argument);
    void* const out = jack_port_get_buffer(peer.out, frames);
    jack_midi_clear_buffer(out);
    if (peer.floodLeft > 0) {
        peer.floodDue += static_cast<double>(peer.floodPerSecond) * frames / jack_get_sample_rate(peer.client);
        for (; peer.floodDue >= 1 && peer.floodLeft > 0; peer.floodDue -= 1, --peer.floodLeft) {
            const std::array<unsigned char, 3> bytes{0xB5, 1, static_cast<unsigned char>(peer.floodLeft & 0x7F)};
            jack_midi_event_write(out, 0, bytes.data(), bytes.size());
        }
    }
    for (Message message; peer.toSend.Pop(message);)
        jack_midi_event_write(out, frames - 1, message.bytes.data(), message.size);
    void* const in = jack_port_get_buffer(peer.in, frames);
    const jack_nframes_t start = jack_last_frame_time(peer.client);
    for (std::uint32_t index = 0; index < jack_midi_get_event_count(in); ++index) {
        jack_midi_event_t event{};
        jack_midi_event_get(&event, in, index);
        Message arrival{start + event.time, static_cast<std::uint32_t>(std::min<std::size_t>(event.size, 16)), {}};
        std::copy_n(event.buffer, arrival.size, arrival.bytes.begin());
        peer.arrivals.Push(arrival);
    }
    return 0;
}

void Write(Peer& peer) {
    while (!peer.mustEnd) {
        for (Message arrival; peer.arrivals.Pop(arrival);) {
            std::printf("%u", arrival.frame);
            for (std::size_t index = 0; index < arrival.size; ++index)
                std::printf(" %02X", arrival.bytes[index]);
            std::printf("\n");
        }
        std::fflush(stdout);
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
}

void Obey(Peer& peer, const std::string& line) {
    std::istringstream words(line);
    std::string verb;
    words >> verb;
    if (verb == "flood") {
        int count = 0;
        int perSecond = 0;
        words >> count >> perSecond;
        peer.floodPerSecond = perSecond;
        peer.floodLeft = count;
        return;
    }
    Message message{};
    for (unsigned int byte = 0; message.size < message.bytes.size() && words >> std::hex >> byte;)
        message.bytes[message.size++] = static_cast<unsigned char>(byte);
    peer.toSend.Push(message);
}

}  // namespace

int main(int argc, char** argv) {
    Peer peer;
    // It is told of a dying server, which is what some tests are about.
    jack_set_error_function([](const char*) {});
    jack_set_info_function([](const char*) {});
    peer.client = jack_client_open(argc > 1 ? argv[1] : "peer", JackNoStartServer, nullptr);
    if (peer.client == nullptr) {
        std::fputs("midi_peer: no JACK server runs.\n", stderr);
        return 1;
    }
    peer.in = jack_port_register(peer.client, "in", JACK_DEFAULT_MIDI_TYPE, JackPortIsInput, 0);
    peer.out = jack_port_register(peer.client, "out", JACK_DEFAULT_MIDI_TYPE, JackPortIsOutput, 0);
    jack_set_process_callback(peer.client, &Process, &peer);
    jack_activate(peer.client);
    std::puts("ready");
    std::fflush(stdout);
    std::thread writer([&peer] { Write(peer); });
    for (std::string line; std::getline(std::cin, line);)
        Obey(peer, line);
    peer.mustEnd = true;
    writer.join();
    jack_client_close(peer.client);
    return 0;
}
