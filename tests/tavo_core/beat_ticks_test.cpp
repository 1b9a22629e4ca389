#include "tavo_core/beat_ticks.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <limits>
#include <random>
#include <string>

namespace {

using Beats = TL::TimelineSequence<TL::BarsBeats>;
using Clicks = CL::ChangeLogSequence<CL::Click>;
using Meters = TL::TimelineSequence<TL::Meter>;

/// Bars of `beatsPerBar` quarters at 480 ticks, labelled "1", "2", ...
Beats MakeBars(unsigned int bars, unsigned int beatsPerBar = 4) {
    Beats beats;
    for (unsigned int i = 0; i < bars * beatsPerBar; ++i)
        beats.Append(TL::BarsBeats(i * 480, i % beatsPerBar + 1, std::to_string(i / beatsPerBar + 1)));
    return beats;
}

Clicks MakeClicks(const std::vector<CL::Click>& list) {
    Clicks clicks;
    for (const CL::Click& click : list)
        clicks.Add(click);
    return clicks;
}

const Meters fourFour{TL::Meter(0, 4, 4)};

/// "0=1:1 240=1:2 ..."
template <class Sequence>
std::string AsText(const Sequence& beats) {
    std::string text;
    for (const TL::BarsBeats& beat : beats) {
        if (!text.empty()) text += ' ';
        text += std::to_string(beat.abs_time()) + '=' + beat.bar_number() + ':' + std::to_string(beat.beat());
    }
    return text;
}

std::string Laid(const Beats& beats, const std::vector<CL::Click>& clicks, const Meters& meters = fourFour) {
    return AsText(ApplyClicks(beats, MakeClicks(clicks), meters, 480));
}

/// The same rules told plainly: one list, one splice and one renumbering a click.
std::list<TL::BarsBeats> SpliceClicks(const Beats& beats, const Clicks& clicks, const Meters& meters,
                                      unsigned int ticksPerQuarter) {
    std::list<TL::BarsBeats> list(beats.begin(), beats.end());
    for (const CL::Click& click : clicks) {
        if (meters.empty()) continue;
        const TL::Meter* meter = &meters.front();
        for (const TL::Meter& candidate : meters) {
            if (candidate.abs_time() <= click.start()) meter = &candidate;
        }
        const std::uint64_t step = click.ClocksPerClick(meter->thirty_seconds_per_quarter()) * (ticksPerQuarter / 24);
        const auto first = std::find_if(list.begin(), list.end(),
                                        [&](const TL::BarsBeats& beat) { return beat.abs_time() >= click.start(); });
        if (step == 0 || first == list.end()) continue;
        const std::uint64_t end = click.end();
        std::list<TL::BarsBeats> run{*first};
        std::uint64_t tick = first->abs_time() + step;
        unsigned int number = first->beat() + 1;
        std::string label = first->bar_number();
        auto cursor = std::next(first);
        const auto skipBelow = [&](std::uint64_t limit) {
            while (cursor != list.end() && cursor->abs_time() < limit)
                ++cursor;
        };
        if (tick == end) skipBelow(end);
        while (tick < end) {
            skipBelow(tick);
            if (cursor != list.end() && cursor->abs_time() == tick) {
                if (cursor->bar_number() != label) {
                    label = cursor->bar_number();
                    number = 1;
                }
                ++cursor;
            }
            run.emplace_back(static_cast<unsigned int>(tick), number++, label);
            tick += step;
            if (tick == end) skipBelow(end);
        }
        number = run.back().beat() + 1;
        list.erase(first, cursor);
        list.splice(cursor, run);
        for (; cursor != list.end() && cursor->beat() != 1; ++cursor)
            cursor->beat(number++);
    }
    return list;
}

}  // namespace

TEST(ApplyClicks, NoClicks_LeavesTheWrittenBeats) {
    const Beats beats = MakeBars(3);
    EXPECT_EQ(AsText(beats), AsText(ApplyClicks(beats, {}, fourFour, 480)));
    EXPECT_TRUE(ApplyClicks({}, MakeClicks({CL::Click(0, 960, 4)}), fourFour, 480).empty());
}

