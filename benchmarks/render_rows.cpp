// A straight song through the whole engine, beside the same notes through the synthesizer with the barest scheduler.

#include <benchmark/benchmark.h>
#include <fluidsynth.h>
#include <fmt/format.h>
#include <stk/FreeVerb.h>

#include <algorithm>
#include <memory>
#include <stdexcept>

#include "benchmarks/rows.h"
#include "stage/engine/engine_sound.h"
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
constexpr unsigned int Groups = 16;
constexpr unsigned int Quarters = 32;
const std::string SongNumber = "1";

/// Sixteen seconds: chords that change every quarter on the first channels, each with a melody of sixteenths.
tavo_midi::SongData MakeStraightSong(unsigned int channels = Channels) {
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
        for (unsigned int channel = 0; channel < channels; ++channel) {
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

namespace {

/// The instruments as the engine mixes them, without the rest of it.
class Instruments {
public:
    Instruments(const tavo_midi::SongData& song, const std::string& soundFont, unsigned int groups,
                bool hasReverb = false)
        : song_(song),
          plan_(song, CL::SongLog()),
          synth_(soundFont, FramesPerSecond, 16, groups > 0 ? stage::Synth::Mix::Groups : stage::Synth::Mix::One),
          sound_(synth_, FramesPerSecond),
          samples_(2 * (2 + groups) * BlockFrames) {
        groups_.groups.resize(groups);
        std::vector<std::uint8_t>& strips = groups_.stripsOfSongs[&song];
        strips.resize(stage::MaxGroupedChannels);
        for (unsigned int i = 0; i < groups; ++i) {
            groups_.groups[i].output = stage::Settings::Group::Output::Own;
            if (hasReverb) groups_.groups[i].reverbDb = 0;
            strips[i] = static_cast<std::uint8_t>(i + 1);
        }
        sound_.SetGroups(groups_);
        for (unsigned int i = 0; i < 2 + groups; ++i)
            pairs_.push_back({samples_.data() + 2 * i * BlockFrames, samples_.data() + (2 * i + 1) * BlockFrames});
    }

    void Play() {
        sound_.Do({.kind = stage::SoundOrder::Kind::EndNotes});
        sound_.Do({.kind = stage::SoundOrder::Kind::Chase, .plan = &plan_});
        const tavo_midi::TempoMap map(song_.GetTimeline().GetTempos(), song_.GetTicksPerQuarter());
        std::int64_t frame = 0;
        frames_ = 0;
        for (const tavo_midi::MidiEvent& event : song_.GetEvents()) {
            RenderUntil_(frame, static_cast<std::int64_t>(map.FrameOfTick(event.tick, FramesPerSecond)));
            sound_.Do({.kind = stage::SoundOrder::Kind::Play, .event = event, .plan = &plan_});
        }
        sound_.Write();
    }
    /// Of the last Play.
    [[nodiscard]] std::int64_t CountFrames() const { return frames_; }

private:
    // A block of the live renderer's at a time, as each is written.
    static constexpr std::uint32_t BlockFrames = 64;

    void RenderUntil_(std::int64_t& frame, std::int64_t end) {
        while (frame < end) {
            const auto count = static_cast<std::uint32_t>(std::min<std::int64_t>(end - frame, BlockFrames));
            sound_.SetBuffers(pairs_);
            sound_.Render(count);
            sound_.Write();
            frame += count;
            frames_ += count;
        }
    }

    const tavo_midi::SongData& song_;
    const stage::SongPlan plan_;
    stage::Synth synth_;
    stage::GroupPlan groups_;
    stage::EngineSound sound_;
    std::vector<float> samples_;
    std::vector<stage::StereoBuffer> pairs_;
    std::int64_t frames_ = 0;
};

/// The library's reverb alone.
double Reverberate(stk::FreeVerb& room, std::int64_t frames) {
    double sum = 0;
    for (std::int64_t i = 0; i < frames; ++i)
        sum +=
            room.tick(static_cast<double>(i % 97) / 97 - 0.5, static_cast<double>(i % 89) / 89 - 0.5) + room.lastOut(1);
    return sum;
}

/// Groups that are all sent into the reverb, beside the same groups and the library's reverb one after the other.
void AddReverbRow(Table& table, const tavo_midi::SongData& song, const std::string& soundFont, const Effort& effort) {
    Instruments dry(song, soundFont, Groups);
    Instruments wet(song, soundFont, Groups, true);
    stk::FreeVerb room;
    const Candidate parts{"parts",
                          [&](std::size_t) {
                              dry.Play();
                              benchmark::DoNotOptimize(Reverberate(room, dry.CountFrames()));
                          },
                          {},
                          1};
    const Candidate whole{"reverb", [&](std::size_t) { wet.Play(); }, {}, 1};
    Effort longer = effort;
    longer.secondsPerComparison *= effort.brief ? 10 : 20;
    const std::vector<Timing> timings = MeasureInterleaved({parts, whole}, longer, Clock::ThreadCpu, 5);
    const double ratio = MedianRatio(timings[1], timings[0]);
    table.Add({fmt::format("{} output groups with reverb, 64 frames", Groups), fmt::format("{} s", Quarters / 2),
               "groups and reverb apart", FormatTime(timings[0].Median()), FormatTime(timings[1].Median()),
               fmt::format("{:.3f}", ratio), "<= 1.05", "", ratio <= 1.05});
}

/// Sixteen groups, each with a pair of its own, beside no groups at all, in blocks as they are played live.
void AddGroupsRow(Table& table, const tavo_midi::SongData& song, const std::string& soundFont, const Effort& effort) {
    Instruments plain(song, soundFont, 0);
    Instruments grouped(song, soundFont, Groups);
    const Candidate one{"one mix", [&](std::size_t) { plain.Play(); }, {}, 1};
    const Candidate many{"groups", [&](std::size_t) { grouped.Play(); }, {}, 1};
    Effort longer = effort;
    longer.secondsPerComparison *= effort.brief ? 10 : 20;
    const std::vector<Timing> timings = MeasureInterleaved({one, many}, longer, Clock::ThreadCpu, 5);
    const double ratio = MedianRatio(timings[1], timings[0]);
    table.Add({fmt::format("{} output groups with pairs of their own, 64 frames", Groups),
               fmt::format("{} s", Quarters / 2), "one mix", FormatTime(timings[0].Median()),
               FormatTime(timings[1].Median()), fmt::format("{:.3f}", ratio), "<= 1.05", "", ratio <= 1.05});
}

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
    AddGroupsRow(table, MakeStraightSong(Groups), soundFont, effort);
    AddReverbRow(table, MakeStraightSong(Groups), soundFont, effort);
    AddRenderLockRows(table, effort);
    AddSoundRows(table, effort);
}

}  // namespace bench
