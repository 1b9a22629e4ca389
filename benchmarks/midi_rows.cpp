// What a press on a MIDI pedal costs until the façade has it, and how even time code is where no JACK server times it.

#include <benchmark/benchmark.h>
#include <fmt/format.h>
#include <jack/jack.h>
#include <jack/midiport.h>
#include <pthread.h>
#include <sys/prctl.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

#include "benchmarks/rows.h"
#include "benchmarks/yardsticks.h"
#include "tavo_core/callback_dispatcher.h"
#include "tavo_midi/midi_commands.h"
#include "tavo_midi/midi_message_dispatcher.h"
#include "tavo_midi/midi_ports.h"
#include "tavo_midi/midi_time_code_controller.h"
#include "tavo_midi/time_code.h"
#include "tavo_midi_io/install_midi_ports.h"
#include "tests/midi_ports/jack_server.h"
#include "tests/support/temporary_directory.h"

namespace bench {

namespace {

using namespace std::chrono_literals;

/// Between presses and between a pipe's wakes alike: all that sleeps is equally cold.
constexpr unsigned int PauseMicroseconds = 4000;

double SteadyNanoseconds() {
    return static_cast<double>(std::chrono::steady_clock::now().time_since_epoch().count());
}

/// Another client of the server that plays a note now and then, and notes when it wrote it.
class Pedal {
public:
    Pedal() : client_(jack_client_open("pedal", JackNoStartServer, nullptr)) {
        if (client_ == nullptr) return;
        out_ = jack_port_register(client_, "out", JACK_DEFAULT_MIDI_TYPE, JackPortIsOutput, 0);
        jack_set_process_callback(
            client_, [](jack_nframes_t frames, void* self) { return static_cast<Pedal*>(self)->Process_(frames); },
            this);
        jack_activate(client_);
    }
    ~Pedal() {
        if (client_ == nullptr) return;
        jack_deactivate(client_);
        jack_client_close(client_);
    }
    Pedal(const Pedal&) = delete;
    Pedal& operator=(const Pedal&) = delete;

    void Press() { mustPress_ = true; }
    [[nodiscard]] double GetPressedAt() const { return pressedAt_; }

private:
    int Process_(jack_nframes_t frames) {
        void* const buffer = jack_port_get_buffer(out_, frames);
        jack_midi_clear_buffer(buffer);
        if (!mustPress_.exchange(false)) return 0;
        constexpr unsigned char Note[] = {0x90, 60, 64};
        jack_midi_event_write(buffer, 0, Note, sizeof Note);
        pressedAt_ = SteadyNanoseconds();
        return 0;
    }

