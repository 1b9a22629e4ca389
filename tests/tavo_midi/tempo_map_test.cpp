#include "tavo_midi/tempo_map.h"

#include <gtest/gtest.h>

#include <random>

#include "tavo_midi/tick_search.h"

namespace {

using tavo_midi::TempoMap;
__extension__ using Wide = __int128;

TL::TimelineSequence<TL::Tempo> Tempos(std::initializer_list<TL::Tempo> tempos) {
    return tempos;
}

TEST(TempoMap, SegmentsBeginAtTickZero) {
    struct Row {
        const char* what;
        TL::TimelineSequence<TL::Tempo> tempos;
        std::vector<TempoMap::Segment> segments;
    };
    const Row rows[] = {
        {"no tempo is 120 a minute", {}, {{0, 500000, 0}}},
        {"one tempo", Tempos({{0, 600000}}), {{0, 600000, 0}}},
        {"120 a minute before the first", Tempos({{100, 600000}}), {{0, 500000, 0}, {100, 600000, 50000000}}},
        {"the last of several at one tick", Tempos({{0, 1}, {0, 2}, {7, 3}, {7, 4}}), {{0, 2, 0}, {7, 4, 14}}},
        {"a tempo of 0 is left out", Tempos({{0, 5}, {10, 0}, {20, 6}}), {{0, 5, 0}, {20, 6, 100}}},
    };
    for (const Row& row : rows) {
        const TempoMap map(row.tempos, 480);
        EXPECT_EQ(row.segments, (std::vector<TempoMap::Segment>{map.GetSegments().begin(), map.GetSegments().end()}))
            << row.what;
    }
}

// Searched as all others are, in blocks that are filled up behind the last segment.
TEST(TempoMap, LastTickOfAll_IsInTheLastSegment) {
    EXPECT_EQ(0U, TempoMap(Tempos({{0, 600000}}), 480).FindSegment(0xFFFFFFFF));
    EXPECT_EQ(2U, TempoMap(Tempos({{0, 5}, {7, 6}, {9, 7}}), 480).FindSegment(0xFFFFFFFF));
}

TEST(TempoMap, TickToFrameAndBack_AtTheBoundaries) {
    // 480 ticks a quarter note of 0.5 s at 48 kHz: 50 frames a tick; twice as slow from tick 960 on.
    const TempoMap map(Tempos({{0, 500000}, {960, 1000000}}), 480);
    struct Row {
        std::uint32_t tick;
        std::uint64_t frame;
        double seconds;
    };
    for (const Row& row : {Row{0, 0, 0}, Row{1, 50, 1 / 960.0}, Row{959, 47950, 959 / 960.0}, Row{960, 48000, 1},
                           Row{961, 48100, 1 + 1 / 480.0}, Row{1440, 96000, 2}}) {
        EXPECT_EQ(row.frame, map.FrameOfTick(row.tick, 48000));
        EXPECT_EQ(row.tick, map.TickOfFrame(row.frame, 48000));
        EXPECT_DOUBLE_EQ(row.seconds, map.GetSeconds(row.tick));
        EXPECT_DOUBLE_EQ(row.tick, map.FractionalTickOfFrame(row.frame, 48000));
        if (row.tick != 0) {
            EXPECT_EQ(row.tick - 1, map.TickOfFrame(row.frame - 1, 48000));
        }
    }
    EXPECT_DOUBLE_EQ(0.5, map.FractionalTickOfFrame(25, 48000));
    EXPECT_DOUBLE_EQ(960.5, map.FractionalTickOfFrame(48050, 48000));
}

TEST(TempoMap, HalfAFrame_RoundsUp) {
    // 2 ticks a quarter note of 1 s at 1 Hz: a tick is half a frame.
    const TempoMap map(Tempos({{0, 1000000}}), 2);
    EXPECT_EQ(0U, map.FrameOfTick(0, 1));
    EXPECT_EQ(1U, map.FrameOfTick(1, 1));
    EXPECT_EQ(1U, map.FrameOfTick(2, 1));
    EXPECT_EQ(2U, map.FrameOfTick(3, 1));
    EXPECT_EQ(0U, map.TickOfFrame(0, 1));
    EXPECT_EQ(2U, map.TickOfFrame(1, 1));
}

TEST(TempoMap, GreatestValues_StayInRange) {
    const TempoMap map(Tempos({{0, 16777215}}), 1);
    const std::uint64_t last = map.FrameOfTick(0xFFFFFFFF, 1000000);
    EXPECT_EQ(0xFFFFFFFFULL * 16777215ULL, last);
    EXPECT_EQ(0xFFFFFFFFU, map.TickOfFrame(last, 1000000));
    EXPECT_EQ(0xFFFFFFFFU, map.TickOfFrame(0xFFFFFFFFFFFFFFFFULL, 1));
    EXPECT_EQ(0xFFFFFFFFU, map.GetTick(0xFFFFFFFFFFFFFFFFULL));
}

/// 10 000 tempos over two and a half hours.
TL::TimelineSequence<TL::Tempo> ManyTempos(std::mt19937& random) {
    TL::TimelineSequence<TL::Tempo> tempos;
    std::uint32_t tick = 0;
    for (int count = 0; count < 10000; ++count) {
        tempos.Append({tick, std::uniform_int_distribution<std::uint32_t>(240000, 1500001)(random)});
        tick += std::uniform_int_distribution<std::uint32_t>(1, 990)(random);
    }
    return tempos;
}

TEST(TempoMap, TwoAndAHalfHoursOfTempoChanges_NeverDriftFromRationalArithmetic) {
    std::mt19937 random(20261121);
    for (const unsigned int ticksPerQuarter : {480U, 384U, 960U, 7U}) {
        const TL::TimelineSequence<TL::Tempo> tempos = ManyTempos(random);
        const TempoMap map(tempos, ticksPerQuarter);
        for (const std::uint32_t rate : {48000U, 44100U, 96000U}) {
            Wide time = 0;  // in ticks times microseconds
            std::uint32_t from = 0;
            std::uint32_t tempo = 500000;
            const Wide second = Wide{ticksPerQuarter} * 1000000;
            for (const TL::Tempo& next : tempos) {
                for (const std::uint32_t tick : {from + 1, (from + next.abs_time()) / 2, next.abs_time()}) {
                    if (tick < from || tick > next.abs_time()) continue;
                    const Wide exact = (time + Wide{tick - from} * tempo) * rate;
                    const auto frame = static_cast<Wide>(map.FrameOfTick(tick, rate));
                    // Nearest: within half a frame, in integers.
                    const Wide error = 2 * (frame * second - exact);
                    ASSERT_TRUE(-second < error && error <= second) << tick;
                    ASSERT_EQ(frame, static_cast<Wide>(map.FrameOfTick(
                                         map.TickOfFrame(static_cast<std::uint64_t>(frame), rate), rate)));
                }
                time += Wide{next.abs_time() - from} * tempo;
                from = next.abs_time();
                tempo = next.microseconds_per_quarter();
            }
            EXPECT_GT(map.GetSeconds(from), ticksPerQuarter == 480 ? 2.5 * 3600 : 0);
        }
    }
}

TEST(TempoMap, TickOfFrame_IsTheInverseOfFrameOfTick) {
    std::mt19937 random(7);
    const TempoMap map(ManyTempos(random), 480);
    for (int count = 0; count < 20000; ++count) {
        const std::uint64_t frame = std::uniform_int_distribution<std::uint64_t>(0, 500000000)(random);
        const std::uint32_t tick = map.TickOfFrame(frame, 48000);
        ASSERT_LE(map.FrameOfTick(tick, 48000), frame);
        ASSERT_GT(map.FrameOfTick(tick + 1, 48000), frame);
        const std::uint32_t floor = map.GetTick(frame * 10000);
        const std::uint64_t begin = map.GetTickMicroseconds(floor);
        const auto length = static_cast<double>(map.GetTickMicroseconds(floor + 1) - begin);
        ASSERT_NEAR(floor + static_cast<double>(frame * 10000 - begin) / length,
                    map.FractionalTickOfFrame(frame, 48000), 1e-6);
    }
}

TEST(TempoMap, AnyGuess_FindsTheSegment) {
    std::mt19937 random(11);
    const TempoMap map(ManyTempos(random), 480);
    for (int count = 0; count < 20000; ++count) {
        const std::uint32_t tick = std::uniform_int_distribution<std::uint32_t>(0, 6000000)(random);
        const std::size_t guess = std::uniform_int_distribution<std::size_t>(0, 11000)(random);
        ASSERT_EQ(map.FindSegment(tick), map.FindSegment(tick, guess));
    }
}

TEST(TickSearch, CountsLikeALinearWalk_WhateverTheGuess) {
    for (std::size_t size = 0; size <= 9; ++size) {
        std::vector<std::uint32_t> ticks;
        for (std::size_t index = 0; index < size; ++index)
            ticks.push_back(static_cast<std::uint32_t>(10 * (index / 2)));
        for (std::uint32_t tick : {0U, 1U, 9U, 10U, 11U, 20U, 29U, 30U, 31U, 40U, 41U, 0xFFFFFFFFU}) {
            std::size_t expected = 0;
            while (expected < size && ticks[expected] <= tick)
                ++expected;
            ASSERT_EQ(expected, tavo_midi::CountNotAfter<std::uint32_t>(ticks, tick));
            for (std::size_t guess = 0; guess <= size + 2; ++guess)
                ASSERT_EQ(expected, tavo_midi::CountNotAfter<std::uint32_t>(ticks, tick, guess)) << size << " " << tick;
        }
    }
}

}  // namespace
