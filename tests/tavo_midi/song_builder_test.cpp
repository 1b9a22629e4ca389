#include "tavo_midi/song_builder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "tests/support/smf_bytes.h"

namespace {

using tavo_midi::BuildSong;
using tavo_midi::ReadSmf;
using tavo_midi::SongData;
using tavo_midi::SongOptions;
using test_support::SmfFile;

// Meters at 96 ticks a quarter note; a note that ends at tick 768 makes two bars of 4/4 (or what the meters say).
const char* const kFourFour = "00 FF 58 04 04 02 18 08 ";
const char* const kNoteTo768 = "00 90 3C 40 86 00 80 3C 40 ";

/// Bars as "label:tick(beats)".
std::string Bars(const SongData& song) {
    std::string text;
    unsigned int beats = 0;
    for (const TL::BarsBeats& beat : song.GetTimeline().GetBarsBeats()) {
        if (beat.beat() == 1) {
            if (beats != 0) text += "(" + std::to_string(beats) + ") ";
            text += beat.bar_number() + ":" + std::to_string(beat.abs_time());
        }
        beats = beat.beat();
    }
    return text + "(" + std::to_string(beats) + ") end " + std::to_string(song.GetTimeline().GetEndTickIndex());
}

std::string BeatTicks(const SongData& song) {
    std::string text;
    for (const TL::BarsBeats& beat : song.GetTimeline().GetBarsBeats())
        text += (text.empty() ? "" : " ") + std::to_string(beat.abs_time());
    return text;
}

SongData Build(const std::string& file, const SongOptions& options = {}) {
    return BuildSong(ReadSmf(file, "a.mid"), options, "a.mid");
}

std::string Refuse(const std::string& file, const SongOptions& options) {
    try {
        return "built: " + Bars(Build(file, options));
    } catch (const std::runtime_error& error) {
        return error.what();
    }
}

std::string Join(std::initializer_list<const char*> parts) {
    std::string text;
    for (const char* part : parts)
        text += part;
    return text;
}

TEST(SongBuilder, BarsFollowTheMeters) {
    struct Row {
        const char* what;
        std::string events;
        const char* bars;
    };
    const Row rows[] = {
        {"4/4", Join({kFourFour, kNoteTo768}), "1:0(4) 2:384(4) end 768"},
        {"no meter is 4/4", kNoteTo768, "1:0(4) 2:384(4) end 768"},
        {"6/8 has six beats", Join({"00 FF 58 04 06 03 24 08 ", kNoteTo768}), "1:0(6) 2:288(6) 3:576(6) end 864"},
        {"a meter event begins a bar", Join({kFourFour, "81 40 FF 58 04 03 02 18 08 ", kNoteTo768}),
         "1:0(2) 2:192(3) 3:480(3) 4:768(3) end 1056"},
        {"a short first bar of its own meter is a pick-up",
         Join({"00 FF 58 04 01 03 0C 08 30 FF 58 04 02 02 18 08 ", kNoteTo768}),
         "0:0(1) 1:48(2) 2:240(2) 3:432(2) 4:624(2) end 816"},
        {"a first meter of two bars is none", Join({"00 FF 58 04 01 02 18 08 81 40 FF 58 04 04 02 18 08 ", kNoteTo768}),
         "1:0(1) 2:96(1) 3:192(4) 4:576(4) end 960"},
        {"a longer first bar is none", Join({kFourFour, "83 00 FF 58 04 02 02 18 08 ", kNoteTo768}),
         "1:0(4) 2:384(2) 3:576(2) 4:768(2) 5:960(2) end 1152"},
        {"a first meter behind the start leaves 4/4 before it", "83 00 FF 58 04 02 02 18 08 00 90 3C 40 10 80 3C 40",
         "1:0(4) 2:384(2) end 576"},
        {"a note that ends on a bar line adds no bar", Join({kFourFour, "00 90 3C 40 83 00 80 3C 40"}),
         "1:0(4) end 384"},
        {"a note that never ends has a bar", Join({kFourFour, "83 00 90 3C 40"}), "1:0(4) 2:384(4) end 768"},
        {"controllers behind the last bar add none", Join({kFourFour, "00 90 3C 40 10 80 3C 40 87 00 B0 40 00"}),
         "1:0(4) end 384"},
        {"no notes: to the end of the track", Join({kFourFour, "83 01 B0 40 00"}), "1:0(4) 2:384(4) end 768"},
        {"nothing at all: one bar", "", "1:0(4) end 384"},
    };
    for (const Row& row : rows)
        EXPECT_EQ(row.bars, Bars(Build(SmfFile(0, {row.events})))) << row.what;
}

TEST(SongBuilder, BarLines_NeverDriftWhereABarIsNoWholeNumberOfTicks) {
    // 100 ticks a quarter note, 1/64: 6.25 ticks a bar.
    const SongData song = Build(SmfFile(0, {"00 FF 58 04 01 06 06 08 00 90 3C 40 64 80 3C 40"}, 100));
    EXPECT_EQ("0 6 12 18 25 31 37 43 50 56 62 68 75 81 87 93", BeatTicks(song));
    EXPECT_EQ(100U, song.GetTimeline().GetEndTickIndex());
}

TEST(SongBuilder, PickupOfTheOptions) {
    struct Row {
        double beats;
        const char* bars;
        const char* beatTicks;
    };
    const Row rows[] = {{0.5, "0:0(1) 1:48(4) 2:432(4) end 816", "0 48 144 240 336 432 528 624 720"},
                        {1, "0:0(1) 1:96(4) 2:480(4) end 864", "0 96 192 288 384 480 576 672 768"},
                        {1.5, "0:0(2) 1:144(4) 2:528(4) end 912", "0 48 144 240 336 432 528 624 720 816"}};
    for (const Row& row : rows) {
        SongOptions options;
        options.pickupBeats = row.beats;
        const SongData song = Build(SmfFile(0, {Join({kFourFour, kNoteTo768})}), options);
        EXPECT_EQ(row.bars, Bars(song));
        EXPECT_EQ(row.beatTicks, BeatTicks(song));
    }
}

TEST(SongBuilder, StartEndAndLabelsOfTheOptions) {
    SongOptions options;
    options.number = "12a";
    options.title = "Vals";
    options.startTick = 96;
    options.endTick = 1200;
    options.barLabels = {{1, "1a"}, {2, "7"}};
    options.pages = {{96, 3}, {480, 4}};
    const SongData song = Build(SmfFile(0, {Join({kFourFour, kNoteTo768})}), options);
    EXPECT_EQ("1:96(4) 1a:480(4) 7:864(4) end 1200", Bars(song));
    EXPECT_EQ("12a", song.GetSongNumber());
    EXPECT_EQ("Vals", song.GetTitle());
    EXPECT_EQ(96U, song.GetSongStartTickIndex());
    EXPECT_EQ(2U, song.GetTimeline().GetPageNums().size());
    options.endTick.reset();
    options.barLabels = {{0, "5"}};
    EXPECT_EQ("5:96(4) 6:480(4) end 864", Bars(Build(SmfFile(0, {Join({kFourFour, kNoteTo768})}), options)));
}

TEST(SongBuilder, TemposOfTheOptions_StandForThoseOfTheFile) {
    const std::string tempo = "00 FF 51 03 09 27 C0 ";
    SongOptions options;
    const SongData ofFile = Build(SmfFile(0, {tempo + Join({kFourFour, kNoteTo768})}), options);
    EXPECT_EQ(600000U, ofFile.GetTimeline().GetTempos()[0].microseconds_per_quarter());
    EXPECT_FALSE(ofFile.IsGuessedTempo(0));
    options.tempos = {{96, 400000, true}};
    const SongData song = Build(SmfFile(0, {tempo + Join({kFourFour, kNoteTo768})}), options);
    ASSERT_EQ(2U, song.GetTimeline().GetTempos().size());
    EXPECT_EQ(500000U, song.GetTimeline().GetTempos()[0].microseconds_per_quarter());
    EXPECT_EQ(400000U, song.GetTimeline().GetTempos()[1].microseconds_per_quarter());
    EXPECT_FALSE(song.IsGuessedTempo(0));
    EXPECT_TRUE(song.IsGuessedTempo(96));
}

TEST(SongBuilder, OptionsThatDoNotFit_AreRefusedWithASentence) {
    const std::string file = SmfFile(0, {Join({kFourFour, kNoteTo768})});
    const auto with = [](auto change) {
        SongOptions options;
        change(options);
        return options;
    };
    EXPECT_EQ("\"a.mid\" has a first bar of 4 beats, in which a pick-up of 4 beats does not fit",
              Refuse(file, with([](SongOptions& o) { o.pickupBeats = 4; })));
    EXPECT_EQ("\"a.mid\" has a first bar of 4 beats, in which a pick-up of -1 beats does not fit",
              Refuse(file, with([](SongOptions& o) { o.pickupBeats = -1; })));
    EXPECT_THAT(Refuse(file, with([](SongOptions& o) { o.pickupBeats = std::nan(""); })),
                testing::HasSubstr("does not fit"));
    EXPECT_EQ("\"a.mid\" would be a song that ends at tick 0, not after its start",
              Refuse(file, with([](SongOptions& o) { o.endTick = 0; })));
    EXPECT_EQ("\"a.mid\" has no sequence 2, only 1 of them",
              Refuse(file, with([](SongOptions& o) { o.sequence = 1; })));
    EXPECT_EQ("\"a.mid\" has bars of 1/128 at tick 0, which are shorter than a tick",
              Refuse(SmfFile(0, {"00 FF 58 04 01 07 01 08"}, 24), {}));
    EXPECT_EQ("\"a.mid\" would have more than 250000 beats", Refuse(SmfFile(0, {"FF FF FF 7F 90 3C 40"}, 24), {}));
    EXPECT_EQ("\"a.mid\" has a bar that ends after tick 4294967295",
              Refuse(file, with([](SongOptions& o) { o.startTick = 0xFFFFFF00; })));
}

TEST(SongBuilder, EventsOfAllTracks_StandInPlayingOrder) {
    const SongData song = Build(SmfFile(1, {"00 90 3C 40 00 C0 01 60 90 3C 41 00 B0 07 64 00 80 40 00",
                                            "00 B1 00 01 00 C1 02 60 91 30 40 00 81 30 00", "", "60 82 10 00"}));
    std::string text;
    for (const tavo_midi::MidiEvent& event : song.GetEvents())
        text += std::to_string(event.tick) + ":" + "89ABCDEF"[(event.status >> 4) - 8] +
                std::to_string(event.status & 15) + " ";
    EXPECT_EQ("0:C0 0:B1 0:C1 0:90 96:80 96:82 96:B0 96:90 96:91 97:81 ", text);
}

TEST(SongBuilder, TemposAndKeys_OneATick_AndADefaultTempoAtTheStart) {
    const SongData song = Build(SmfFile(1, {"60 FF 51 03 07 A1 20 00 FF 59 02 01 00", "60 FF 51 03 0F 42 40"}));
    const auto& tempos = song.GetTimeline().GetTempos();
    EXPECT_EQ((std::vector<TL::Tempo>{{0, 500000}, {96, 1000000}}),
              (std::vector<TL::Tempo>{tempos.begin(), tempos.end()}));
    EXPECT_EQ(1U, song.GetTimeline().GetKeys().size());
}

TEST(SongBuilder, Format2_TakesTheSequenceAlone) {
    const std::string file =
        SmfFile(2, {Join({kFourFour, kNoteTo768}), "00 FF 51 03 0F 42 40 00 91 30 40 10 81 30 00"});
    SongOptions options;
    options.sequence = 1;
    const SongData song = Build(file, options);
    ASSERT_EQ(2U, song.GetEvents().size());
    EXPECT_EQ(0x91, song.GetEvents()[0].status);
    EXPECT_EQ(1000000U, song.GetTimeline().GetTempos().front().microseconds_per_quarter());
    EXPECT_EQ("1:0(4) end 384", Bars(song));
}

TEST(SongBuilder, SysexAndMarkers_ComeAlong) {
    const SongData song = Build(SmfFile(0, {"00 F0 02 7D F7 10 FF 06 01 41"}));
    EXPECT_EQ((std::vector<std::uint8_t>{0xF0, 0x7D, 0xF7}), song.GetSysex(song.GetEvents().at(0)));
    ASSERT_EQ(1U, song.GetScoreMarkers().size());
    EXPECT_EQ(16U, song.GetScoreMarkers()[0].abs_time());
}

TEST(SongBuilder, MusicEnd_IsWhereTheTracksEndButNotBehindTheLastBar) {
    EXPECT_EQ(16U, Build(SmfFile(0, {"00 90 3C 40 10 80 3C 40"})).GetMusicEndTickIndex());
    EXPECT_EQ(48U, Build(SmfFile(0, {"00 90 3C 40 10 80 3C 40 20 B0 40 00"})).GetMusicEndTickIndex());
    EXPECT_EQ(384U, Build(SmfFile(0, {"00 90 3C 40 10 80 3C 40 87 00 B0 40 00"})).GetMusicEndTickIndex());
}

}  // namespace