    jack_client_t* const client_;
    jack_port_t* out_ = nullptr;
    std::atomic<bool> mustPress_{false};
    std::atomic<double> pressedAt_{0};
};

struct Presses {
    Timing delays;  ///< until the façade's callback runs
    Timing wakes;   ///< of pipes, between the presses
};

/// Over RtMidi from the moment when the port has the bytes, which it stamps; over JACK, which stamps the frame that
/// they are meant for, from the pedal's write into its own port: the server's way is in it.
Presses MeasurePresses(tavo_midi::MidiSystemChoice choice, std::size_t presses) {
    const bool isJack = choice == tavo_midi::MidiSystemChoice::Jack;
    Presses measured;
    const test_support::TemporaryDirectory directory;
    tavo_midi::SetMidiSystemChoice(choice);
    Pedal pedal;
    MidiMessageDispatcher dispatcher;
    midi_commands::MidiCommands commands(dispatcher, directory / "midiCommandSettings");
    commands.SetMidiCommand(midi_commands::ConductBeat, 0x90, 60, midi_commands::AnyValue);
    dispatcher.ConnectSourceByName("pedal:out");
    std::atomic<double> arrivedAt{0};
    std::atomic<double> calledAt{0};
    notify::callbackDispatcher.AddCallback(&dispatcher, midi_commands::names::conductBeat, [&](void* arrival) {
        const double now = SteadyNanoseconds();
        arrivedAt = static_cast<double>(static_cast<const std::chrono::nanoseconds*>(arrival)->count());
        calledAt = now;
    });
    for (std::size_t press = 0; press < presses; ++press) {
        if (press % 50 == 0) {
            const Timing batch = MeasurePipeWakes(50, PauseMicroseconds);
            for (const double wake : batch.Rounds())
                measured.wakes.Add(wake);
        }
        std::this_thread::sleep_for(std::chrono::microseconds(PauseMicroseconds));
        calledAt = 0;
        pedal.Press();
        const double end = SteadyNanoseconds() + 1e9;
        while (calledAt == 0 && SteadyNanoseconds() < end)
            std::this_thread::sleep_for(200us);
        if (calledAt == 0) throw std::runtime_error("a pedal's message did not come through the JACK server");
        measured.delays.Add(calledAt - (isJack ? pedal.GetPressedAt() : arrivedAt.load()));
    }
    notify::callbackDispatcher.RemoveCallbacksForTarget(&dispatcher);
    dispatcher.Disconnect();
    return measured;
}

void AddPressRows(Table& table, const Effort& effort) {
    std::unique_ptr<test_support::Child> server;
    if (test_support::EnterOwnSharedMemory()) server = test_support::StartJackServer();
    if (!server) {
        table.Add({"MIDI message to façade call", "", "", "", "no JACK server here", "", "", "", {}});
        return;
    }
    const std::size_t presses = effort.brief ? 500 : 5000;
    const std::string n = FormatCount(static_cast<double>(presses));
    for (const auto choice : {tavo_midi::MidiSystemChoice::RtMidi, tavo_midi::MidiSystemChoice::Jack}) {
        const auto [delays, wakes] = MeasurePresses(choice, presses);
        tavo_midi::SetMidiSystemChoice(tavo_midi::MidiSystemChoice::None);
        const bool isPort = choice == tavo_midi::MidiSystemChoice::RtMidi;
        const double ratio = delays.Median() / wakes.Median();
        table.Add({isPort ? "MIDI bytes in to façade call, median" : "with the JACK server's way, median", n,
                   "pipe wake", FormatTime(wakes.Median()), FormatTime(delays.Median()), FormatRatio(ratio),
                   isPort ? "<= 3" : "", "", isPort ? std::optional<bool>(ratio <= 3) : std::nullopt});
        table.Add({"the same, p99",
                   n,
                   "pipe wake, p99",
                   FormatTime(wakes.Quantile(0.99)),
                   FormatTime(delays.Quantile(0.99)),
                   "",
                   "",
                   "",
                   {}});
        table.Add({"the same, p99.9", n, "pipe wake, p99.9", FormatTime(wakes.Quantile(0.999)),
                   FormatTime(delays.Quantile(0.999)), "", "< 1 ms", "", delays.Quantile(0.999) < 1e6});
    }
}

void AddQuarterFrameRow(Table& table, const Effort& effort) {
    const Candidate quarterFrame{"quarter frame", [frame = std::int64_t{0}](std::size_t operations) mutable {
                                     for (std::size_t i = 0; i < operations; ++i, ++frame) {
                                         const tavo_midi::TimeCode code =
                                             tavo_midi::ConvertFramesToTimeCode(frame, FrameRate::Fps2997Drop);
                                         benchmark::DoNotOptimize(tavo_midi::MakeQuarterFrame(
                                             code, FrameRate::Fps2997Drop, static_cast<int>(frame & 7)));
                                     }
                                 }};
    const std::vector<Timing> timings = MeasureInterleaved({LockAndUnlock(), quarterFrame}, effort);
    table.Add({"a quarter frame's bytes, 29.97 drop",
               "",
               "lock+unlock",
               FormatTime(timings[0].Median()),
               FormatTime(timings[1].Median()),
               FormatRatio(MedianRatio(timings[1], timings[0])),
               "",
               "",
               {}});
}

/// A MIDI system without a clock: a host's own, whose one output notes when a quarter frame is sent.
class StampingPorts final : public tavo_midi::MidiPorts {
public:
    static constexpr const char* Name = "stamps";

    [[nodiscard]] std::string GetSystemName() const override { return "benchmark"; }
    [[nodiscard]] bool GetIsAlive() const override { return true; }
    [[nodiscard]] std::vector<std::string> GetSourceNames() override { return {}; }
    [[nodiscard]] std::vector<std::string> GetDestinationNames() override { return {Name}; }
    [[nodiscard]] std::unique_ptr<tavo_midi::MidiInput> OpenInput(const std::string&,
                                                                  tavo_midi::MidiByteSink&) override {
        throw std::runtime_error("there is no input");
    }
    [[nodiscard]] std::unique_ptr<tavo_midi::MidiOutput> OpenOutput(const std::string&) override {
        return std::make_unique<Output>(*this);
    }
    [[nodiscard]] std::vector<double> TakeStamps() {
        const std::lock_guard lock(mutex_);
        return std::exchange(stamps_, {});
    }

private:
    struct Output final : tavo_midi::MidiOutput {
        explicit Output(StampingPorts& to) : ports(to) {}
        bool Send(std::span<const unsigned char> message) override {
            const double now = SteadyNanoseconds();
            const std::lock_guard lock(ports.mutex_);
            if (message.size() == 2) ports.stamps_.push_back(now);
            return true;
        }
        StampingPorts& ports;
    };

