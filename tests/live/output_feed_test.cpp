#include "stage/live/output_feed.h"

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cmath>
#include <numeric>
#include <vector>

namespace {

using namespace std::chrono_literals;

constexpr std::uint32_t Period = 128;

class OutputFeedTest : public testing::Test {
protected:
    void Write(std::uint32_t frames, float value) {
        const std::vector<float> sound(frames, value);
        feed_.GetRing().Write(sound.data(), sound.data(), frames);
    }
    void SetUp() override { Take(); }  // the silent period with which each device begins
    void Take() {
        moment_ += 2667us;
        feed_.TakeFrames(left_.data(), right_.data(), Period, moment_);
    }
    /// The largest step from one frame to the next, also from the period before.
    float TakeAndFindLargestStep() {
        const float before = left_.back();
        Take();
        float largest = std::abs(left_.front() - before);
        for (std::size_t i = 1; i < left_.size(); ++i)
            largest = std::max(largest, std::abs(left_[i] - left_[i - 1]));
        return largest;
    }

    stage::OutputFeed feed_;
    std::chrono::nanoseconds moment_{0};
    std::array<float, Period> left_{};
    std::array<float, Period> right_{};
};

TEST_F(OutputFeedTest, WholePeriod_IsTakenAsItWasWritten) {
    std::vector<float> ramp(Period);
    std::iota(ramp.begin(), ramp.end(), 0.0F);
    feed_.GetRing().Write(ramp.data(), ramp.data(), Period);
    Take();
    EXPECT_EQ(ramp, std::vector<float>(left_.begin(), left_.end()));
    EXPECT_EQ(ramp, std::vector<float>(right_.begin(), right_.end()));
    EXPECT_EQ(0U, feed_.CountLatePeriods());
}

TEST_F(OutputFeedTest, SilentWhileTheDeviceSettles_MusicIsHeardFromTheNextPeriodOn) {
    // It has begun with such a period.
    EXPECT_NEAR(static_cast<double>((moment_ + 2667us).count()),
                static_cast<double>(feed_.GetClock().FindMomentHeard(0, moment_)->count()), 1e3);
    const auto expected = feed_.GetClock().FindMomentHeard(Period, moment_);
    Write(2 * Period, 0.5F);
    Take();
    EXPECT_NEAR(static_cast<double>(expected->count()),
                static_cast<double>(feed_.GetClock().FindMomentHeard(Period, moment_)->count()), 1e3);
}

TEST_F(OutputFeedTest, NothingRenderedYet_IsSilenceAndNotLate) {
    Take();
    EXPECT_EQ(0.0F, left_.back());
    EXPECT_EQ(0U, feed_.CountLatePeriods());
}

TEST_F(OutputFeedTest, FramesMissing_AreCounted) {
    Write(Period + 28, 0.5F);
    Take();
    Take();
    Take();
    EXPECT_EQ(2U, feed_.CountLatePeriods());
    EXPECT_EQ(100U + Period, feed_.CountMissingFrames());
}

TEST_F(OutputFeedTest, FramesMissing_FadeOutAndInWithoutAClick) {
    Write(2 * Period + 60, 1.0F);
    Take();
    Take();
    EXPECT_LT(TakeAndFindLargestStep(), 0.05F);
    EXPECT_NEAR(0.0F, left_.back(), 1e-3F);
    Write(4 * Period, 1.0F);
    EXPECT_LT(TakeAndFindLargestStep(), 0.05F);
    EXPECT_LT(TakeAndFindLargestStep(), 0.05F);
    EXPECT_EQ(1.0F, left_.back());
}

TEST_F(OutputFeedTest, NoFrameAtAll_LastValueDiesAway) {
    Write(Period, 1.0F);
    Take();
    EXPECT_LT(TakeAndFindLargestStep(), 0.05F);
    EXPECT_LT(left_.back(), 0.2F);
    EXPECT_LT(TakeAndFindLargestStep(), 0.05F);
}

TEST_F(OutputFeedTest, AfterRest_NextDeviceFadesInWhereTheLastStopped) {
    Write(4 * Period, 1.0F);
    Take();
    feed_.Rest(true);
    Take();  // to find out how the device asks
    EXPECT_EQ(0.0F, left_.back());
    Take();
    EXPECT_LT(left_.front(), 0.05F);
    Take();
    Take();
    EXPECT_EQ(1.0F, left_.back());
    EXPECT_EQ(4U * Period, feed_.GetRing().CountTaken());
    EXPECT_EQ(0U, feed_.CountLatePeriods());
}

TEST_F(OutputFeedTest, DeviceFillsItsBuffersFirst_MusicBeginsWhenItPlays) {
    Write(4 * Period, 1.0F);
    feed_.Rest(false);
    for (int buffer = 0; buffer < 5; ++buffer) {
        moment_ -= 2660us;  // in one go
        Take();
        EXPECT_EQ(0.0F, left_.back());
    }
    EXPECT_FALSE(feed_.HasSettled());
    EXPECT_EQ(0U, feed_.GetRing().CountTaken());
    moment_ += 1500ms;
    Take();
    EXPECT_TRUE(feed_.HasSettled());
    EXPECT_EQ(Period, feed_.GetRing().CountTaken());
    EXPECT_EQ(1.0F, left_.back());
    EXPECT_EQ(0U, feed_.CountLatePeriods());
}

TEST_F(OutputFeedTest, DeviceAsksWithoutEnd_MusicStandsUntilTheNextOne) {
    feed_.NoteFormat({48000, Period, 512});
    Take();
    ASSERT_TRUE(feed_.HasSettled());
    for (int i = 0; i < 1000; ++i) {
        Write(Period, 1.0F);
        moment_ -= 2600us;
        Take();
    }
    EXPECT_TRUE(feed_.HasRunAway());
    EXPECT_LT(feed_.GetRing().CountTaken(), 12'000U);
    EXPECT_EQ(0.0F, left_.back());
    feed_.Rest(true);
    Take();
    Take();
    EXPECT_FALSE(feed_.HasRunAway());
    EXPECT_NE(0.0F, left_.back());
}

TEST_F(OutputFeedTest, DeviceCatchesUpOrIsALittleFast_IsNoRunaway) {
    feed_.NoteFormat({48000, Period, 512});
    Take();
    moment_ += 1s;
    for (int i = 0; i < 375; ++i) {  // the second that it slept, in one go
        moment_ -= 2667us;
        Take();
    }
    for (int i = 0; i < 100'000; ++i) {  // some minutes
        moment_ -= 8us;
        Take();
    }
    EXPECT_FALSE(feed_.HasRunAway());
}

TEST(DeviceClockTest, BeforeTheFirstPeriod_NothingIsHeard) {
    const stage::DeviceClock clock;
    EXPECT_LT(clock.FindHeardFrame(5s), 0);
}

TEST(DeviceClockTest, WithinAPeriod_MovesOnWithTheTime) {
    stage::DeviceClock clock;
    clock.NoteFormat({48000, 480, 0});
    clock.NotePeriod(4800, 480, 1s);
    EXPECT_EQ(4800, clock.FindHeardFrame(1s));
    EXPECT_EQ(4800 + 240, clock.FindHeardFrame(1s + 5ms));
    EXPECT_EQ(4800, clock.FindHeardFrame(999ms)) << "before the period began";
}

TEST(DeviceClockTest, Latency_IsHeardLater) {
    stage::DeviceClock clock;
    clock.NoteFormat({48000, 480, 960});
    clock.NotePeriod(4800, 480, 1s);
    EXPECT_EQ(4800 - 960, clock.FindHeardFrame(1s));
    EXPECT_EQ(4800 - 480, clock.FindHeardFrame(1s + 10ms));
}

TEST(DeviceClockTest, DeviceHasStopped_NothingBeyondItsLastPeriodIsHeard) {
    stage::DeviceClock clock;
    clock.NoteFormat({48000, 480, 0});
    clock.NotePeriod(4800, 480, 1s);
    EXPECT_EQ(4800 + 480, clock.FindHeardFrame(1h));
}

TEST(DeviceClockTest, MomentOfAFrame_IsThatAtWhichItIsHeard) {
    stage::DeviceClock clock;
    clock.NoteFormat({48000, 480, 960});
    EXPECT_FALSE(clock.FindMomentHeard(0, 1s)) << "before the first period";
    clock.NotePeriod(4800, 480, 1s);
    EXPECT_EQ(1s + 20ms, clock.FindMomentHeard(4800, 1s));
    EXPECT_EQ(1s + 30ms, clock.FindMomentHeard(5280, 1s)) << "one that is to come";
    EXPECT_EQ(1s - 80ms, clock.FindMomentHeard(0, 1s)) << "one that has been heard";
    EXPECT_EQ(4321, clock.FindHeardFrame(*clock.FindMomentHeard(4321, 1s) + 1us));
}

TEST(DeviceClockTest, PeriodEndsInSilence_WhatComesIsHeardAfterIt) {
    stage::DeviceClock clock;
    clock.NoteFormat({48000, 480, 960});
    clock.NotePeriod(4800, 96, 1s, 384);
    EXPECT_EQ(1s + 20ms, clock.FindMomentHeard(4800, 1s));
    EXPECT_EQ(1s + 30ms, clock.FindMomentHeard(4896, 1s));
    EXPECT_EQ(1s + 40ms, clock.FindMomentHeard(5376, 1s));
}

TEST(DeviceClockTest, NoPeriodForLong_NoFrameHasItsMoment) {
    stage::DeviceClock clock;
    clock.NoteFormat({48000, 480, 960});
    clock.NotePeriod(4800, 480, 1s);
    EXPECT_TRUE(clock.FindMomentHeard(4800, 1s + 80ms));
    EXPECT_FALSE(clock.FindMomentHeard(4800, 1s + 81ms));
}

TEST(PlayheadHistoryTest, FindsWhatWasAtTheFrame) {
    stage::PlayheadHistory history;
    history.Note(0, 10);
    history.Note(64, 20);
    history.Note(128, 5);  // a jump back
    EXPECT_EQ(10U, history.FindTick(0));
    EXPECT_EQ(10U, history.FindTick(63));
    EXPECT_EQ(20U, history.FindTick(64));
    EXPECT_EQ(5U, history.FindTick(1000));
    EXPECT_EQ(10U, history.FindTick(-5)) << "before the first";
}

TEST(PlayheadHistoryTest, AfterManyBlocks_StillKnowsTheLastSecond) {
    stage::PlayheadHistory history;
    for (std::uint32_t block = 0; block < 5000; ++block)
        history.Note(std::int64_t{64} * block, block);
    EXPECT_EQ(4999U, history.FindTick(64 * 4999));
    EXPECT_EQ(4300U, history.FindTick(64 * 4300));
}

}  // namespace