TEST(ApplyClicks, EighthsOverTwoBars_CountToEightAndStartAnewAtTheBarLine) {
    EXPECT_EQ(
        "0=1:1 240=1:2 480=1:3 720=1:4 960=1:5 1200=1:6 1440=1:7 1680=1:8 "
        "1920=2:1 2160=2:2 2400=2:3 2640=2:4 2880=2:5 3120=2:6 3360=2:7 3600=2:8 "
        "3840=3:1 4320=3:2 4800=3:3 5280=3:4",
        Laid(MakeBars(3), {CL::Click(0, 3840, 4)}));
}

TEST(ApplyClicks, HalvesOverABar_TakeBeatsAway) {
    EXPECT_EQ("0=1:1 960=1:2 1920=2:1 2400=2:2 2880=2:3 3360=2:4", Laid(MakeBars(2), {CL::Click(0, 1920, 16)}));
}

TEST(ApplyClicks, EndInsideABar_CountsOnToTheBarLine) {
    EXPECT_EQ("0=1:1 240=1:2 480=1:3 720=1:4 960=1:5 1440=1:6 1920=2:1 2400=2:2 2880=2:3 3360=2:4",
              Laid(MakeBars(2), {CL::Click(0, 960, 4)}));
}

TEST(ApplyClicks, EndBetweenGeneratedClicks_KeepsTheWrittenBeatsAfterTheLastOne) {
    // Clicks of three eighths: 0, 720, 1440; the next, 2160, overshoots 2000, so the bar line at 1920 stays.
    EXPECT_EQ("0=1:1 720=1:2 1440=1:3 1920=2:1 2400=2:2 2880=2:3 3360=2:4",
              Laid(MakeBars(2), {CL::Click(0, 2000, 12)}));
}

TEST(ApplyClicks, BarLineOffTheGrid_IsSwallowed) {
    // 1920 lies between 1440 and 2160, so bar 2 first shows where a generated click meets one of its beats.
    EXPECT_EQ("0=1:1 720=1:2 1440=2:1 2160=2:2 2880=3:1 3600=3:2 3840=3:3",
              Laid({TL::BarsBeats(0, 1, "1"), TL::BarsBeats(480, 2, "1"), TL::BarsBeats(960, 1, "2"),
                    TL::BarsBeats(1440, 2, "2"), TL::BarsBeats(1920, 1, "3"), TL::BarsBeats(2400, 2, "3"),
                    TL::BarsBeats(2880, 3, "3"), TL::BarsBeats(3360, 4, "3"), TL::BarsBeats(3840, 5, "3")},
                   {CL::Click(0, 3800, 12)}));
}

TEST(ApplyClicks, OneStepLongAsTheRange_KeepsOnlyItsFirstBeat) {
    EXPECT_EQ("0=1:1 1920=2:1 2400=2:2 2880=2:3 3360=2:4", Laid(MakeBars(2), {CL::Click(0, 1920, 32)}));
}

TEST(ApplyClicks, StartBetweenBeats_BeginsAtTheNextBeat) {
    EXPECT_EQ("0=1:1 480=1:2 720=1:3 960=1:4 1440=1:5", Laid(MakeBars(1), {CL::Click(300, 960, 4)}));
}

TEST(ApplyClicks, WhatCannotBeApplied_IsLeftOut) {
    const Beats beats = MakeBars(1);
    const std::string written = AsText(beats);
    EXPECT_EQ(written, Laid(beats, {CL::Click(1441, 9999, 4)})) << "no beat at or after the start";
    EXPECT_EQ(written, Laid(beats, {CL::Click(0, 960, 4)}, {})) << "no meter";
    EXPECT_EQ(written, Laid(beats, {CL::Click(0, 960, 4)}, {TL::Meter(0, 4, 4, 24, 0)})) << "step 0";
    EXPECT_EQ(written, AsText(ApplyClicks(beats, MakeClicks({CL::Click(0, 960, 4)}), fourFour, 23))) << "step 0";
}

TEST(ApplyClicks, BeforeTheFirstMeter_TakesTheFirst) {
    EXPECT_EQ("0=1:1 240=1:2 480=1:3 960=1:4 1440=1:5",
              Laid(MakeBars(1), {CL::Click(0, 480, 4)}, {TL::Meter(960, 4, 4)}));
}