    std::mutex mutex_;
    std::vector<double> stamps_;  ///< guarded by mutex_
};

/// Nanoseconds that the stamps run away from their clock in a minute: from the middle lag of the first third to that of
/// the last, which lie two thirds apart. A stall of the machine is late once, and bends any mean or best line.
double MeasureDriftPerMinute(const std::vector<double>& stamps, double nominal) {
    const std::size_t third = stamps.size() / 3;
    Timing first;
    Timing last;
    for (std::size_t i = 0; i < third; ++i) {
        const std::size_t late = stamps.size() - third + i;
        first.Add(stamps[i] - stamps[0] - static_cast<double>(i) * nominal);
        last.Add(stamps[late] - stamps[0] - static_cast<double>(late) * nominal);
    }
    const double distance = static_cast<double>(stamps.size() - third) * nominal;
    return std::abs(last.Median() - first.Median()) / distance * 60e9;
}

constexpr double QuarterFrameNs = 1e9 / 120;

Timing MeasureIntervalErrors(const std::vector<double>& stamps) {
    Timing errors;
    for (std::size_t i = 1; i < stamps.size(); ++i)
        errors.Add(std::abs(stamps[i] - stamps[i - 1] - QuarterFrameNs));
    return errors;
}

/// The best that the machine allows: a thread above all others with the deadlines of quarter frames and nothing to do,
/// which wakes as early as the sender does and spins.
std::vector<double> StampBareLoop(int seconds) {
    constexpr double SpinNs = 200'000;
    std::vector<double> stamps(static_cast<std::size_t>(seconds) * 120);
    std::thread loop([&stamps] {
        const sched_param parameters{.sched_priority = 90};
        pthread_setschedparam(pthread_self(), SCHED_FIFO, &parameters);
        prctl(PR_SET_TIMERSLACK, 1);
        const double start = SteadyNanoseconds();
        for (std::size_t i = 0; i < stamps.size(); ++i) {
            const double at = start + static_cast<double>(i + 1) * QuarterFrameNs;
            std::this_thread::sleep_until(std::chrono::steady_clock::time_point(
                std::chrono::nanoseconds(static_cast<std::int64_t>(at - SpinNs))));
            do
                stamps[i] = SteadyNanoseconds();
            while (stamps[i] < at);
        }
    });
    loop.join();
    return stamps;
}

void AddSenderRows(Table& table, const Effort& effort) {
    const test_support::TemporaryDirectory directory;
    const auto ports = std::make_shared<StampingPorts>();
    std::string remark;
    tavo_midi::SetMidiPortListener([&](const tavo_midi::MidiPortReport& report) { remark = report.sentence; });
    tavo_midi::SetMidiPorts(ports);
    std::vector<double> stamps;
    const int seconds = effort.brief ? 4 : 60;
    {
        MidiTimeCodeController controller(directory / "midiTimeCodeSettings");
        controller.SetOutputPortName(StampingPorts::Name);
        controller.ActivateMidiTimeCode();
        controller.Start(0s);
        std::this_thread::sleep_for(std::chrono::seconds(seconds));
        stamps = ports->TakeStamps();
    }
    tavo_midi::SetMidiPorts(nullptr);
    tavo_midi::SetMidiPortListener({});
    const Timing errors = MeasureIntervalErrors(stamps);
    const Timing bare = MeasureIntervalErrors(StampBareLoop(seconds));
    const double drift = MeasureDriftPerMinute(stamps, QuarterFrameNs);
    const std::string n = fmt::format("{} s", seconds);
    const bool isRealTime = remark.find("no real-time") == remark.npos;
    const auto add = [&](const char* what, double quantile, std::optional<bool> isMet) {
        table.Add({what, n, isRealTime ? "bare SCHED_FIFO loop" : "bare loop, no SCHED_FIFO here",
                   FormatTime(bare.Quantile(quantile)), FormatTime(errors.Quantile(quantile)),
                   FormatRatio(errors.Quantile(quantile) / bare.Quantile(quantile)), isMet ? "< 40 us idle" : "", "",
                   isMet});
    };
    add("quarter frames off JACK, interval error, median", 0.5, std::nullopt);
    add("the same, p99", 0.99, std::nullopt);
    add("the same, p99.9", 0.999, errors.Quantile(0.999) < 40e3);
    table.Add({"the same, drift a minute", n, "steady clock", "", FormatTime(drift), "", "< 1 us",
               effort.brief ? "too short to tell" : "",
               effort.brief ? std::nullopt : std::optional<bool>(drift < 1e3)});
}

}  // namespace

void AddMidiRows(Table& table, const Effort& effort) {
    tavo_midi_io::InstallMidiPorts();
    AddPressRows(table, effort);
    AddQuarterFrameRow(table, effort);
    AddConverterRows(table, effort);
    AddSenderRows(table, effort);
}

}  // namespace bench
