// The limiter of the main output: what it leaves alone, and what it keeps below full scale.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <random>
#include <vector>

#include "stage/engine/level_meter.h"
#include "stage/engine/true_peak_limiter.h"

namespace {

using stage::TruePeakLimiter;
constexpr std::uint32_t Delay = TruePeakLimiter::DelayFrames;

std::vector<float> MakeTone(double amplitude, double framesPerCycle, std::size_t frames, double phase = 0) {
    std::vector<float> sound(frames);
    for (std::size_t i = 0; i < frames; ++i)
        sound[i] = static_cast<float>(
            amplitude * std::sin(2 * std::numbers::pi * (static_cast<double>(i) / framesPerCycle + phase)));
    return sound;
}

/// What comes out for the same on both sides, `block` frames at a time, without the delay.
std::vector<float> Limit(std::vector<float> sound, std::uint32_t block = 64, std::uint64_t* limitedFrames = nullptr) {
    TruePeakLimiter limiter(48000);
    sound.resize(sound.size() + Delay);
    std::vector<float> right = sound;
    for (std::size_t i = 0; i < sound.size(); i += block)
        limiter.Process(sound.data() + i, right.data() + i,
                        static_cast<std::uint32_t>(std::min<std::size_t>(block, sound.size() - i)));
    EXPECT_EQ(sound, right);
    if (limitedFrames != nullptr) *limitedFrames = limiter.CountLimitedFrames();
    sound.erase(sound.begin(), sound.begin() + Delay);
    return sound;
}

/// Between the samples too, sixteen places to each, by a long sinc.
double FindTruePeakOf(const std::vector<float>& sound) {
    constexpr int HalfWidth = 48;
    constexpr int Places = 16;
    double peak = 0;
    for (long i = HalfWidth; i + HalfWidth < std::ssize(sound); ++i) {
        for (int place = 0; place < Places; ++place) {
            double sum = 0;
            for (long k = i - HalfWidth + 1; k <= i + HalfWidth; ++k) {
                const double x = std::numbers::pi * (static_cast<double>(i - k) + place / 16.0);
                const double weight = x == 0 ? 1 : std::sin(x) / x * (0.5 + 0.5 * std::cos(x / (HalfWidth + 1)));
                sum += weight * static_cast<double>(sound[static_cast<std::size_t>(k)]);
            }
            peak = std::max(peak, std::fabs(sum));
        }
    }
    return peak;
}

TEST(Limiter, NothingTooLoud_ComesOutBitForBit) {
    std::uint64_t limited = 0;
    const std::vector<float> sound = MakeTone(0.995, 113.7, 20'000);
    EXPECT_EQ(sound, Limit(sound, 64, &limited));
    EXPECT_EQ(0U, limited);
}

TEST(Limiter, TooLoud_StaysBelowFullScaleBetweenTheSamplesToo) {
    for (const double framesPerCycle : {480.0, 48.1, 11.3, 5.0}) {
        const std::vector<float> limited = Limit(MakeTone(2.5, framesPerCycle, 6000));
        EXPECT_LE(*std::max_element(limited.begin(), limited.end()), 1.0F);
        EXPECT_LT(FindTruePeakOf(limited), 1.03) << framesPerCycle;
        EXPECT_GT(FindTruePeakOf(limited), 0.9) << framesPerCycle;
    }
}

TEST(Limiter, PeakOnlyBetweenTheSamples_IsTurnedDown) {
    // Four samples to a cycle, none of them at its top.
    const std::vector<float> sound = MakeTone(1.3, 4, 6000, 0.125);
    EXPECT_LT(*std::max_element(sound.begin(), sound.end()), 0.93F);
    EXPECT_GT(FindTruePeakOf(sound), 1.29);
    std::uint64_t frames = 0;
    EXPECT_LT(FindTruePeakOf(Limit(sound, 64, &frames)), 1.01);
    EXPECT_GT(frames, 5000U);
}

TEST(Limiter, BurstsOfNoise_StayBelowFullScaleAndOtherBlocksAreTheSame) {
    std::mt19937 random(3);
    std::uniform_real_distribution<float> value(-4, 4);
    std::vector<float> sound(30'000);
    for (std::size_t i = 0; i < sound.size(); ++i)
        if (i % 7000 < 300) sound[i] = value(random);
    const std::vector<float> limited = Limit(sound);
    for (const float sample : limited)
        ASSERT_LE(std::fabs(sample), 1.0F);
    for (const std::uint32_t block : {1U, 17U, 256U, 4096U})
        EXPECT_EQ(limited, Limit(sound, block)) << block;
}

TEST(Limiter, AfterALoudMoment_TheRestIsLeftAloneAgain) {
    std::vector<float> sound = MakeTone(0.4, 100, 100'000);
    for (std::size_t i = 1000; i < 1200; ++i)
        sound[i] *= 5;
    const std::vector<float> limited = Limit(sound);
    EXPECT_TRUE(std::equal(sound.begin(), sound.begin() + 1000 - Delay, limited.begin()));
    EXPECT_NE(sound[1300], limited[1300]);
    // A gain of a half comes back in nine times 0.1 s.
    EXPECT_TRUE(std::equal(sound.begin() + 60'000, sound.end(), limited.begin() + 60'000));
}

TEST(LevelMeter, Sine_ReadsItsPeakAndItsRms) {
    stage::LevelMeter meter(48000);
    const std::vector<float> sound = MakeTone(0.5, 100, 96'000);
    const std::vector<float> silence(96'000);
    for (std::size_t i = 0; i < sound.size(); i += 64)
        meter.Measure(sound.data() + i, silence.data() + i, 64);
    EXPECT_NEAR(0.5, meter.Read().peak, 1e-3);
    EXPECT_NEAR(0.5 / std::numbers::sqrt2, meter.Read().rms, 2e-3);
    // A second later 20 dB less.
    for (std::size_t i = 0; i < 48'000; i += 64)
        meter.Measure(silence.data() + i, silence.data() + i, 64);
    EXPECT_NEAR(0.05, meter.Read().peak, 1e-3);
    EXPECT_LT(meter.Read().rms, 0.08F);
}

}  // namespace
