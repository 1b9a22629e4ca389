#pragma once

#include <cmath>
#include <cstdio>
#include <fstream>
#include <functional>
#include <memory>
#include <numeric>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "stage/offline/offline_show.h"
#include "tavo_core/active_change_log.h"
#include "tests/support/pack_song.h"
#include "tests/support/temporary_directory.h"
#include "tests/support/trace_line.h"

namespace test_support {

/// What a performance left behind.
struct Performance {
    std::string trace;
    std::vector<stage::SynthMessage> messages;
    std::vector<float> left;
    stage::OfflineResult result;

    /// The trace's lines of these events, "4.000 jump 3 -> 2": seconds, event, details.
    [[nodiscard]] std::string Only(const std::set<std::string>& events) const {
        std::istringstream lines(trace);
        std::string text;
        for (std::string line; std::getline(lines, line);) {
            const auto [frame, tick, event, details] = ReadTraceLine(line);
            if (!events.contains(event)) continue;
            char seconds[32];
            std::snprintf(seconds, sizeof seconds, "%.3f", std::stod(frame) / 48000);
            text += std::string(seconds) + " " + event + (details == "-" ? "" : " " + details) + "\n";
        }
        return text;
    }

    /// The keys that were struck, in order.
    [[nodiscard]] std::vector<int> Keys() const {
        std::vector<int> keys;
        for (const stage::SynthMessage& message : messages)
            if (message.status == 0x90) keys.push_back(message.data1);
        return keys;
    }
    /// The same with one entry for a bar of TestShow: what was played, in bars.
    [[nodiscard]] std::vector<int> Bars() const;
};

/// A show made for a test. Its songs are in 4/4 at 120 to the quarter note and 480 ticks, so that a bar lasts 1920
/// ticks and two seconds; a quarter note sounds on each beat, and each bar has its own pitch: 40 + its number.
class TestShow {
public:
    static constexpr std::uint32_t BarTicks = 1920;
    static constexpr int KeyBeforeFirstBar = 40;

    TestShow& Song(const std::string& number, unsigned int bars) {
        std::vector<int> pitches(bars);
        std::iota(pitches.begin(), pitches.end(), 1);
        return Song(number, pitches);
    }
    /// A song written out: its bars have the pitches of these bars.
    TestShow& Song(const std::string& number, const std::vector<int>& pitches) {
        const auto bars = static_cast<unsigned int>(pitches.size());
        TL::Timeline timeline(0, bars * BarTicks);
        timeline.SetSongTitle("Song " + number);
        timeline.GetMeters().Append(TL::Meter(0, 4, 4));
        timeline.GetTempos().Append(TL::Tempo(0, 500000));
        std::vector<tavo_midi::MidiEvent> events;
        for (unsigned int bar = 0; bar < bars; ++bar) {
            const auto key = static_cast<std::uint8_t>(KeyBeforeFirstBar + pitches[bar]);
            for (unsigned int beat = 0; beat < 4; ++beat) {
                const std::uint32_t tick = bar * BarTicks + beat * 480;
                timeline.GetBarsBeats().Append(TL::BarsBeats(tick, beat + 1, std::to_string(bar + 1)));
                if (tick > 0) events.push_back({tick, 0x80, LastKey_(events), 0, 0});
                events.push_back({tick, 0x90, key, 90, 0});
            }
        }
        events.push_back({bars * BarTicks, 0x80, LastKey_(events), 0, 0});
        tavo_midi::SongData song(number, timeline, 480);
        song.SetEvents(events);
        return Song(std::move(song));
    }
    TestShow& Song(tavo_midi::SongData song) {
        current_ = song.GetSongNumber();
        log_->GetSongLogs()[current_];
        show_.AddSong(std::move(song));
        return *this;
    }

