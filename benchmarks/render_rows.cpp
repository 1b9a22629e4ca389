// A straight song through the whole engine, beside the same notes through the synthesizer with the barest scheduler.

#include <fluidsynth.h>
#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <stdexcept>

#include "benchmarks/rows.h"
#include "stage/engine/sound_font.h"
#include "stage/offline/offline_show.h"
#include "tavo_core/active_change_log.h"
#include "tavo_midi/tempo_map.h"
#include "tests/support/pack_song.h"
#include "tests/support/temporary_directory.h"

namespace bench {

namespace {

constexpr std::uint32_t FramesPerSecond = 48000;
constexpr unsigned int TicksPerQuarter = 480;
constexpr unsigned int Channels = 8;
constexpr unsigned int Quarters = 32;
const std::string SongNumber = "1";

/// Sixteen seconds: chords that change every quarter on eight channels, each with a melody of sixteenths.
tavo_midi::SongData MakeStraightSong() {
    const unsigned int endTick = Quarters * TicksPerQuarter;
    TL::Timeline timeline(0, endTick);
    timeline.SetSongTitle("Straight");
    timeline.GetMeters().Append({0, 4, 4});
    timeline.GetTempos().Append({0, 500000});
    for (unsigned int quarter = 0; quarter < Quarters; ++quarter)
        timeline.GetBarsBeats().Append({quarter * TicksPerQuarter, quarter % 4 + 1, std::to_string(quarter / 4 + 1)});
    std::vector<tavo_midi::MidiEvent> events;
    Random random(11);
    for (unsigned int tick = 0; tick < endTick; tick += TicksPerQuarter / 4) {
        for (unsigned int channel = 0; channel < Channels; ++channel) {
            const auto key = static_cast<std::uint8_t>(40 + random.Below(40));
            events.push_back({tick, static_cast<std::uint8_t>(0x90U | channel), key, 80, 0});
            events.push_back({tick + 100, static_cast<std::uint8_t>(0x80U | channel), key, 64, 0});
        }
    }
    std::stable_sort(events.begin(), events.end(), [](const auto& a, const auto& b) {
        return std::pair(a.tick, a.status) < std::pair(b.tick, b.status);
    });
    tavo_midi::SongData song(SongNumber, std::move(timeline), TicksPerQuarter);
    song.SetEvents(std::move(events));
    return song;
}

/// The library alone, set as the engine sets it.
class BareSynth {
public:
    explicit BareSynth(const std::string& soundFont) : settings_(new_fluid_settings()) {
        fluid_settings_setnum(settings_, "synth.sample-rate", FramesPerSecond);
        fluid_settings_setnum(settings_, "synth.gain", 0.4);
        fluid_settings_setint(settings_, "synth.polyphony", 256);
        fluid_settings_setint(settings_, "synth.reverb.active", 0);
        fluid_settings_setint(settings_, "synth.chorus.active", 0);
        fluid_settings_setint(settings_, "synth.threadsafe-api", 0);
        synth_ = new_fluid_synth(settings_);
        if (fluid_synth_sfload(synth_, soundFont.c_str(), 1) == FLUID_FAILED) {
            throw std::runtime_error("The SoundFont " + soundFont + " cannot be read.");
        }
    }
    ~BareSynth() {
        delete_fluid_synth(synth_);
        delete_fluid_settings(settings_);
    }
    BareSynth(const BareSynth&) = delete;
    BareSynth& operator=(const BareSynth&) = delete;

    void Play(const tavo_midi::SongData& song, std::int64_t frames) {
        fluid_synth_system_reset(synth_);
        const tavo_midi::TempoMap map(song.GetTimeline().GetTempos(), song.GetTicksPerQuarter());
        std::int64_t frame = 0;
        for (const tavo_midi::MidiEvent& event : song.GetEvents()) {
            const auto due = static_cast<std::int64_t>(map.FrameOfTick(event.tick, FramesPerSecond));
            RenderUntil(frame, due);
            if ((event.status & 0xF0U) == 0x90U) {
                fluid_synth_noteon(synth_, event.status & 0x0FU, event.data1, event.data2);
            } else {
                fluid_synth_noteoff(synth_, event.status & 0x0FU, event.data1);
            }
        }
        RenderUntil(frame, frames);
    }

private:
    void RenderUntil(std::int64_t& frame, std::int64_t end) {
        while (frame < end) {
            const auto count = static_cast<int>(std::min<std::int64_t>(end - frame, LongestPiece));
            fluid_synth_write_float(synth_, count, left_, 0, 1, right_, 0, 1);
            frame += count;
        }
    }

    fluid_settings_t* settings_;
    fluid_synth_t* synth_ = nullptr;
    // As long as the engine's: short pieces take the library longer.
    static constexpr int LongestPiece = 4096;
    float left_[LongestPiece] = {};
    float right_[LongestPiece] = {};
};

}  // namespace

void AddRenderRows(Table& table, const Effort& effort) {
    const std::string soundFont = stage::FindDefaultSoundFont();
    const tavo_midi::SongData song = MakeStraightSong();
    const test_support::TemporaryDirectory directory;
    tavo_midi::WriteShowData(directory / "straight.showdata", "Straight", {test_support::PackSong(song)},
                             tavo_midi::ExistingShow::Keep);
    CL::ChangeLog changeLog;
    changeLog.GetSongLogs()[SongNumber] = {};
    (void)changeLog.Save(directory / "straight-1.0.logdata");
    stage::ShowSession session(directory.Path(), directory.Path(), stage::MakeOfflineSessionOptions(FramesPerSecond));
    BareSynth bare(soundFont);
    stage::OfflineOptions options;
    options.firstSong = options.lastSong = SongNumber;
    std::int64_t frames = 0;
    const auto render = [&] {
        stage::OfflineShow offline(session, options, {}, {});
        frames = offline.Run().frames;
    };
    render();
    const Candidate engine{"engine", [&render](std::size_t) { render(); }, {}, 1};
    const Candidate scheduler{"bare", [&](std::size_t) { bare.Play(song, frames); }, {}, 1};
    Effort longer = effort;
    longer.secondsPerComparison *= effort.brief ? 10 : 20;
    const std::vector<Timing> timings = MeasureInterleaved({scheduler, engine}, longer, Clock::ThreadCpu, 5);
    const double ratio = MedianRatio(timings[1], timings[0]);
    table.Add({"render a straight song, no file",
               fmt::format("{:.0f} s", static_cast<double>(frames) / FramesPerSecond), "libfluidsynth, bare scheduler",
               FormatTime(timings[0].Median()), FormatTime(timings[1].Median()), fmt::format("{:.3f}", ratio),
               "<= 1.02", "", ratio <= 1.02});
    AddRenderLockRows(table, effort);
}

}  // namespace bench
