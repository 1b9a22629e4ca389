// Output groups: what is in them, what they do to the sound, and what the operator says to them. A bar lasts two
// seconds, 96000 frames.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>

#include "stage/control/command_desk.h"
#include "stage/engine/group_plan.h"
#include "stage/import/text_song.h"
#include "tavo_midi/song_builder.h"
#include "tests/support/quartet.h"

using test_support::TestShow;

namespace {

constexpr std::size_t GroupBarFrames = test_support::QuartetBarFrames;
using test_support::Channels;
using test_support::Grouped;
using test_support::LargestDifference;
using test_support::Peak;
using test_support::Rounding;

Grouped Play(const Channels& channels, const std::string& settings, const char* script = "") {
    return test_support::PlayQuartet(channels, settings, script);
}

float LargestStep(const std::vector<float>& sound, std::size_t from, std::size_t to) {
    float largest = 0;
    for (std::size_t i = from + 1; i < to; ++i)
        largest = std::max(largest, std::fabs(sound[i] - sound[i - 1]));
    return largest;
}

constexpr const char* TwoGroups =
    R"({"groups": [{"name": "band", "channels": [1, 2]}, {"name": "singers", "channels": [3]}]})";

TEST(OutputGroups, AllToMain_SumIsTheMixWithoutGroups) {
    const Grouped plain = Play({0, 1, 2, 3}, "{}");
    const Grouped grouped = Play({0, 1, 2, 3}, TwoGroups);
    ASSERT_EQ(plain.main.size(), grouped.main.size());
    EXPECT_GT(Peak(plain.main), 0.02F);
    EXPECT_LT(LargestDifference(plain.main, grouped.main), Rounding);
}

TEST(OutputGroups, WithPairsOfTheirOwn_TheyAndMainAreTheMixWithoutGroups) {
    const Grouped plain = Play({0, 1, 2, 3}, "{}", "at 1 volume 50%\nat 2 fade 1");
    const Grouped grouped = Play({0, 1, 2, 3},
                                 R"({"groups": [{"name": "band", "channels": [1, 2], "output": "own"},
                                     {"name": "rest", "channels": [4]},
                                     {"name": "singers", "channels": [3], "output": "own"}]})",
                                 "at 1 volume 50%\nat 2 fade 1");
    ASSERT_EQ(2U, grouped.own.size());
    std::vector<float> sum = grouped.main;
    for (const auto& [output, sound] : grouped.own) {
        ASSERT_EQ(sum.size(), sound.size());
        std::transform(sum.begin(), sum.end(), sound.begin(), sum.begin(), std::plus<>());
    }
    EXPECT_LT(LargestDifference(plain.main, sum), Rounding);
    const Grouped singers = Play({2}, "{}", "at 1 volume 50%\nat 2 fade 1");
    EXPECT_LT(LargestDifference(singers.main, grouped.own.at(1)), Rounding);
    EXPECT_GT(Peak(grouped.own.at(1)), 0.005F);
}

TEST(OutputGroups, MutedInTheSettings_SoundsAsIfItsChannelsWereNotThere) {
    const Grouped muted = Play({0, 1, 2, 3}, R"({"groups": [{"name": "band", "channels": [1, 2], "mute": true}]})");
    const Grouped without = Play({2, 3}, "{}");
    EXPECT_LT(LargestDifference(without.main, muted.main), Rounding);
}

TEST(OutputGroups, VolumeAndTrim_AreFactors) {
    const Grouped loud = Play({1}, TwoGroups);
    const Grouped soft = Play({1}, TwoGroups, "at 1 volume 50% band");
    const Grouped trimmed = Play({1}, R"({"groups": [{"name": "band", "channels": [2], "trimDb": 6}]})");
    const Grouped settings = Play({1}, R"({"groups": [{"name": "band", "channels": [2], "volume": 0.25}]})");
    EXPECT_NEAR(0.5, Peak(soft.main) / Peak(loud.main), 1e-5);
    EXPECT_NEAR(std::pow(10, 0.3), Peak(trimmed.main) / Peak(loud.main), 1e-4);
    EXPECT_NEAR(0.25, Peak(settings.main) / Peak(loud.main), 1e-5);
}

TEST(OutputGroups, MutedAndUnmutedWhileItSounds_IsSilentInBetweenAndDoesNotClick) {
    const Grouped plain = Play({0}, "{}");
    const Grouped muted = Play({0}, TwoGroups, "at 1:3 mute band\nat 2:1 unmute band");
    EXPECT_LT(LargestDifference(plain.main, muted.main, 0, GroupBarFrames / 2), Rounding);
    EXPECT_EQ(0.0F, Peak(muted.main, GroupBarFrames / 2 + 4096 + 480, GroupBarFrames));
    EXPECT_LT(LargestDifference(plain.main, muted.main, GroupBarFrames + 4096 + 480), Rounding);
    EXPECT_GT(Peak(muted.main, GroupBarFrames + 9600, 2 * GroupBarFrames), 0.01F);
    const float ordinary = LargestStep(plain.main, 0, plain.main.size());
    EXPECT_LT(LargestStep(muted.main, 0, muted.main.size()), 1.2F * ordinary);
}

TEST(OutputGroups, OneIsSolo_NothingElseOfTheMusicSounds) {
    const Grouped solo = Play({0, 2, 3}, TwoGroups, "at 1 solo singers\nat 2 unsolo singers");
    EXPECT_LT(LargestDifference(Play({2}, "{}").main, solo.main, 0, GroupBarFrames), Rounding);
    EXPECT_LT(LargestDifference(Play({0, 2, 3}, "{}").main, solo.main, GroupBarFrames + 9600), Rounding);
}

