// Every note of two song cycles as the scores give it, against the notes of the MIDI files beside them.

#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>
#include <map>

#include "tests/musicxml/corpus_songs.h"

namespace {

using test_support::CorpusSong;

constexpr std::uint32_t Tolerance = 2;
/// A spread chord or a grace note moves a note by less than two quarters.
constexpr std::uint32_t MostMoved = 960;

/// Program, key and tick of a note-on.
struct Onset {
    int program = 0;
    int key = 0;
    std::uint32_t tick = 0;

    auto operator<=>(const Onset&) const = default;
};

std::vector<Onset> FindOnsets(const tavo_midi::SongData& song) {
    std::map<std::pair<int, int>, int> programs;
    std::vector<Onset> onsets;
    for (const tavo_midi::MidiEvent& event : song.GetEvents()) {
        const std::pair<int, int> channel{event.port, event.status & 0x0F};
        if (event.status >> 4 == 0xC) programs[channel] = event.data1;
        if (event.status >> 4 == 9) onsets.push_back({programs[channel], event.data1, event.tick});
    }
    std::sort(onsets.begin(), onsets.end());
    return onsets;
}

struct Comparison {
    std::size_t agreeing = 0;
    std::vector<Onset> onlyInScore;
    std::vector<Onset> onlyInMidi;

    void Add(const Comparison& other) {
        agreeing += other.agreeing;
        onlyInScore.insert(onlyInScore.end(), other.onlyInScore.begin(), other.onlyInScore.end());
        onlyInMidi.insert(onlyInMidi.end(), other.onlyInMidi.begin(), other.onlyInMidi.end());
    }
    [[nodiscard]] double Share() const {
        const std::size_t more = agreeing + std::max(onlyInScore.size(), onlyInMidi.size());
        return more == 0 ? 1 : static_cast<double>(agreeing) / static_cast<double>(more);
    }
};

Comparison Compare(const std::vector<Onset>& score, const std::vector<Onset>& midi, std::uint32_t tolerance) {
    Comparison result;
    auto a = score.begin();
    auto b = midi.begin();
    while (a != score.end() || b != midi.end()) {
        const bool isSameKey = a != score.end() && b != midi.end() && a->program == b->program && a->key == b->key;
        if (isSameKey && std::max(a->tick, b->tick) - std::min(a->tick, b->tick) <= tolerance) {
            ++result.agreeing, ++a, ++b;
        } else if (b == midi.end() || (a != score.end() && *a < *b)) {
            result.onlyInScore.push_back(*a++);
        } else {
            result.onlyInMidi.push_back(*b++);
        }
    }
    return result;
}

/// The notes of a song that are struck while another of the same program and key, or one of at most two semitones from
/// it, sounds in the other: the strokes of a tremolo, the notes of a trill or a turn, the second voice of a unison. The
/// strokes of a tremolo between two notes begin before the second of them is written.
class Sounding {
public:
    explicit Sounding(const tavo_midi::SongData& song) {
        std::map<int, int> programs;
        std::map<std::pair<int, int>, std::uint32_t> begins;
        for (const tavo_midi::MidiEvent& event : song.GetEvents()) {
            const int channel = event.port * 16 + (event.status & 0x0F);
            if (event.status >> 4 == 0xC) programs[channel] = event.data1;
            if (event.status >> 4 == 9) begins[{channel, event.data1}] = event.tick;
            if (event.status >> 4 == 8)
                ranges_[{programs[channel], event.data1}].emplace_back(begins[{channel, event.data1}], event.tick);
        }
    }
    [[nodiscard]] bool Explains(const Onset& onset) const {
        for (int key = onset.key - 2; key <= onset.key + 2; ++key) {
            const auto found = ranges_.find({onset.program, key});
            if (found == ranges_.end()) continue;
            for (const auto& [begin, end] : found->second)
                if (begin <= onset.tick + Reach(key - onset.key) && onset.tick <= end + Reach(key - onset.key))
                    return true;
        }
        return false;
    }

private:
    static std::uint32_t Reach(int interval) { return interval == 0 ? MostMoved : Tolerance; }

    std::map<std::pair<int, int>, std::vector<std::pair<std::uint32_t, std::uint32_t>>> ranges_;
};

/// Of a comparison what neither a move (spread chords, grace notes) nor a played-out ornament explains.
std::size_t CountUnexplained(const Comparison& comparison, const CorpusSong& song) {
    const Comparison moved = Compare(comparison.onlyInScore, comparison.onlyInMidi, MostMoved);
    const Sounding inScore(song.played);
    const Sounding inMidi(song.midi);
    std::size_t count = 0;
    for (const Onset& onset : moved.onlyInMidi)
        if (!inScore.Explains(onset)) ++count;
    for (const Onset& onset : moved.onlyInScore)
        if (!inMidi.Explains(onset)) ++count;
    return count;
}

struct Floor {
    const char* cycle;
    double share;
    std::size_t mostUnexplained;
};

void PrintTo(const Floor& floor, std::ostream* stream) {
    *stream << floor.cycle;
}

class NotesOfSongCycle : public testing::TestWithParam<Floor> {};

TEST_P(NotesOfSongCycle, AgreeWithTheMidiFilesButForOrnamentsPlayedOut) {
    SKIP_WITHOUT_CORPUS();
    Comparison all;
    std::size_t unexplained = 0;
    for (const auto& row : test_support::ReadShowTable(GetParam().cycle)) {
        const CorpusSong song = test_support::ReadCorpusSong(row);
        const Comparison comparison = Compare(FindOnsets(song.played), FindOnsets(song.midi), Tolerance);
        all.Add(comparison);
        const std::size_t ofSong = CountUnexplained(comparison, song);
        unexplained += ofSong;
        std::cout << row.number << ' ' << row.title << ": " << comparison.Share() << ", " << comparison.agreeing
                  << " agree, " << comparison.onlyInScore.size() << " in the score only, "
                  << comparison.onlyInMidi.size() << " in the MIDI file only, " << ofSong << " unexplained\n";
    }
    std::cout << GetParam().cycle << ": " << all.Share() << " of " << all.agreeing + all.onlyInScore.size() << '\n';
    EXPECT_GE(all.Share(), GetParam().share);
    EXPECT_LE(unexplained, GetParam().mostUnexplained);
}

INSTANTIATE_TEST_SUITE_P(Cycles, NotesOfSongCycle,
                         testing::Values(Floor{"show_holmes_melodies", 0.888, 6},
                                         Floor{"show_schubert_muellerin", 0.978, 0}),
                         [](const auto& floor) { return std::string(floor.param.cycle); });

}  // namespace
