// Playing through a JACK server, with libjack.

#include <fmt/format.h>
#include <jack/jack.h>
#include <jack/midiport.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string_view>
#include <utility>
#include <vector>

#include "kit/words.h"
#include "stage/live/audio_output.h"
#include "tavo_midi_io/jack_clients.h"

namespace stage {

namespace {

void Ignore(const char* /*message*/) {}

struct CloseClient {
    void operator()(jack_client_t* client) const { jack_client_close(client); }
};
using Client = std::unique_ptr<jack_client_t, CloseClient>;

struct FreePorts {
    void operator()(const char** ports) const { jack_free(ports); }
};

Client OpenClient(const std::string& name) {
    if (!tavo_midi_io::jack_clients::MayOpen())
        throw std::runtime_error("the JACK server has gone, and its other clients here have not left it yet");
    // The library would write to the terminal.
    jack_set_error_function(Ignore);
    jack_set_info_function(Ignore);
    jack_status_t status{};
    Client client(jack_client_open(name.c_str(), JackNoStartServer, &status));
    if (client != nullptr) {
        tavo_midi_io::jack_clients::NoteOpened();
        return client;
    }
    const bool hasNoServer = (status & JackServerFailed) != 0 || (status & JackServerError) != 0;
    throw std::runtime_error(hasNoServer ? "no JACK server runs that this program may use"
                                         : fmt::format("the JACK server refuses a client (status {:#x})",
                                                       static_cast<unsigned int>(status)));
}

class JackOutput final : public AudioOutput {
public:
    JackOutput(const OutputChoice& choice, FrameSource& source)
        : source_(source), client_(OpenClient(choice.clientName)) {
        try {
            Begin_(choice);
        } catch (...) {
            client_.reset();
            tavo_midi_io::jack_clients::NoteClosed();
            throw;
        }
    }
    // The client's threads end before the rest goes.
    ~JackOutput() override {
        client_.reset();
        tavo_midi_io::jack_clients::NoteClosed();
    }
    JackOutput(const JackOutput&) = delete;
    JackOutput& operator=(const JackOutput&) = delete;

    std::string GetName() const override { return "JACK"; }
    OutputFormat GetFormat() const override { return {framesPerSecond_, periodFrames_, latencyFrames_}; }
    std::string GetProblem() const override {
        return isShutDown_ ? "The JACK server has gone; sound goes on when it returns." : "";
    }
    std::uint64_t CountDeviceOverruns() const override { return overruns_; }
    std::string TakeRemark() override {
        const std::lock_guard lock(remarkMutex_);
        return std::exchange(remark_, "");
    }

private:
    using PortPair = std::array<jack_port_t*, 2>;

    void Begin_(const OutputChoice& choice) {
        jack_client_t* const client = client_.get();
        framesPerSecond_ = jack_get_sample_rate(client);
        Register_("main");
        for (const OutputChoice::Pair& pair : choice.furtherPairs)
            Register_(pair.name);
        buffers_.resize(pairs_.size());
        for (const std::string& name : choice.midiPorts) {
            midiPorts_.push_back(jack_port_register(client, name.c_str(), JACK_DEFAULT_MIDI_TYPE,
                                                    JackPortIsOutput | JackPortIsTerminal, 0));
            if (midiPorts_.back() == nullptr)
                throw std::runtime_error(fmt::format("the JACK server gives no port for {}", kit::Quote(name)));
        }
        midiBuffers_.resize(midiPorts_.size());
        jack_on_info_shutdown(client, &JackOutput::OnShutdown_, this);
        jack_set_process_callback(client, &JackOutput::OnProcess_, this);
        jack_set_buffer_size_callback(client, &JackOutput::OnBufferSize_, this);
        jack_set_xrun_callback(client, &JackOutput::OnOverrun_, this);
        jack_set_latency_callback(client, &JackOutput::OnLatency_, this);
        periodFrames_ = jack_get_buffer_size(client);
        TellFormat_();
        if (jack_activate(client) != 0) throw std::runtime_error("the JACK server does not let a client play");
        Connect_(pairs_.front(), choice.device);
        for (std::size_t i = 0; i < choice.furtherPairs.size(); ++i)
            if (const std::string& device = choice.furtherPairs[i].device; !device.empty())
                Connect_(pairs_[i + 1], device);
        ReadLatency_();
    }

