// sound_peer NAME FILE LEFT RIGHT: a JACK client that records what the two ports play, as 32-bit floats, left and right
// in turn. Prints "recording" once it is connected; SIGTERM ends it, and the file is complete. It fails where frames
// are missing in it.

#include <jack/jack.h>
#include <jack/ringbuffer.h>

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

struct Recorder {
    jack_client_t* client = nullptr;
    std::array<jack_port_t*, 2> ports{};
    jack_ringbuffer_t* ring = nullptr;
    std::atomic<std::uint64_t> lost{0};
    bool isCalled = false;  // before
    jack_nframes_t next = 0;
};

int Process(jack_nframes_t frames, void* self) {
    auto& recorder = *static_cast<Recorder*>(self);
    // On a machine that is too busy the server goes on without a client that did not come in time.
    const jack_nframes_t now = jack_last_frame_time(recorder.client);
    if (std::exchange(recorder.isCalled, true) && now != recorder.next) recorder.lost += frames;
    recorder.next = now + frames;
    const auto* left = static_cast<const float*>(jack_port_get_buffer(recorder.ports[0], frames));
    const auto* right = static_cast<const float*>(jack_port_get_buffer(recorder.ports[1], frames));
    for (jack_nframes_t i = 0; i < frames; ++i) {
        const float pair[2] = {left[i], right[i]};
        if (jack_ringbuffer_write_space(recorder.ring) < sizeof pair) {
            recorder.lost += frames - i;
            break;
        }
        jack_ringbuffer_write(recorder.ring, reinterpret_cast<const char*>(pair), sizeof pair);
    }
    return 0;
}

bool Connect(const Recorder& recorder, char** names) {
    for (std::size_t i = 0; i < recorder.ports.size(); ++i) {
        const int result = jack_connect(recorder.client, names[i], jack_port_name(recorder.ports[i]));
        if (result != 0 && result != 17) return false;
    }
    return true;
}

std::atomic<bool> isEnding{false};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 5) return 2;
    std::signal(SIGTERM, [](int) { isEnding = true; });
    jack_set_error_function([](const char*) {});
    jack_set_info_function([](const char*) {});
    Recorder recorder;
    recorder.client = jack_client_open(argv[1], JackNoStartServer, nullptr);
    if (recorder.client == nullptr) return 1;
    recorder.ports[0] = jack_port_register(recorder.client, "left", JACK_DEFAULT_AUDIO_TYPE, JackPortIsInput, 0);
    recorder.ports[1] = jack_port_register(recorder.client, "right", JACK_DEFAULT_AUDIO_TYPE, JackPortIsInput, 0);
    recorder.ring = jack_ringbuffer_create(1U << 23U);
    jack_set_process_callback(recorder.client, Process, &recorder);
    if (jack_activate(recorder.client) != 0) return 1;
    for (int tries = 0; !Connect(recorder, argv + 3); ++tries) {
        if (tries > 500) return 1;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    std::printf("recording\n");
    std::fflush(stdout);

    std::ofstream file(argv[2], std::ios::binary);
    std::vector<char> bytes(1U << 16U);
    for (bool isLast = false; !isLast;) {
        isLast = isEnding;
        for (std::size_t count = 1; count > 0;) {
            count = jack_ringbuffer_read(recorder.ring, bytes.data(), bytes.size());
            file.write(bytes.data(), static_cast<std::streamsize>(count));
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    jack_client_close(recorder.client);
    return recorder.lost == 0 ? 0 : 1;
}
