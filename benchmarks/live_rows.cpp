// A performance: what the device's callback costs, how late a press may come, how soon a song stands ready.

#include <fmt/format.h>

#include <array>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "benchmarks/rows.h"
#include "stage/control/take.h"
#include "stage/live/live_show.h"
#include "tests/midi_ports/jack_server.h"
#include "tests/player_core/support/test_interface.h"

namespace bench {

namespace {

using stage::CommandSource;
using stage::OutputChoice;
using stage::Verb;

double Now() {
    return static_cast<double>(std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count());
}

class Deaf final : public stage::LiveListener {
public:
    void OnLiveEvent(const stage::LiveEvent&) override {}
    void OnRecord(const stage::CommandRecord&) override {}
    void OnNotification(const notify::GuiNotification&) override {}
    void OnMessage(const std::string&) override {}
};

/// Sixteen bars, the first of which goes round ten times a second.
class LiveStage {
public:
    explicit LiveStage(const OutputChoice& output) {
        files_.WriteMusic("evening.showdata",
                          {test_support::MakeShowSong("1", 16), test_support::MakeShowSong("2", 400)});
        files_.WriteLog("evening-1.3.logdata", {1, 3},
                        [](CL::ChangeLog& log) { log.GetSongLog("1").GetVamps().Add(CL::Vamp(480, 576)); });
        stage::LiveShow::Options options;
        options.output = output;
        options.settingsDirectory = files_.Settings();
        show.emplace(files_.Show(), options);
    }

    void Press(const std::string& line) { show->Press(show->Read(line, {stage::Door::Script, ""})); }
    void Run(double seconds) {
        for (const double end = Now() + seconds * 1e9; Now() < end;) {
            static_cast<void>(show->Deliver(deaf_));
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    }

private:
    test_support::ShowFiles files_;
    Deaf deaf_;

public:
    std::optional<stage::LiveShow> show;
};

/// When the device begins to take this frame of its ring, as seen from between two blocks; nothing while it does not
/// play.
std::optional<double> FindTakenMoment(LiveStage& live, double frame) {
    const stage::OutputFormat format = live.show->GetFeed().GetClock().GetFormat();
    const auto moment = live.show->GetFeed().GetClock().GetLastMoment();
    if (!moment) return std::nullopt;
    // The device took frames up to here when it began its last period; those after it come one period later.
    const auto taken = static_cast<double>(live.show->GetFeed().GetRing().CountTaken());
    const double begins = static_cast<double>(moment->count()) + 1e9 * format.periodFrames / format.framesPerSecond;
    return begins + 1e9 * (frame - taken) / format.framesPerSecond;
}

/// At each loop's end: how long after the decision the device begins to play what was decided.
class SeamWatch final : public stage::EngineSubscriber {
public:
    explicit SeamWatch(LiveStage& live) : live_(live) {}

