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
    void Take() { feed_.TakeFrames(left_.data(), right_.data(), Period, 1ms); }
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
    Take();
    EXPECT_LT(left_.front(), 0.05F);
    Take();
    Take();
    EXPECT_EQ(1.0F, left_.back());
    EXPECT_EQ(4U * Period, feed_.GetRing().CountTaken());
    EXPECT_EQ(0U, feed_.CountLatePeriods());
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