TEST(ApplyClicks, InvertedRange_OnlyCountsOn) {
    EXPECT_EQ(AsText(MakeBars(2)), Laid(MakeBars(2), {CL::Click(960, 480, 4)}));
}

TEST(ApplyClicks, RangeToTheEndOfTime_EndsWithoutWrappingAround) {
    constexpr unsigned int Last = std::numeric_limits<unsigned int>::max();
    const Beats beats{TL::BarsBeats(Last - 500, 1, "9")};
    EXPECT_EQ("4294966795=9:1 4294967035=9:2 4294967275=9:3", Laid(beats, {CL::Click(0, Last, 4)}));
    EXPECT_EQ("4294966795=9:1", Laid(beats, {CL::Click(0, Last, 128)}));
}

TEST(ApplyClicks, RangeOfAbsurdLength_GeneratesAMillionBeatsAtMost) {
    const auto laid = ApplyClicks(MakeBars(1), MakeClicks({CL::Click(0, 0xFFFFFFFFU, 1), CL::Click(1, 0xFFFFFFFFU, 1)}),
                                  fourFour, 24);
    EXPECT_LE(laid.size(), (1U << 20U) + 10);
}

TEST(ApplyClicks, RandomSongs_AgreeWithThePlainSplice) {
    std::mt19937 random(20240611);
    const auto pick = [&random](unsigned int lowest, unsigned int highest) {
        return std::uniform_int_distribution<unsigned int>(lowest, highest)(random);
    };
    for (int round = 0; round < 4000; ++round) {
        Beats beats;
        unsigned int tick = pick(0, 100);
        unsigned int number = pick(1, 3);
        unsigned int bar = 1;
        for (unsigned int i = pick(0, 60); i > 0; --i) {
            beats.Append(TL::BarsBeats(tick, number, std::to_string(bar)));
            tick += pick(1, 4) * 12;
            const bool newBar = pick(0, 3) == 0;
            number = newBar ? 1 : number + 1;
            // Now and then two bars bear the same label.
            if (newBar && pick(0, 5) > 0) ++bar;
        }
        Meters meters;
        for (unsigned int at = pick(0, 50), i = pick(1, 3); i > 0; --i, at += pick(1, 500))
            meters.Append(TL::Meter(at, 4, 4, 24, static_cast<std::uint8_t>(pick(0, 3) * 8)));
        Clicks clicks;
        const bool mayOverlap = round % 2 == 0;
        for (unsigned int at = pick(0, 80), i = pick(0, 6); i > 0; --i) {
            const unsigned int end = at + pick(0, 30) * 6 + (pick(0, 9) == 0 ? 5 : 0);
            clicks.Add(CL::Click(at, end, static_cast<int>(pick(0, 16))));
            at = mayOverlap ? at + pick(0, 120) : std::max(at, end) + pick(0, 60);
        }
        const auto plain = SpliceClicks(beats, clicks, meters, 48);
        ASSERT_EQ(AsText(plain), AsText(ApplyClicks(beats, clicks, meters, 48))) << "round " << round;
        ASSERT_EQ(AsText(plain), AsText(CollectBeats(beats, clicks, meters, 48))) << "round " << round;

        std::list<unsigned int> plainTicks;
        const unsigned int endTick = pick(0, 2000);
        for (const TL::BarsBeats& beat : plain) {
            if (beat.abs_time() <= endTick) plainTicks.push_back(beat.abs_time());
        }
        ASSERT_EQ(plainTicks, CreateBeatTicks(beats, clicks, meters, endTick, 48)) << "round " << round;
    }
}

TEST(CreateBeatTicks, IncludesTheEndTick) {
    EXPECT_EQ((std::list<unsigned int>{0, 480, 960}), CreateBeatTicks(MakeBars(1), {}, fourFour, 960, 480));
    EXPECT_EQ((std::list<unsigned int>{0, 480}), CreateBeatTicks(MakeBars(1), {}, fourFour, 959, 480));
    EXPECT_EQ((std::list<unsigned int>{0, 240, 480}),
              CreateBeatTicks(MakeBars(1), MakeClicks({CL::Click(0, 960, 4)}), fourFour, 500, 480));
}
