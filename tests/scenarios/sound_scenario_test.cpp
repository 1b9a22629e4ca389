// What is heard where the flow leaves the written order: the sound of the same song written out, sample for sample.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "tests/support/show_builder.h"

using test_support::Performance;
using test_support::TestShow;

namespace {

using Bars = std::vector<int>;

struct WrittenOut {
    const char* edits;
    const char* script;
    Bars bars;
};

void PrintTo(const WrittenOut& row, std::ostream* os) {
    *os << row.edits;
}

class Sound : public testing::TestWithParam<WrittenOut> {};

TEST_P(Sound, IsThatOfTheSongWrittenOut) {
    TestShow show;
    show.Song("1", 6).Edits(GetParam().edits).Song("2", GetParam().bars);
    const Performance played = show.Perform(GetParam().script);
    const Performance writtenOut = show.Perform("", "2", "2");
    EXPECT_EQ(GetParam().bars, played.Bars());
    const std::size_t frames = GetParam().bars.size() * 96000;
    ASSERT_GE(played.left.size(), frames);
    ASSERT_GE(writtenOut.left.size(), frames);
    const auto difference =
        std::mismatch(played.left.begin(), played.left.begin() + static_cast<long>(frames), writtenOut.left.begin());
    EXPECT_EQ(static_cast<long>(frames), difference.first - played.left.begin());
}

INSTANTIATE_TEST_SUITE_P(Flow, Sound,
                         testing::Values(WrittenOut{"vamp 2 3", "at 2@3 exit", {1, 2, 3, 2, 3, 2, 3, 4, 5, 6}},
                                         WrittenOut{"repeat 1 1 3", "", {1, 1, 1, 2, 3, 4, 5, 6}},
                                         WrittenOut{"cut 2 5", "", {1, 6}},
                                         WrittenOut{"repeat 2 5 2\ncut 3 4", "", {1, 2, 5, 2, 5, 6}},
                                         WrittenOut{"", "at 3 seek 6", {1, 2, 6}},
                                         WrittenOut{"fermata 3 3", "at 4 exit", {1, 2, 3, 4, 5, 6}}));

// A pedal and a program change in bar 2: what is set there must not be heard in bar 1 when playback comes back to it.
TEST(SoundAfterAJump, ChannelsAreSetAsPlayingThereWouldLeaveThem) {
    const auto addSettings = [](tavo_midi::SongData song, std::uint32_t tick) {
        std::vector<tavo_midi::MidiEvent> events = song.GetEvents();
        const auto place = std::find_if(events.begin(), events.end(), [tick](const auto& event) {
            return event.tick == tick && event.status == 0x90;
        });
        events.insert(place, {{tick, 0xB0, 7, 60, 0}, {tick, 0xC0, 40, 0, 0}, {tick, 0xE0, 0, 80, 0}});
        song.SetEvents(std::move(events));
        return song;
    };
    TestShow plain;
    plain.Song("1", 2).Song("2", Bars{1, 1});
    TestShow show;
    show.Song(addSettings(plain.GetShowData().GetSongData("1"), 1920)).Song(plain.GetShowData().GetSongData("2"));
    const Performance jumped = show.Perform("at 2:2 seek 1\nat 2 quit");
    const Performance reference = show.Perform("", "2", "2");
    // The beats of the second time through bar 1, long after the tails of bar 2 have died away.
    const std::size_t beat = 24000;
    const std::size_t second = 96000 + beat;  // bar 1 and a beat of bar 2
    float highest = 0;
    for (std::size_t i = 2 * beat; i < 4 * beat; ++i)
        highest = std::max(highest, std::fabs(jumped.left[second + i] - jumped.left[i]));
    EXPECT_LT(highest, 0.002F);
    float loudest = 0;
    for (std::size_t i = 2 * beat; i < 4 * beat; ++i)
        loudest = std::max(loudest, std::fabs(reference.left[i]));
    EXPECT_GT(loudest, 0.02F);
}

TEST(SoundAfterTheEnd, NoNoteHangs) {
    TestShow show;
    show.Song("1", 6).Edits("vamp 2 3\ncut 4 4\ntranspose 3 5 2");
    const Performance played = show.Perform("at 2@2 transpose 3\nat 3:2+100 exit\nat 5:3+77 seek 2:2+10\nat 3:4 exit");
    int sounding = 0;
    for (const stage::SynthMessage& message : played.messages)
        sounding += message.status == 0x90 ? 1 : message.status == 0x80 ? -1 : 0;
    EXPECT_EQ(0, sounding);
    ASSERT_GT(played.left.size(), 4800U);
    EXPECT_LT(*std::max_element(played.left.end() - 2400, played.left.end()), 1e-3F);
}

// A strike of the woodblock on each of `beats` beats that last `microseconds`: so short that it is silent long before
// the next.
tavo_midi::SongData Woodblock(unsigned int beats, std::uint32_t microseconds, unsigned int strikes) {
    TL::Timeline timeline(0, beats * 480);
    timeline.GetMeters().Append(TL::Meter(0, 4, 4));
    timeline.GetTempos().Append(TL::Tempo(0, microseconds));
    std::vector<tavo_midi::MidiEvent> events;
    for (unsigned int beat = 0; beat < beats; ++beat) {
        timeline.GetBarsBeats().Append(TL::BarsBeats(beat * 480, beat % 4 + 1, std::to_string(beat / 4 + 1)));
        if (beat >= strikes) continue;
        events.push_back({beat * 480, 0x99, 76, 120, 0});
        events.push_back({beat * 480 + 60, 0x89, 76, 0, 0});
    }
    tavo_midi::SongData song("1", timeline, 480);
    song.SetEvents(std::move(events));
    return song;
}

// The frames where sound begins after a silence of at least `silence` frames.
std::vector<long> FindOnsets(const std::vector<float>& sound, long silence) {
    std::vector<long> onsets;
    long quiet = silence;
    for (std::size_t i = 0; i < sound.size(); ++i) {
        const bool isLoud = std::fabs(sound[i]) > 1e-4F;
        if (isLoud && quiet >= silence) onsets.push_back(static_cast<long>(i));
        quiet = isLoud ? 0 : quiet + 1;
    }
    return onsets;
}

// The synthesizer starts notes on its own grid: within one block of the frame that the trace gives.
TEST(SoundAfterAJump, OnsetIsWithinABlockOfTheTracesFrame) {
    TestShow show;
    show.Song(Woodblock(8, 612345, 1)).Edits("repeat 1 2 4");
    const std::vector<long> onsets = FindOnsets(show.Perform("").left, 24000);
    ASSERT_EQ(4U, onsets.size());
    for (long pass = 1; pass < 4; ++pass) {
        const long onset = onsets[static_cast<std::size_t>(pass)];
        const auto exact = static_cast<long>(std::llround(static_cast<double>(pass) * 8 * 0.612345 * 48000));
        EXPECT_EQ(0, (onset - onsets[1]) % 64);
        EXPECT_GE(onset, exact);
        EXPECT_LT(onset, exact + 64 + 16);  // the woodblock itself needs a moment to be heard
    }
}

// Beats of 48013 frames fall on every place of the synthesizer's grid of 64 equally often.
TEST(SoundOfASong, OnsetsAreSpreadOverOneBlockOfTheGridAndNoMore) {
    constexpr unsigned int Beats = 128;
    constexpr std::uint32_t Microseconds = 1000271;
    TestShow show;
    show.Song(Woodblock(Beats, Microseconds, Beats)).Edits("tempo 9 16 80");
    const std::vector<long> onsets = FindOnsets(show.Perform("").left, 24000);
    ASSERT_EQ(Beats, onsets.size());
    std::vector<double> offsets;
    double exact = 0;
    for (unsigned int beat = 0; beat < Beats; ++beat) {
        offsets.push_back(static_cast<double>(onsets[beat]) - exact);
        const bool isSlow = beat >= 32 && beat < 64;
        exact += Microseconds * 0.048 / (isSlow ? 0.8 : 1.0);
    }
    const auto [earliest, latest] = std::minmax_element(offsets.begin(), offsets.end());
    EXPECT_LE(*latest - *earliest, 64 + 1);  // the engine rounds to whole frames, the ear of this test as well
    EXPECT_GE(*earliest, 0);
}

}  // namespace
