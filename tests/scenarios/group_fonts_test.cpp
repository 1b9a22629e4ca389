// SoundFonts of output groups: what they sound like, and what stays as it was. Instruments are those of the quartet.

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <numbers>

#include "stage/engine/sound_font.h"
#include "tests/support/quartet.h"
#include "tests/support/sound_font_file.h"

using test_support::Grouped;
using test_support::PlayQuartet;

namespace {

/// Two groups with pairs of their own, the second with this SoundFont.
std::string GroupsWithFont(const std::string& font) {
    return fmt::format(R"({{"groups": [{{"name": "band", "channels": [1, 2], "output": "own"}},
                                       {{"name": "singers", "channels": [3], "output": "own", "soundfont": "{}"}}]}})",
                       font);
}

/// The part of a sound's energy that is this tone, 0 to 1.
double ShareOfTone(const std::vector<float>& sound, double hertz, std::size_t from, std::size_t frames) {
    double cosine = 0;
    double sine = 0;
    double all = 0;
    for (std::size_t i = from; i < from + frames; ++i) {
        const double phase = 2 * std::numbers::pi * hertz * static_cast<double>(i) / 48000;
        cosine += std::cos(phase) * double{sound[i]};
        sine += std::sin(phase) * double{sound[i]};
        all += double{sound[i]} * double{sound[i]};
    }
    return 2 * (cosine * cosine + sine * sine) / (static_cast<double>(frames) * all);
}

constexpr const char* PressesAcrossASeek = "at 1 transpose 2\nat 1:3 seek 2:1\nat 2:3 seek 1:2\n";

TEST(GroupFont, CopyOfTheShows_SoundsAsTheShowsToTheSample) {
    const test_support::TemporaryDirectory directory;
    std::filesystem::copy_file(stage::FindDefaultSoundFont(), directory / "copy.sf2");
    const Grouped plain = PlayQuartet({0, 1, 2, 9}, GroupsWithFont(""), PressesAcrossASeek);
    const Grouped copied = PlayQuartet({0, 1, 2, 9}, GroupsWithFont(directory / "copy.sf2"), PressesAcrossASeek);
    EXPECT_GT(test_support::Peak(plain.own.at(1)), 0.005F);
    EXPECT_EQ(plain.main, copied.main);
    EXPECT_EQ(plain.own, copied.own);
}

TEST(GroupFont, OfItsOwn_SoundsInThatGroupAndLeavesTheOthersAsTheyWere) {
    const test_support::TemporaryDirectory directory;
    // The singers' instrument, program 18 from 0, on key 58.
    test_support::WriteSineFont(directory / "sine.sf2", {{0, 18}});
    const Grouped plain = PlayQuartet({0, 1, 2, 3}, GroupsWithFont(""));
    const Grouped sine = PlayQuartet({0, 1, 2, 3}, GroupsWithFont(directory / "sine.sf2"));
    EXPECT_EQ(plain.main, sine.main);
    EXPECT_EQ(plain.own.at(0), sine.own.at(0));
    const double hertz = 1000 * std::exp2(-2.0 / 12);
    EXPECT_GT(ShareOfTone(sine.own.at(1), hertz, 24'000, 48'000), 0.99);
    EXPECT_LT(ShareOfTone(plain.own.at(1), hertz, 24'000, 48'000), 0.1);
}

TEST(GroupFont, ThatLacksTheProgram_IsPlayedForByTheShows) {
    const test_support::TemporaryDirectory directory;
    test_support::WriteSineFont(directory / "piano.sf2", {{0, 0}});
    const Grouped plain = PlayQuartet({0, 2}, GroupsWithFont(""));
    EXPECT_EQ(plain.own, PlayQuartet({0, 2}, GroupsWithFont(directory / "piano.sf2")).own);
}

TEST(GroupFont, ShowsOwnFontThatLacksPrograms_PlaysItsFirstBesideAGroupsFontAsAlone) {
    const test_support::TemporaryDirectory directory;
    test_support::WriteSineFont(directory / "first.sf2", {{0, 0}});
    const auto play = [&](const std::string& groups) {
        return PlayQuartet({0, 2}, fmt::format(R"({{"soundfont": "{}", "groups": [{}]}})",
                                               std::string(directory / "first.sf2"), groups));
    };
    const Grouped alone = play(R"({"name": "band", "channels": [1], "output": "own"})");
    const Grouped beside = play(R"({"name": "band", "channels": [1], "output": "own"}, {"name": "rest", "channels": [5],
                                    "soundfont": ")" +
                                stage::FindDefaultSoundFont() + "\"}");
    EXPECT_GT(test_support::Peak(alone.own.at(0)), 0.005F);
    EXPECT_EQ(alone.main, beside.main);
    EXPECT_EQ(alone.own.at(0), beside.own.at(0));
}

}  // namespace