    /// Edits of the song added last, one a line, places as musicians write them: "vamp 2 3", "repeat 2 2 3",
    /// "cut 4 5", "fermata 6 6", "caesura 4", "tempo 2 3 90", "transpose 2 3 -2", "marker 3 Verse", "osc 2:3 /go",
    /// "attacca".
    TestShow& Edits(const std::string& text) {
        CL::SongLog& log = log_->GetSongLog(current_);
        const TL::BarPositions positions(show_.GetSongData(current_).GetTimeline());
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line);) {
            std::istringstream words(line);
            std::string kind;
            std::string from;
            std::string to;
            if (words >> kind) words >> from >> to;
            if (kind.empty()) continue;
            float number = 0;
            words >> number;
            if (!AddPoint_(log, kind, positions, from, to) && !AddRange_(log, kind, positions, from, to, number))
                throw std::invalid_argument("no such edit: " + line);
        }
        return *this;
    }

    [[nodiscard]] const tavo_midi::ShowData& GetShowData() const { return show_; }
    [[nodiscard]] CL::ChangeLog& GetLog() { return *log_; }
    void Activate() { SetActiveChangeLog(log_); }

    /// Plays the songs with the operator doing what the script says; without one the automatic operator plays.
    Performance Perform(const char* script = nullptr, const std::string& first = "1", const std::string& last = "1") {
        return Perform(MakeOptions(script, first, last));
    }
    [[nodiscard]] stage::OfflineOptions MakeOptions(const char* script, const std::string& first = "1",
                                                    const std::string& last = "1") const {
        stage::OfflineOptions options;
        options.firstSong = first;
        options.lastSong = last;
        if (script != nullptr) options.script = stage::ParseShowScript(script, "script", show_, first);
        return options;
    }
    Performance Perform(stage::OfflineOptions options) {
        return Perform([options = std::move(options)](stage::ShowSession&) { return options; });
    }
    /// The same with options that need the session, or with a session that something is done to first.
    Performance Perform(const std::function<stage::OfflineOptions(stage::ShowSession&)>& prepare) {
        const TemporaryDirectory directory;
        WriteTo(directory);
        stage::ShowSession session(directory.Path(), directory.Path(), sessionOptions);
        Performance performance;
        session.GetSynth().SetObserver(
            [&](const stage::SynthMessage& message) { performance.messages.push_back(message); });
        stage::OfflineShow offline(
            session, prepare(session),
            [&](const float* left, const float*, std::uint32_t frames) {
                performance.left.insert(performance.left.end(), left, left + frames);
            },
            [&](const std::string& line) { performance.trace += line; });
        performance.result = offline.Run();
        return performance;
    }

    /// Its settings.json, as text.
    std::string settings = "{}";
    /// How Perform opens it.
    stage::ShowSession::Options sessionOptions = stage::MakeOfflineSessionOptions();

    /// Makes it a show directory; throws where what is read back is not what was made.
    void WriteTo(const TemporaryDirectory& directory) const {
        std::vector<tavo_midi::ShowSong> songs;
        for (const tavo_midi::SongData& song : show_.GetSongs())
            songs.push_back(PackSong(song));
        tavo_midi::WriteShowData(directory / "test.showdata", "Test", songs, tavo_midi::ExistingShow::Replace);
        CL::ChangeLog log = *log_;
        log.SetShowName("test");
        log.GetVersion() = {1, 0};
        (void)log.Save(directory / "test-1.0.logdata");
        std::ofstream(directory / "settings.json") << settings;
        const tavo_midi::ShowData read(directory / "test.showdata");
        for (const tavo_midi::SongData& song : show_.GetSongs())
            RequireSame(song, read.GetSongData(song.GetSongNumber()));
    }

private:
    static std::uint8_t LastKey_(const std::vector<tavo_midi::MidiEvent>& events) { return events.back().data1; }

    static bool AddPoint_(CL::SongLog& log, const std::string& kind, const TL::BarPositions& positions,
                          const std::string& place, const std::string& text) {
        if (kind == "attacca") return log.SetAttacca(CL::AttaccaNext), true;
        if (kind == "caesura") return log.GetCaesuras().Add(CL::Caesura(positions.FindStartTick(place), text, 0)), true;
        if (kind == "marker") return log.GetMarkers().Add(CL::Marker(positions.FindStartTick(place), text)), true;
        if (kind == "osc") return log.GetOscs().Add(CL::Osc(positions.FindStartTick(place), "", text)), true;
        return false;
    }
    static bool AddRange_(CL::SongLog& log, const std::string& kind, const TL::BarPositions& positions,
                          const std::string& fromPlace, const std::string& toPlace, float number) {
        const unsigned int from = positions.FindStartTick(fromPlace);
        const unsigned int to = positions.FindEndTick(toPlace);
        const auto count = static_cast<int>(number);
        if (kind == "vamp") return log.GetVamps().Add(CL::Vamp(from, to, count)), true;
        if (kind == "repeat") return log.GetRepeats().Add(CL::Repeat(from, to, count)), true;
        if (kind == "cut") return log.GetCuts().Add(CL::Cut(from, to)), true;
        if (kind == "fermata") return log.GetFermatas().Add(CL::Fermata(from, to)), true;
        if (kind == "tempo") return log.GetTempoScales().Add(CL::TempoScale(from, to, number / 100)), true;
        if (kind == "transpose") return log.GetTranspositions().Add(CL::Transposition(from, to, count)), true;
        return false;
    }

    tavo_midi::ShowData show_;
    std::shared_ptr<CL::ChangeLog> log_ = std::make_shared<CL::ChangeLog>();
    std::string current_;
};

inline std::vector<int> Performance::Bars() const {
    std::vector<int> bars;
    int beats = 0;
    for (const int key : Keys()) {
        const int bar = key - TestShow::KeyBeforeFirstBar;
        if (bars.empty() || bars.back() != bar || beats == 4) {
            bars.push_back(bar);
            beats = 0;
        }
        ++beats;
    }
    return bars;
}

}  // namespace test_support