    void Register_(const std::string& name) {
        PortPair& pair = pairs_.emplace_back();
        for (std::size_t i = 0; i < pair.size(); ++i) {
            pair[i] = jack_port_register(client_.get(), (name + (i == 0 ? "_left" : "_right")).c_str(),
                                         JACK_DEFAULT_AUDIO_TYPE, JackPortIsOutput | JackPortIsTerminal, 0);
            if (pair[i] == nullptr)
                throw std::runtime_error(fmt::format("the JACK server gives no port for {}", kit::Quote(name)));
        }
    }

    static int OnProcess_(jack_nframes_t frames, void* self) {
        return static_cast<JackOutput*>(self)->Process_(frames);
    }
    static int OnBufferSize_(jack_nframes_t frames, void* self) {
        auto& output = *static_cast<JackOutput*>(self);
        output.periodFrames_ = frames;
        output.TellFormat_();
        return 0;
    }
    static int OnOverrun_(void* self) {
        ++static_cast<JackOutput*>(self)->overruns_;
        return 0;
    }
    static void OnLatency_(jack_latency_callback_mode_t mode, void* self) {
        if (mode == JackPlaybackLatency) static_cast<JackOutput*>(self)->ReadLatency_();
    }
    static void OnShutdown_(jack_status_t /*code*/, const char* /*reason*/, void* self) {
        tavo_midi_io::jack_clients::NoteServerDied();
        static_cast<JackOutput*>(self)->isShutDown_ = true;
    }

    // The device's callback: no lock, no allocation, no system call.
    int Process_(jack_nframes_t frames) {
        for (std::size_t i = 0; i < pairs_.size(); ++i)
            buffers_[i] = {static_cast<float*>(jack_port_get_buffer(pairs_[i][0], frames)),
                           static_cast<float*>(jack_port_get_buffer(pairs_[i][1], frames))};
        // JACK's own times are of another clock, which drifts against the steady one. This one is read without a system
        // call.
        source_.TakeFrames(buffers_, frames, std::chrono::steady_clock::now().time_since_epoch());
        ProcessMidi_(frames);
        return 0;
    }

    void ProcessMidi_(jack_nframes_t frames) {
        for (std::size_t i = 0; i < midiPorts_.size(); ++i) {
            midiBuffers_[i] = jack_port_get_buffer(midiPorts_[i], frames);
            jack_midi_clear_buffer(midiBuffers_[i]);
        }
        // Whatever listens may have been told of notes whose ends were lost with the last server.
        if (!std::exchange(hasEndedNotes_, true)) EndNotes_();
        MidiMessage message;
        while (source_.TakeMidi(message))
            if (message.port < midiBuffers_.size())
                jack_midi_event_write(midiBuffers_[message.port], std::min(message.offset, frames - 1),
                                      message.bytes.data(), message.size);
    }

    void EndNotes_() {
        constexpr std::uint8_t AllNotesOff = 123;
        for (void* const buffer : midiBuffers_) {
            for (std::uint8_t channel = 0; channel < 16; ++channel) {
                const std::array<std::uint8_t, 3> bytes{static_cast<std::uint8_t>(0xB0U | channel), AllNotesOff, 0};
                jack_midi_event_write(buffer, 0, bytes.data(), bytes.size());
            }
        }
    }

    void ReadLatency_() {
        jack_latency_range_t range{};
        jack_port_get_latency_range(pairs_.front()[0], JackPlaybackLatency, &range);
        latencyFrames_ = range.max;
        TellFormat_();
    }

    void TellFormat_() { source_.NoteFormat(GetFormat()); }

    // To the port of that name and the one after it, or to those whose names begin so, or to the hardware's first two.
    void Connect_(const PortPair& pair, const std::string& device) {
        const std::vector<std::string> found = FindPorts_(device);
        for (std::size_t i = 0; i < std::min(found.size(), pair.size()); ++i)
            jack_connect(client_.get(), jack_port_name(pair[i]), found[i].c_str());
        if (found.size() >= pair.size()) return;
        const std::lock_guard lock(remarkMutex_);
        if (!remark_.empty()) return;
        remark_ = device.empty()
                      ? "The JACK server has no two hardware outputs: connect this program's ports by hand."
                      : fmt::format("There are no two JACK ports whose names begin with \"{}\": connect them by hand.",
                                    device);
    }