    void OnEngineEvent(const stage::EngineEvent& event) override {
        if (event.kind != stage::EngineEvent::Kind::Jumped) return;
        const double now = Now();
        const std::optional<double> played = FindTakenMoment(live_, static_cast<double>(event.frame));
        if (!played) return;
        const std::lock_guard lock(mutex_);
        leads_.Add(std::max(0.0, *played - now));
    }
    [[nodiscard]] Timing GetLeads() {
        const std::lock_guard lock(mutex_);
        return leads_;
    }

private:
    LiveStage& live_;
    std::mutex mutex_;
    Timing leads_;
};

Timing MeasureSeams(const OutputChoice& output, double seconds) {
    LiveStage live(output);
    SeamWatch watch(live);
    live.Run(0.3);
    live.Press("load 1");
    live.Run(0.2);
    // Between two blocks, on the thread that renders.
    live.show->GetSession().GetDesk().Post({Verb::Stop, {}, {stage::Door::Script, ""}, 0, {}}, {}, [&] {
        live.show->GetSession().GetStagePlayer().GetEngine().Subscribe(watch);
    });
    live.Press("play");
    live.Run(seconds);
    live.Press("panic");
    live.Run(0.2);
    Timing leads = watch.GetLeads();
    live.show.reset();
    return leads;
}

void AddSeamRow(Table& table, const OutputChoice& output, const std::string& name, double seconds) {
    const Timing leads = MeasureSeams(output, seconds);
    if (leads.Rounds().empty()) return;
    const double period = 1e9 * output.periodFrames / output.framesPerSecond;
    table.Add({fmt::format("{}, {} frames: a press is too late before a seam, p50 / p99", name, output.periodFrames),
               fmt::format("{}", leads.Rounds().size()), "a period", FormatTime(period),
               fmt::format("{} / {}", FormatTime(leads.Median()), FormatTime(leads.Quantile(0.99))),
               FormatRatio(leads.Median() / period), output.periodFrames == 128 ? "6 ms" : "", "",
               leads.Quantile(0.99) <= 6e6 || output.periodFrames != 128});
}

void AddCallbackRow(Table& table, const Effort& effort) {
    constexpr std::uint32_t Period = 128;
    stage::OutputFeed feed;
    const std::vector<float> sound(Period, 0.1F);
    std::array<float, Period> left{};
    std::array<float, Period> right{};
    Timing callbacks;
    Timing copies;
    std::chrono::nanoseconds moment{0};  // of a device that is in time
    for (const double end = Now() + effort.secondsPerComparison * 1e9; Now() < end;) {
        feed.GetRing().Write(sound.data(), sound.data(), Period);
        const double begin = ReadNanoseconds(Clock::Wall);
        moment += std::chrono::nanoseconds(1'000'000'000LL * Period / 48000);
        feed.TakeFrames(left.data(), right.data(), Period, moment);
        const double middle = ReadNanoseconds(Clock::Wall);
        std::copy(sound.begin(), sound.end(), left.begin());
        std::copy(sound.begin(), sound.end(), right.begin());
        callbacks.Add(middle - begin);
        copies.Add(ReadNanoseconds(Clock::Wall) - middle);
    }
    table.Add({"the device's callback, 128 frames, median / p99.9", fmt::format("{}", callbacks.Rounds().size()),
               "two copies of them", FormatTime(copies.Median()),
               fmt::format("{} / {}", FormatTime(callbacks.Median()), FormatTime(callbacks.Quantile(0.999))),
               FormatRatio(callbacks.Median() / copies.Median()), "2 us at p99.9", "",
               callbacks.Quantile(0.999) <= 2000});
}

void AddStartRow(Table& table, const Effort& effort) {
    OutputChoice output;
    output.kind = OutputChoice::Kind::Null;
    LiveStage live(output);
    live.Run(0.2);
    Timing loads;
    const int times = effort.brief ? 10 : 60;
    for (int i = 0; i < times; ++i) {
        const std::string wanted = i % 2 == 0 ? "2" : "1";
        const double begin = Now();
        live.Press("load " + wanted);
        live.Press("play");
        while (live.show->GetSession().GetCurrentSongNumber() != wanted ||
               !live.show->GetSession().GetStagePlayer().GetEngine().IsRolling())
            std::this_thread::yield();
        loads.Add(Now() - begin);
        live.Run(0.03);
    }
    const double period = 1e9 * output.periodFrames / output.framesPerSecond;
    table.Add({"a song is loaded and plays, median / p99", fmt::format("{}", loads.Rounds().size()), "a period",
               FormatTime(period), fmt::format("{} / {}", FormatTime(loads.Median()), FormatTime(loads.Quantile(0.99))),
               FormatRatio(loads.Median() / period), "50 ms", "", loads.Quantile(0.99) <= 50e6});
}

void AddPressRow(Table& table, const OutputChoice& output, const std::string& name, const Effort& effort) {
    LiveStage live(output);
    live.Run(0.3);
    live.Press("load 2");
    live.Press("play");
    live.Run(0.3);
    Timing waits;
    std::mutex mutex;
    Random random(7);
    for (int i = 0; i < (effort.brief ? 60 : 400); ++i) {
        std::this_thread::sleep_for(std::chrono::microseconds(3000 + random.Below(5000)));
        const double pressed = Now();
        live.show->GetSession().GetDesk().Post(
            {Verb::Volume, {0.5 + i % 2 * 0.5}, {stage::Door::Script, ""}, 0, {}}, {}, [&, pressed] {
                // What is rendered next.
                const auto frame = static_cast<double>(live.show->GetFeed().GetRing().CountWritten());
                const double taken = FindTakenMoment(live, frame).value_or(0);
                const std::lock_guard lock(mutex);
                waits.Add(std::max(Now(), taken) - pressed);
            });
        if (i % 16 == 0) live.Run(0.005);
    }
    live.Run(0.1);
    const stage::OutputFormat format = live.show->GetFeed().GetClock().GetFormat();
    const double period = 1e9 * format.periodFrames / format.framesPerSecond;
    const double aim =
        1e9 * (live.show->GetRenderer().GetLeadFrames() + format.periodFrames) / format.framesPerSecond + 1e6;
    live.show.reset();
    const std::lock_guard lock(mutex);
    table.Add({fmt::format("{}, {} frames: press to changed sound at the device, p50 / p99", name, format.periodFrames),
               fmt::format("{}", waits.Rounds().size()), "a period", FormatTime(period),
               fmt::format("{} / {}", FormatTime(waits.Median()), FormatTime(waits.Quantile(0.99))),
               FormatRatio(waits.Median() / period), FormatTime(aim), "", waits.Quantile(0.99) <= aim});
}

/// How far beyond each beat the heard playhead is when the display is told of it.
class BeatWatch final : public stage::LiveListener {
public:
    explicit BeatWatch(stage::LiveShow& show) : show_(show) {}

    void OnLiveEvent(const stage::LiveEvent&) override {}
    void OnRecord(const stage::CommandRecord&) override {}
    void OnNotification(const notify::GuiNotification& notification) override {
        if (notification.type != notify::GuiNotificationType::BarBeat) return;
        // At 120 beats a minute.
        const double ticks = show_.GetRenderer().FindHeardTick() % TicksPerBeat;
        delays.Add(ticks / TicksPerBeat * 0.5e9);
    }
    void OnMessage(const std::string&) override {}

    static constexpr unsigned int TicksPerBeat = 480;
    Timing delays;

private:
    stage::LiveShow& show_;
};

void AddBeatRow(Table& table, const Effort& effort) {
    OutputChoice output;
    output.kind = OutputChoice::Kind::Null;
    LiveStage live(output);
    BeatWatch watch(*live.show);
    live.Run(0.2);
    live.Press("load 2");
    live.Press("tempo 200%");
    live.Press("play");
    live.Run(0.1);
    for (const double end = Now() + (effort.brief ? 6e9 : 40e9); Now() < end;) {
        static_cast<void>(live.show->Deliver(watch));
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    live.show.reset();
    if (watch.delays.Rounds().empty()) return;
    // Twice as fast as it is written.
    const Timing delays = 0.5 * watch.delays;
    constexpr double Interval = 33e6;
    table.Add({"a beat is heard and the display is told, p50 / p99", fmt::format("{}", delays.Rounds().size()),
               "the feed's interval", FormatTime(Interval),
               fmt::format("{} / {}", FormatTime(delays.Median()), FormatTime(delays.Quantile(0.99))),
               FormatRatio(delays.Median() / Interval), FormatTime(Interval + 5e6), "",
               delays.Quantile(0.99) <= Interval + 5e6});
}

template <class IsDone>
void Deliver(stage::LiveShow& show, const IsDone& isDone) {
    Deaf deaf;
    while (!isDone()) {
        static_cast<void>(show.Deliver(deaf));
        std::this_thread::yield();
    }
}

/// A show of sixty songs: opened, put back to where its take broke off, ready; and what that takes of the memory.
void AddResumeRows(Table& table, const Effort& effort) {
    test_support::ShowFiles files;
    std::vector<tavo_midi::ShowSong> songs;
    for (int song = 1; song <= 60; ++song)
        songs.push_back(test_support::MakeShowSong(std::to_string(song), 100));
    files.WriteMusic("evening.showdata", songs);
    files.WriteLog("evening-1.0.logdata", {1, 0}, [](CL::ChangeLog&) {});
    stage::LiveShow::Options options;
    options.output.kind = OutputChoice::Kind::Null;
    options.settingsDirectory = files.Settings();
    options.takePath = files.Show() + "/broken.take";
    const CommandSource source{stage::Door::Script, ""};
    {
        stage::LiveShow show(files.Show(), options);
        show.Press(show.Read("load 30", source));
        Deliver(show, [&] { return show.GetSession().GetCurrentSongNumber() == "30"; });
        show.Press(show.Read("seek 7", source));
        show.Press(show.Read("tempo 90%", source));
        Deliver(show, [&] { return show.GetRenderer().FindHeardTick() > 0; });
    }
    const stage::Take take = stage::ReadTake(options.takePath);
    options.takePath.clear();
    Timing resumes;
    Timing opens;
    for (int i = 0; i < (effort.brief ? 5 : 30); ++i) {
        const double begin = Now();
        stage::LiveShow show(files.Show(), options);
        const double opened = Now();
        show.Resume(take);
        Deliver(show, [&] { return show.GetRenderer().FindHeardTick() > 0; });
        resumes.Add(Now() - begin);
        opens.Add(opened - begin);
    }
    table.Add({"sixty songs: opened and back where the take broke off, median / p99",
               fmt::format("{}", resumes.Rounds().size()), "opened alone", FormatTime(opens.Median()),
               fmt::format("{} / {}", FormatTime(resumes.Median()), FormatTime(resumes.Quantile(0.99))),
               FormatRatio(resumes.Median() / opens.Median()), "1 s", "", resumes.Quantile(0.99) <= 1e9});
    const Opening opening = OpenInOwnProcess(PlayShowArgument, files.Show());
    table.Add({"a process that plays one of sixty songs, at its most", "60 songs", "", "",
               fmt::format("{:.0f} MB", opening.peakMegabytes), "", "120 MB", "", opening.peakMegabytes < 120});
}

}  // namespace

void PlayShow(const char* path) {
    const double begin = Now();
    stage::LiveShow::Options options;
    options.output.kind = OutputChoice::Kind::Null;
    stage::LiveShow show(path, options);
    const double opened = Now();
    const CommandSource source{stage::Door::Script, ""};
    show.Press(show.Read("load 30", source));
    Deliver(show, [&] { return show.GetSession().GetCurrentSongNumber() == "30"; });
    show.Press(show.Read("play", source));
    const auto heard = [&] { return show.GetRenderer().FindHeardTick(); };
    Deliver(show, [&] { return heard() > 0; });
    // A bar on, all that playing needs has been used.
    Deliver(show, [&] { return heard() > 4 * 480; });
    PrintOpening((opened - begin) / 1e6);
}

void AddLiveRows(Table& table, const Effort& effort) {
    AddCallbackRow(table, effort);
    AddResumeRows(table, effort);
    AddStartRow(table, effort);
    AddBeatRow(table, effort);
    const double seconds = effort.brief ? 2 : 10;
    OutputChoice output;
    for (const std::uint32_t period : {64U, 128U, 256U}) {
        output.kind = OutputChoice::Kind::Null;
        output.periodFrames = period;
        AddSeamRow(table, output, "clock", seconds);
    }
    // Comes last: the process keeps its own /dev/shm.
    if (!test_support::EnterOwnSharedMemory()) return;
    for (const std::uint32_t period : {64U, 128U, 256U}) {
        const auto server = test_support::StartJackServer("", 48000, period);
        if (server == nullptr) return;
        output.kind = OutputChoice::Kind::Jack;
        output.periodFrames = period;
        AddSeamRow(table, output, "JACK", seconds);
        AddPressRow(table, output, "JACK", effort);
    }
}

}  // namespace bench
