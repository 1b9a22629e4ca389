#include "stage/engine/frame_clock.h"

#include <gtest/gtest.h>

#include <random>

namespace {

using stage::FrameClock;
using stage::FrameTime;
using tavo_midi::TempoMap;

constexpr std::uint32_t Rate = 48000;

TempoMap MakeMap(const TL::TimelineSequence<TL::Tempo>& tempos, unsigned int ticksPerQuarter = 480) {
    return TempoMap(tempos, ticksPerQuarter);
}

TEST(FrameClock, TenThousandTemposOverTwoAndAHalfHours_NoTickIsOff) {
    std::mt19937 generator(1);
    const auto random = [&generator] { return static_cast<std::uint32_t>(generator()); };
    TL::TimelineSequence<TL::Tempo> tempos;
    std::uint32_t tick = 0;
    for (int i = 0; i < 10000; ++i) {
        tempos.Append(TL::Tempo(tick, 250000 + random() % 900000));
        tick += 500 + random() % 300;
    }
    const TempoMap map = MakeMap(tempos);
    ASSERT_GT(map.GetSeconds(tick), 2.5 * 3600);
    FrameClock clock(Rate);
    clock.SetTempoMap(map);
    clock.Anchor(0, {}, FrameClock::UnscaledMillionths);
    for (std::uint32_t at = 0; at <= tick; at += 7)
        ASSERT_EQ(static_cast<std::int64_t>(map.FrameOfTick(at, Rate)), clock.TimeOfTick(at).Rounded()) << at;
}

TEST(FrameClock, AMillionJumps_DriftLessThanAThousandthOfAFrame) {
    // 700 001 us a quarter note: a tick lasts 70.0001 frames, so that every jump leaves a fraction behind.
    const TempoMap map = MakeMap({TL::Tempo(0, 700001)});
    FrameClock clock(Rate);
    clock.SetTempoMap(map);
    FrameTime now;
    constexpr std::int64_t Jumps = 1000000;
    for (std::int64_t i = 0; i < Jumps; ++i) {
        clock.Anchor(100, now, FrameClock::UnscaledMillionths);
        now = clock.TimeOfTick(101);
    }
    const double exact = static_cast<double>(Jumps) * 700001.0 * Rate / 480 / 1e6;
    EXPECT_NEAR(exact, static_cast<double>(now.frame) + now.fraction / 4294967296.0, 1e-3);
}

TEST(FrameClock, TickIsDueAtTheNearestFrame) {
    // 50.5 frames a tick.
    const TempoMap map = MakeMap({TL::Tempo(0, 505000)});
    FrameClock clock(Rate);
    clock.SetTempoMap(map);
    clock.Anchor(0, {}, FrameClock::UnscaledMillionths);
    EXPECT_EQ(51, clock.TimeOfTick(1).Rounded());
    EXPECT_EQ(101, clock.TimeOfTick(2).Rounded());
    EXPECT_EQ(0U, clock.TickOfFrame(50));
    EXPECT_EQ(1U, clock.TickOfFrame(51));
    EXPECT_EQ(1U, clock.TickOfFrame(100));
    EXPECT_EQ(2U, clock.TickOfFrame(101));
}

TEST(FrameClock, RescaledOnTheWay_GoesOnFromWhereItIs) {
    const TempoMap map = MakeMap({TL::Tempo(0, 500000)});
    FrameClock clock(Rate);
    clock.SetTempoMap(map);
    clock.Anchor(0, {}, FrameClock::UnscaledMillionths);
    clock.Rescale(12025, 500000);  // half way between ticks 240 and 241
    EXPECT_EQ(12025 + 50, clock.TimeOfTick(241).Rounded());
    EXPECT_EQ(12025 + 50 + 23900, clock.TimeOfTick(480).Rounded());
}

TEST(FrameClock, StandingStill_ShiftsWhatComesAfter) {
    const TempoMap map = MakeMap({TL::Tempo(0, 500000)});
    FrameClock clock(Rate);
    clock.SetTempoMap(map);
    clock.Anchor(0, {}, FrameClock::UnscaledMillionths);
    clock.StandStill(1000, 5000);
    EXPECT_EQ(24000 + 4000, clock.TimeOfTick(480).Rounded());
}

TEST(FrameClock, CountTicks_IsAtLeastOne) {
    const TempoMap map = MakeMap({TL::Tempo(0, 500000), TL::Tempo(480, 50000)});
    FrameClock clock(Rate);
    clock.SetTempoMap(map);
    clock.Anchor(0, {}, FrameClock::UnscaledMillionths);
    EXPECT_EQ(1U, clock.CountTicks(0, 64));
    EXPECT_EQ(1U, clock.CountTicks(0, 1));
    EXPECT_EQ(12U, clock.CountTicks(480, 64));
}

TEST(AsMillionths, NearestAndNeverNothing) {
    EXPECT_EQ(900000U, stage::AsMillionths(0.9F));
    EXPECT_EQ(1U, stage::AsMillionths(0));
    EXPECT_EQ(2000000U, stage::AsMillionths(2));
}

}  // namespace