    std::vector<std::string> FindPorts_(const std::string& device) {
        if (device.empty()) return ListPorts_("", JackPortIsInput | static_cast<unsigned long>(JackPortIsPhysical));
        if (const std::size_t colon = device.find(':'); colon != std::string::npos) {
            std::vector<std::string> ports = ListPorts_("^" + Quote_(device.substr(0, colon + 1)), JackPortIsInput);
            const auto named = std::find(ports.begin(), ports.end(), device);
            if (named != ports.end()) return {named, ports.end()};
        }
        return ListPorts_("^" + Quote_(device), JackPortIsInput);
    }

    std::vector<std::string> ListPorts_(const std::string& pattern, unsigned long flags) {
        const std::unique_ptr<const char*, FreePorts> found(
            jack_get_ports(client_.get(), pattern.empty() ? nullptr : pattern.c_str(), JACK_DEFAULT_AUDIO_TYPE, flags));
        std::vector<std::string> ports;
        for (std::size_t i = 0; found != nullptr && found.get()[i] != nullptr; ++i)
            ports.emplace_back(found.get()[i]);
        return ports;
    }

    // Port names are looked up as regular expressions.
    static std::string Quote_(const std::string& name) {
        std::string quoted;
        for (const char c : name) {
            if (std::string_view("\\^$.[]|()*+?{}").find(c) != std::string_view::npos) quoted += '\\';
            quoted += c;
        }
        return quoted;
    }

    // Constant once the callbacks run.
    FrameSource& source_;
    Client client_;
    std::vector<PortPair> pairs_;
    std::uint32_t framesPerSecond_ = 0;
    std::vector<jack_port_t*> midiPorts_;
    // Used by the device's thread.
    std::vector<void*> midiBuffers_;
    bool hasEndedNotes_ = false;
    std::vector<StereoBuffer> buffers_;  // of a period
    // Synchronise themselves.
    std::atomic<std::uint32_t> periodFrames_{0};
    std::atomic<std::uint32_t> latencyFrames_{0};
    std::atomic<std::uint64_t> overruns_{0};
    std::atomic<bool> isShutDown_{false};
    std::mutex remarkMutex_;
    std::string remark_;  // guarded by remarkMutex_
};

/// Opens and closes where all of the process's requests to JACK are made.
class AskedJackOutput final : public AudioOutput {
public:
    AskedJackOutput(const OutputChoice& choice, FrameSource& source) {
        const auto outcome = std::make_shared<Outcome>();
        const bool isAnswered = tavo_midi_io::AskJack([outcome, choice, &source] {
            // Whoever asked has given up waiting, and the source may be gone.
            if (outcome->isAbandoned) return;
            outcome->output = std::make_shared<JackOutput>(choice, source);
        });
        if (!isAnswered) {
            outcome->isAbandoned = true;
            throw std::runtime_error("the JACK server does not answer");
        }
        output_ = std::move(outcome->output);
    }
    ~AskedJackOutput() override {
        tavo_midi_io::CloseJackClient([output = std::move(output_)]() mutable { output.reset(); });
    }
    AskedJackOutput(const AskedJackOutput&) = delete;
    AskedJackOutput& operator=(const AskedJackOutput&) = delete;

    std::string GetName() const override { return output_->GetName(); }
    OutputFormat GetFormat() const override { return output_->GetFormat(); }
    std::string GetProblem() const override { return output_->GetProblem(); }
    std::uint64_t CountDeviceOverruns() const override { return output_->CountDeviceOverruns(); }
    std::string TakeRemark() override { return output_->TakeRemark(); }

private:
    struct Outcome {
        std::shared_ptr<JackOutput> output;
        std::atomic<bool> isAbandoned{false};
    };

    std::shared_ptr<JackOutput> output_;
};

}  // namespace

std::unique_ptr<AudioOutput> OpenJackOutput(const OutputChoice& choice, FrameSource& source) {
    return std::make_unique<AskedJackOutput>(choice, source);
}

}  // namespace stage
