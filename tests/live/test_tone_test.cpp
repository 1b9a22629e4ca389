#include "stage/live/test_tone.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

namespace {

constexpr std::uint32_t Rate = 48000;
constexpr std::uint32_t Block = 64;

/// Two pairs, in blocks as they are rendered.
class Tone : public testing::Test {
protected:
    /// Adds blocks until so many frames are there; `isToEnd` for those from now on.
    void AddUntil(std::size_t frames, bool isToEnd = false) {
        while (channels_[0].size() < frames) {
            std::array<std::array<float, Block>, 4> block{};
            const std::array<stage::StereoBuffer, 2> pairs{
                {{block[0].data(), block[1].data()}, {block[2].data(), block[3].data()}}};
            tone_.AddTo(pairs, Block, Rate, isToEnd);
            for (std::size_t channel = 0; channel < 4; ++channel)
                channels_[channel].insert(channels_[channel].end(), block[channel].begin(), block[channel].end());
        }
    }
    [[nodiscard]] double FindLevel(std::size_t channel, double from, double to) const {
        const auto begin = static_cast<std::size_t>(from * Rate);
        const auto end = static_cast<std::size_t>(to * Rate);
        double sum = 0;
        for (std::size_t i = begin; i < end; ++i)
            sum += static_cast<double>(channels_[channel][i]) * channels_[channel][i];
        return begin == end ? 0 : std::sqrt(sum / static_cast<double>(end - begin));
    }
    /// The largest step from one sample to the next.
    [[nodiscard]] float FindStep(std::size_t channel) const {
        float step = 0;
        for (std::size_t i = 1; i < channels_[channel].size(); ++i)
            step = std::max(step, std::abs(channels_[channel][i] - channels_[channel][i - 1]));
        return step;
    }

    stage::TestTone tone_;
    std::array<std::vector<float>, 4> channels_;
};

/// What a sine of -20 dBFS has, and its steepest step.
const double Level = 0.1 / std::sqrt(2.0);
constexpr float Steepest = 0.1F * 2 * 3.1416F * 440 / Rate;

TEST_F(Tone, Begun_SoundsOnEachSideOfEachPairInTurnWithoutAClick) {
    AddUntil(Rate / 10);
    EXPECT_EQ(0, FindLevel(0, 0, 0.1));
    EXPECT_FALSE(tone_.IsPlaying());
    channels_ = {};
    tone_.Begin();
    EXPECT_TRUE(tone_.IsPlaying());
    AddUntil(5 * Rate);
    EXPECT_FALSE(tone_.IsPlaying());
    for (std::size_t channel = 0; channel < 4; ++channel) {
        const auto second = static_cast<double>(channel);
        EXPECT_NEAR(Level, FindLevel(channel, second + 0.02, second + 0.98), 0.001) << channel;
        EXPECT_EQ(0, FindLevel(channel, 0, second)) << channel;
        EXPECT_EQ(0, FindLevel(channel, second + 1, 5)) << channel;
        EXPECT_LE(FindStep(channel), 1.1F * Steepest) << channel;
    }
}

TEST_F(Tone, EndedOnTheWay_GoesWithin10Ms_AndBegunAgainStartsAtTheLeft) {
    tone_.Begin();
    AddUntil(Rate / 2);
    // While it plays it goes on.
    tone_.Begin();
    AddUntil(Rate + Rate / 2);
    AddUntil(2 * Rate, true);
    EXPECT_NEAR(Level, FindLevel(0, 0.02, 0.98), 0.001);
    EXPECT_GT(FindLevel(1, 1.1, 1.4), 0.9 * Level);
    EXPECT_EQ(0, FindLevel(1, 1.512, 2));
    EXPECT_LE(FindStep(1), 1.1F * Steepest);
    EXPECT_FALSE(tone_.IsPlaying());
    channels_ = {};
    tone_.Begin();
    AddUntil(Rate);
    EXPECT_NEAR(Level, FindLevel(0, 0.02, 0.98), 0.001);
}

}  // namespace
