// The reverb of the output groups: what comes back, where it goes, and when it ends. A bar lasts two seconds.

#include "stage/engine/reverb.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "tests/support/quartet.h"
#include "tests/support/sound_files.h"

using test_support::Grouped;
using test_support::LargestDifference;
using test_support::Peak;
using test_support::PlayQuartet;
using test_support::QuartetBarFrames;

namespace {

using Pair = std::pair<std::vector<float>, std::vector<float>>;

/// What comes back of a sound on the left and silence after it, in calls of this many frames.
Pair Reverberate(stage::Reverb& reverb, const std::vector<float>& sent, std::size_t frames, std::uint32_t atOnce) {
    Pair sound{sent, {}};
    sound.first.resize(frames);
    sound.second.resize(frames);
    for (std::size_t at = 0; at < frames; at += atOnce) {
        const auto length = static_cast<std::uint32_t>(std::min<std::size_t>(atOnce, frames - at));
        reverb.Process(sound.first.data() + at, sound.second.data() + at, length);
    }
    return sound;
}

double EnergyOf(const std::vector<float>& sound, std::size_t from, std::size_t to) {
    double energy = 0;
    for (std::size_t i = from; i < std::min(to, sound.size()); ++i)
        energy += double{sound[i]} * double{sound[i]};
    return energy;
}

TEST(Reverb, InOtherBlocksAndInASecondRoom_IsTheSame) {
    stage::Reverb first({}, 48000);
    stage::Reverb second({}, 48000);
    const std::vector<float> noise = test_support::MakeNoise(20'000);
    const Pair whole = Reverberate(first, noise, 96'000, 96'000);
    const Pair blocks = Reverberate(second, noise, 96'000, 37);
    EXPECT_GT(Peak(whole.first, 48'000), 1e-4F);
    EXPECT_EQ(whole, blocks);
    // Cleared, it is as it was at first.
    first.Clear();
    EXPECT_EQ(whole, Reverberate(first, noise, 96'000, 64));
}

TEST(Reverb, Pulse_ComesBackOnBothSidesAndNotAtOnce) {
    for (const std::uint32_t rate : {44100U, 48000U, 96000U}) {
        stage::Reverb reverb({}, rate);
        const Pair sound = Reverberate(reverb, {1.0F}, rate, 64);
        // The shortest way is that of the shortest all-pass, 5.1 ms.
        EXPECT_LT(Peak(sound.first, 0, rate / 200), 1e-6F) << rate;
        EXPECT_GT(Peak(sound.first, rate / 200, rate / 100), 1e-3F) << rate;
        EXPECT_GT(Peak(sound.second, rate / 200, rate / 50), 1e-3F) << rate;
        EXPECT_NE(sound.first, sound.second);
    }
}

TEST(Reverb, RoomSizeAndDamping_MakeItLongerAndDuller) {
    const auto tail = [](double roomSize, double damping) {
        stage::Reverb reverb({roomSize, damping}, 48000);
        const std::vector<float> sound = Reverberate(reverb, {1.0F}, 96'000, 64).first;
        double steps = 0;
        for (std::size_t i = 24'001; i < sound.size(); ++i)
            steps += double{sound[i] - sound[i - 1]} * double{sound[i] - sound[i - 1]};
        return std::pair(EnergyOf(sound, 24'000, 96'000), steps / EnergyOf(sound, 24'000, 96'000));
    };
    EXPECT_GT(tail(0.9, 0.5).first, 10 * tail(0.3, 0.5).first);
    EXPECT_GT(tail(0.5, 0.0).second, 2 * tail(0.5, 1.0).second);
}

TEST(Reverb, LargestRoom_ComesToRestAndStartsAgainAsAtFirst) {
    stage::Reverb reverb({1.0, 0.0}, 48000);
    EXPECT_FALSE(reverb.IsRinging());
    const Pair first = Reverberate(reverb, {1.0F}, 480, 64);
    EXPECT_TRUE(reverb.IsRinging());
    int seconds = 0;
    for (; reverb.IsRinging() && seconds < 60; ++seconds)
        static_cast<void>(Reverberate(reverb, {}, 48'000, 4096));
    EXPECT_GT(seconds, 5);
    EXPECT_LT(seconds, 30);
    EXPECT_EQ(first, Reverberate(reverb, {1.0F}, 480, 64));
}

std::string ReverbGroups(const char* reverbDb, const char* more = "") {
    return fmt::format(R"({{"groups": [{{"name": "band", "channels": [1, 2], "reverbDb": {}{}}},
                                       {{"name": "singers", "channels": [3]}}]}})",
                       reverbDb, more);
}

TEST(GroupReverb, SentOff_IsTheMixWithoutAReverbToTheSample) {
    EXPECT_EQ(PlayQuartet({0, 1, 2, 3}, ReverbGroups("\"off\"")).main,
              PlayQuartet({0, 1, 2, 3},
                          R"({"reverb": {"roomSize": 1}, "groups": [{"name": "band", "channels": [1, 2]},
                              {"name": "singers", "channels": [3]}]})")
                  .main);
}

TEST(GroupReverb, SendLevel_IsThatOfWhatComesBack) {
    const std::vector<float> dry = PlayQuartet({0, 2}, ReverbGroups("\"off\"")).main;
    const auto findWet = [&](const char* reverbDb) {
        std::vector<float> wet = PlayQuartet({0, 2}, ReverbGroups(reverbDb)).main;
        for (std::size_t i = 0; i < dry.size(); ++i)
            wet[i] -= dry[i];
        return wet;
    };
    const std::vector<float> loud = findWet("0");
    std::vector<float> soft = findWet("-20");
    const double ratio = EnergyOf(loud, 0, 2 * QuartetBarFrames) / EnergyOf(dry, 0, 2 * QuartetBarFrames);
    RecordProperty("ReturnAtNoughtDb", fmt::format("{:.1f} dB", 10 * std::log10(ratio)));
    EXPECT_GT(Peak(loud), 0.005F);
    for (float& sample : soft)
        sample *= 10;
    EXPECT_LT(LargestDifference(loud, soft), 5e-6F);
}

TEST(GroupReverb, OfAGroupWithItsOwnPair_ComesBackInTheMainOne) {
    const Grouped dry = PlayQuartet({0}, ReverbGroups("\"off\"", R"(, "output": "own")"));
    const Grouped wet = PlayQuartet({0}, ReverbGroups("0", R"(, "output": "own")"));
    ASSERT_EQ(0.0F, Peak(dry.main));
    EXPECT_GT(Peak(wet.main), 0.005F);
    const std::vector<float>& own = wet.own.at(0);
    EXPECT_TRUE(std::equal(dry.own.at(0).begin(), dry.own.at(0).end(), own.begin()));
}

TEST(GroupReverb, MutedWhileItSounds_RingsOutAndIsFedNoMore) {
    const std::vector<float> muted = PlayQuartet({0}, ReverbGroups("0"), "at 1:3 mute band").main;
    const std::size_t at = QuartetBarFrames / 2 + 4096;
    EXPECT_GT(Peak(muted, at + 2400, at + 4800), 1e-3F);
    EXPECT_LT(Peak(muted, 2 * QuartetBarFrames - 4800, 2 * QuartetBarFrames), 1e-5F);
    EXPECT_EQ(0.0F, Peak(PlayQuartet({0}, ReverbGroups("0"), "at 1 mute band").main, 4096));
    // The others' is not heard while one is solo.
    EXPECT_EQ(PlayQuartet({2}, ReverbGroups("\"off\"")).main,
              PlayQuartet({0, 2}, ReverbGroups("0"), "at 1 solo singers").main);
}

TEST(GroupReverb, SongIsOver_RingsOutInTheRender) {
    const std::vector<float> dry = PlayQuartet({0}, ReverbGroups("\"off\"")).main;
    const std::vector<float> wet =
        PlayQuartet({0},
                    R"({"reverb": {"roomSize": 0.9}, "groups": [{"name": "band", "channels": [1], "reverbDb": 0}]})")
            .main;
    EXPECT_GT(wet.size(), dry.size() + 48'000);
    // Down to -90 dB, not cut off.
    EXPECT_LT(Peak(wet, wet.size() - 2400), 1e-4F);
}

TEST(GroupReverb, Panic_IsSilentWithinFiveMilliseconds) {
    constexpr std::size_t PressedAt = QuartetBarFrames + 1000;
    const auto play = [&](const char* press) {
        const std::string script =
            fmt::format("at frame {} {}\nat frame {} quit", PressedAt, press, PressedAt + 48'000);
        return PlayQuartet({0, 1}, ReverbGroups("6"), script.c_str()).main;
    };
    const std::vector<float> panic = play("panic");
    const auto last = std::find_if(panic.rbegin(), panic.rend(), [](float sample) { return sample != 0; });
    const auto end = static_cast<std::size_t>(panic.rend() - last);
    EXPECT_GT(end, PressedAt);
    EXPECT_LE(end, PressedAt + 240);
    EXPECT_LT(LargestDifference(panic, play("pause"), 0, PressedAt), 1e-9F);
    // What is stopped rings out, as the notes do.
    EXPECT_GT(Peak(play("stop"), PressedAt + 4800, PressedAt + 9600), 1e-4F);
}

}  // namespace