TEST(OutputGroups, SoloAndMutedAtOnce_IsSilent) {
    EXPECT_EQ(0.0F, Peak(Play({0, 2, 3}, TwoGroups, "at 1 solo band\nat 1 mute band").main, 4096));
}

TEST(OutputGroups, SilencedWhileItSounds_FadesAwayInEveryGroup) {
    const char* script = "at 2 pause\n+0.1s panic\n+0.5s quit";
    const Grouped plain = Play({0, 1, 2}, "{}", script);
    const Grouped grouped = Play({0, 1, 2}, TwoGroups, script);
    EXPECT_LT(LargestDifference(plain.main, grouped.main), Rounding);
}

TEST(OutputGroups, GroupThatIsNotThere_IsRefusedWithThoseThatAre) {
    const auto refuse = [](const char* settings, const char* script) -> std::string {
        try {
            static_cast<void>(Play({0}, settings, script));
        } catch (const std::runtime_error& problem) {
            return problem.what();
        }
        return "";
    };
    EXPECT_EQ(
        "line 1 of the script (\"at 1 mute brass\"): the group must be an output group of the settings: band, singers, "
        "not "
        "\"brass\".",
        refuse(TwoGroups, "at 1 mute brass"));
    EXPECT_EQ(
        "line 1 of the script (\"at 1 volume 20% brass\"): what the volume is of must be master, music, click, "
        "effects, "
        "ambience or an output group of the settings, not \"brass\".",
        refuse("{}", "at 1 volume 20% brass"));
}

TEST(OutputGroups, InOtherBlocks_SoundsTheSame) {
    const auto play = [](std::uint32_t blockFrames) {
        TestShow show;
        test_support::AddQuartet(show, {0, 1, 2});
        show.settings = R"({"groups": [{"name": "band", "channels": [1, 2], "output": "own"}]})";
        std::pair<std::vector<float>, std::vector<float>> sound;
        stage::OfflineOptions options = show.MakeOptions("");
        options.firstSong.clear();
        options.lastSong.clear();
        options.script = stage::ParseShowScript(
            "at frame 0 load 1\nat frame 0 play\nat frame 51200 mute band\nat frame 76800 unmute band\nat frame 102400 "
            "quit\n",
            "script", show.GetShowData(), "1");
        options.take = stage::TakeSettings{48000, blockFrames, 64, "test-1.0.logdata"};
        show.sessionOptions = stage::MakeTakeSessionOptions(*options.take);
        options.groupSink = [&](std::size_t, const float* left, const float*, std::uint32_t frames) {
            sound.second.insert(sound.second.end(), left, left + frames);
        };
        sound.first = show.Perform(std::move(options)).left;
        return sound;
    };
    const auto small = play(64);
    const auto large = play(256);
    EXPECT_GT(Peak(small.second), 0.01F);
    EXPECT_EQ(small.first, large.first);
    EXPECT_EQ(small.second, large.second);
}

TEST(GroupPlan, PartsAndChannels_FirstGroupThatFitsHasTheChannel) {
    stage::Settings settings;
    settings.groups.resize(3);
    settings.groups[0].name = "strings";
    settings.groups[0].parts = {"viol*"};
    settings.groups[1].name = "rest";
    settings.groups[1].channels = {1, 16};
    settings.groups[2].name = "cello";
    settings.groups[2].parts = {"?ello"};
    tavo_midi::ShowData show;
    tavo_midi::SongData song("1", TL::Timeline(0, 1920), 480);
    song.SetEvents({{0, 0x94, 60, 90, 0}, {480, 0x84, 60, 0, 0}});
    song.SetParts({{"Violin I", {0}}, {"Viola", {1, 2}}, {"Cello", {3}}, {"Bass", {4}}});
    show.AddSong(song);
    const stage::GroupPlan plan = stage::MakeGroupPlan(settings, show);
    const std::vector<std::uint8_t>& strips = plan.stripsOfSongs.begin()->second;
    EXPECT_EQ((Channels{1, 1, 1, 3, 0}), Channels(strips.begin(), strips.begin() + 5));
    EXPECT_EQ(4U, plan.CountStrips());
}

TEST(GroupPlan, Patterns_AreReadAsTheyAreWritten) {
    const std::tuple<const char*, const char*, bool> table[] = {
        {"*", "", true},
        {"", "", true},
        {"", "a", false},
        {"*o*", "Viola", true},
        {"Reed ?", "reed 2", true},
        {"Reed ?", "Reed 12", false},
        {"*bass", "Double Bass", true},
        {"*bass", "Bassoon", false},
        {"a*b*c", "aXbYbZc", true},
        {"a*b*c", "acb", false},
        {"**", "anything", true},
    };
    for (const auto& [pattern, name, isMatch] : table)
        EXPECT_EQ(isMatch, stage::MatchesPart(pattern, name)) << pattern << " " << name;
}

TEST(SongParts, NamedTracks_AreKeptWithTheirChannels) {
    const tavo_midi::Smf smf =
        stage::ParseTextSong(
            "number 1\ntitle T\npart Violin program 41\n| c4/4 d4 e4 f4 |\npart Cello program 43\n"
            "| c4/4 d4 e4 f4 |\n",
            "text")
            .smf;
    tavo_midi::SongOptions options;
    options.number = "1";
    const tavo_midi::SongData song = tavo_midi::BuildSong(smf, options, "text");
    ASSERT_EQ(2U, song.GetParts().size());
    EXPECT_EQ("Violin", song.GetParts()[0].name);
    EXPECT_EQ("Cello", song.GetParts()[1].name);
    EXPECT_EQ(1U, song.GetParts()[0].channels.size());
    EXPECT_NE(song.GetParts()[0].channels, song.GetParts()[1].channels);
}

}  // namespace
