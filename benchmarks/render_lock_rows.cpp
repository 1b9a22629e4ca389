// What rendering and the operations of other threads wait for each other.

#include <fmt/format.h>

#include <array>
#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <thread>

#include "benchmarks/rows.h"
#include "player_core/gui_update.h"
#include "stage/engine/sound_font.h"
#include "stage/engine/stage_player.h"
#include "stage/session/stepped_feed.h"
#include "tests/support/show_builder.h"

namespace bench {

namespace {

constexpr double AimNanoseconds = 100'000;

/// A player of two songs of 200 bars with edits, which plays.
class PlayingStage {
public:
    PlayingStage() : synth_(stage::FindDefaultSoundFont(), 48000, 16), player("", Activated(show_), synth_, 48000) {
        SetGuiUpdate(std::make_unique<stage::SteppedFeed>(
            player, [this](unsigned int* tick) { return player.ReportPosition(tick); }));
        player.LoadSong("1");
        player.Play();
    }
    ~PlayingStage() {
        player.HaltOutput();
        SetGuiUpdate(nullptr);
        SetActiveChangeLog(nullptr);
    }
    PlayingStage(const PlayingStage&) = delete;
    PlayingStage& operator=(const PlayingStage&) = delete;

    void Render(std::uint32_t frames) { player.GetEngine().Render(left_.data(), right_.data(), frames); }

private:
    static const tavo_midi::ShowData& Activated(test_support::TestShow& show) {
        std::string edits;
        for (int bar = 3; bar < 190; bar += 6)
            edits += fmt::format("repeat {} {} 2\nmarker {} Letter\ncaesura {}\n", bar, bar + 1, bar, bar + 3);
        show.Song("1", 200).Edits(edits).Song("2", 200).Edits(edits);
        show.Activate();
        return show.GetShowData();
    }

    test_support::TestShow show_;
    stage::Synth synth_;
    std::array<float, 4096> left_{};
    std::array<float, 4096> right_{};

public:
    stage::StagePlayer player;
};

struct Operation {
    const char* name;
    std::function<void(stage::StagePlayer& player, unsigned int random)> run;
};

const std::vector<Operation>& Operations() {
    static const auto* operations = new std::vector<Operation>{
        {"seek", [](auto& player, unsigned int random) { player.Seek(random % 380'000); }},
        {"stop and play",
         [](auto& player, unsigned int) {
             player.Stop();
             player.Play();
         }},
        {"load and play",
         [](auto& player, unsigned int random) {
             player.LoadSong(random % 2 == 0 ? "1" : "2");
             player.Play();
         }},
        {"edit while playing", [](auto& player, unsigned int) { player.NotifyNewChangeLog(); }},
        {"volume", [](auto& player, unsigned int) { player.SetVolume(0.5, tavo_audio::Master); }},
    };
    return *operations;
}

/// Somebody on another thread who does one thing after the other, until destroyed.
class Busy {
public:
    explicit Busy(std::function<void(unsigned int random)> act)
        : thread_([this, act = std::move(act)] {
              Random random(5);
              while (!ends_)
                  act(random.Below(1U << 30U));
          }) {}
    ~Busy() {
        ends_ = true;
        thread_.join();
    }
    Busy(const Busy&) = delete;
    Busy& operator=(const Busy&) = delete;

private:
    std::atomic<bool> ends_{false};
    std::thread thread_;
};

// About as long as an operation, and touches nothing.
void Spin(unsigned int random) {
    const double end = ReadNanoseconds(Clock::Wall) + 3000 + random % 1000;
    while (ReadNanoseconds(Clock::Wall) < end) {
    }
}

/// What blocks of 256 frames wait: the time of day less that of the thread.
Timing MeasureWaits(PlayingStage& playing, double seconds) {
    Timing waits;
    const double end = ReadNanoseconds(Clock::Wall) + seconds * 1e9;
    while (ReadNanoseconds(Clock::Wall) < end) {
        const double wall = ReadNanoseconds(Clock::Wall);
        const double cpu = ReadNanoseconds(Clock::ThreadCpu);
        playing.Render(256);
        const double used = ReadNanoseconds(Clock::ThreadCpu) - cpu;
        waits.Add(std::max(0.0, ReadNanoseconds(Clock::Wall) - wall - used));
    }
    return waits;
}

Timing MeasureOperation(PlayingStage& playing, const Operation& operation, double seconds) {
    Timing times;
    Random random(9);
    const double end = ReadNanoseconds(Clock::Wall) + seconds * 1e9;
    while (ReadNanoseconds(Clock::Wall) < end) {
        const unsigned int argument = random.Below(1U << 30U);
        const double begin = ReadNanoseconds(Clock::Wall);
        operation.run(playing.player, argument);
        times.Add(ReadNanoseconds(Clock::Wall) - begin);
        // An operator, not a loop that leaves the other side no turn.
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    return times;
}

std::string FormatTail(const Timing& timing) {
    return fmt::format("{} / {}", FormatTime(timing.Quantile(0.999)), FormatTime(timing.Quantile(1)));
}

}  // namespace

void AddRenderLockRows(Table& table, const Effort& effort) {
    const double seconds = effort.secondsPerComparison / 2;
    PlayingStage playing;
    for (const Operation& operation : Operations()) {
        Timing beside;
        Timing hammered;
        {
            const Busy busy(&Spin);
            beside = MeasureWaits(playing, seconds);
        }
        {
            const Busy busy([&](unsigned int random) { operation.run(playing.player, random); });
            hammered = MeasureWaits(playing, seconds);
        }
        const double more = hammered.Quantile(0.999) - beside.Quantile(0.999);
        table.Add({fmt::format("a block waits, hammered with: {}, p99.9 / longest", operation.name),
                   fmt::format("{}", hammered.Rounds().size()), "a thread that spins", FormatTail(beside),
                   FormatTail(hammered), FormatRatio(hammered.Quantile(0.999) / std::max(1.0, beside.Quantile(0.999))),
                   "100 us more", "", more <= AimNanoseconds});
    }
    for (const Operation& operation : Operations()) {
        const Timing alone = MeasureOperation(playing, operation, seconds);
        Timing rendering;
        {
            const Busy busy([&](unsigned int) { playing.Render(4096); });
            rendering = MeasureOperation(playing, operation, seconds);
        }
        table.Add({fmt::format("{} while 4096 frames are rendered, median", operation.name),
                   fmt::format("{}", rendering.Rounds().size()),
                   "while nobody renders",
                   FormatTime(alone.Median()),
                   FormatTime(rendering.Median()),
                   FormatRatio(rendering.Median() / alone.Median()),
                   "",
                   "",
                   {}});
        table.Add({fmt::format("{} while 4096 frames are rendered, p99.9 / longest", operation.name),
                   "",
                   "",
                   FormatTail(alone),
                   FormatTail(rendering),
                   "",
                   "",
                   "",
                   {}});
    }
}

}  // namespace bench
