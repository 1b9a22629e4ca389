// The click: when it sounds, how its two sounds differ, and who hears it. A bar lasts two seconds, 96000 frames.

#include <gtest/gtest.h>

#include <cmath>

#include "tests/support/show_builder.h"

using test_support::Performance;
using test_support::TestShow;

namespace {

constexpr std::size_t ClickBarFrames = 96000;
constexpr int EighthNotes = 4;  // thirty-seconds of a whole note

/// A performance and the click of it alone.
struct Clicked {
    Performance played;
    std::vector<float> click;
};

struct ClickWanted {
    const char* script = "";
    bool everywhere = false;
    bool mixes = false;
};

Clicked PerformWithClick(TestShow& show, const ClickWanted& wanted) {
    Clicked clicked;
    stage::OfflineOptions options = show.MakeOptions(wanted.script);
    options.clicksEverywhere = wanted.everywhere;
    options.mixesClick = wanted.mixes;
    options.clickSink = [&](const float* left, const float*, std::uint32_t frames) {
        clicked.click.insert(clicked.click.end(), left, left + frames);
    };
    clicked.played = show.Perform(std::move(options));
    return clicked;
}

/// "0! 24000 48000": the frames where a click begins, accents marked. The accent is the higher sound.
std::string ListClicks(const std::vector<float>& click) {
    std::string list;
    long quiet = 4800;
    for (long i = 0; i < std::ssize(click); ++i) {
        const auto at = static_cast<std::size_t>(i);
        if (click[at] == 0.0F) {
            ++quiet;
            continue;
        }
        if (quiet >= 1000) {
            int crossings = 0;
            for (std::size_t k = at; k + 1 < std::min(click.size(), at + 960); ++k)
                crossings += click[k] < 0 && click[k + 1] >= 0 ? 1 : 0;
            // A sine begins a frame before it is more than nothing.
            list += (list.empty() ? "" : " ") + std::to_string(i - 1) + (crossings > 30 ? "!" : "");
        }
        quiet = 0;
    }
    return list;
}

CL::SongLog& LogOf(TestShow& show) {
    return show.GetLog().GetSongLog("1");
}

TEST(Click, SoundsWhereOneIsEdited_AndNowhereElse) {
    TestShow show;
    show.Song("1", 3);
    LogOf(show).GetClicks().Add(CL::Click(1920, 3840, EighthNotes));
    const Clicked clicked = PerformWithClick(show, {});
    EXPECT_EQ("96000! 108000 120000 132000 144000 156000 168000 180000", ListClicks(clicked.click));
}

TEST(Click, Everywhere_SoundsOnEveryBeatWithTheBarsFirstAccented) {
    TestShow show;
    show.Song("1", 2);
    EXPECT_EQ("0! 24000 48000 72000 96000! 120000 144000 168000",
              ListClicks(PerformWithClick(show, {.everywhere = true}).click));
}

TEST(Click, WithoutAnEdit_IsSilent) {
    TestShow show;
    show.Song("1", 2);
    EXPECT_EQ("", ListClicks(PerformWithClick(show, {}).click));
}

TEST(Click, FollowsVampsCutsAndTempo) {
    TestShow show;
    show.Song("1", 5).Edits("vamp 2 2\ncut 3 3\ntempo 4 4 50");
    EXPECT_EQ(
        "0! 24000 48000 72000 96000! 120000 144000 168000 192000! 216000 240000 264000 "
        "288000! 336000 384000 432000 480000! 504000 528000 552000",
        ListClicks(PerformWithClick(show, {.script = "at 2@2 exit", .everywhere = true}).click));
}

TEST(Click, WaitsWhileAFermataHoldsAndACaesuraStops) {
    TestShow show;
    show.Song("1", 3).Edits("fermata 1:4 1\ncaesura 3");
    EXPECT_EQ("0! 24000 48000 72000 192000! 216000 240000 264000 384000! 408000 432000 456000",
              ListClicks(PerformWithClick(show, {.script = "at 2 tempo 100%\n+2s exit\nat 3 tempo 100%\n+2s continue",
                                                 .everywhere = true})
                             .click));
}

TEST(Click, IsNotInTheHouseUnlessItIsAskedFor) {
    TestShow show;
    show.Song("1", 2);
    const Performance plain = show.Perform("");
    const Clicked apart = PerformWithClick(show, {.everywhere = true});
    const Clicked mixed = PerformWithClick(show, {.everywhere = true, .mixes = true});
    EXPECT_EQ(plain.left, apart.played.left);
    EXPECT_EQ(plain.messages, apart.played.messages);
    ASSERT_EQ(plain.left.size(), mixed.played.left.size());
    for (std::size_t i = 0; i < plain.left.size(); ++i)
        ASSERT_EQ(plain.left[i] + mixed.click[i], mixed.played.left[i]) << i;
    EXPECT_EQ(apart.click, mixed.click);
}

TEST(Click, IsTheSameInEveryRun) {
    TestShow show;
    show.Song("1", 2).Edits("repeat 1 1 3");
    EXPECT_EQ(PerformWithClick(show, {.everywhere = true}).click, PerformWithClick(show, {.everywhere = true}).click);
}

TEST(Click, HasAVolumeOfItsOwnAndTheMasters) {
    TestShow show;
    show.Song("1", 1);
    const auto peak = [&show](const char* settings) {
        show.settings = settings;
        const Clicked clicked = PerformWithClick(show, {.everywhere = true});
        return *std::max_element(clicked.click.begin(), clicked.click.end());
    };
    const float full = peak("{}");
    EXPECT_GT(full, 0.3F);
    EXPECT_FLOAT_EQ(full / 2, peak(R"({"volumes": {"click": 0.5}})"));
    EXPECT_FLOAT_EQ(full / 4, peak(R"({"volumes": {"click": 0.5, "master": 0.5}})"));
    EXPECT_FLOAT_EQ(full, peak(R"({"volumes": {"synth": 0.5}})"));
}

// The click of the bar in which it is turned down fades away within 10 ms, too soon to be told from a plain one.
TEST(Click, TurnedDownWhileItSounds_IsSilentFromThereOn) {
    TestShow show;
    show.Song("1", 3);
    EXPECT_EQ("0! 24000 48000 72000 96000",
              ListClicks(PerformWithClick(show, {.script = "at 2 volume 0% click", .everywhere = true}).click));
}

TEST(Click, OfAPanic_IsCutOff) {
    TestShow show;
    show.Song("1", 2);
    const Clicked clicked = PerformWithClick(show, {.script = "at frame 96240 panic", .everywhere = true});
    EXPECT_NE(0.0F, clicked.click.at(ClickBarFrames + 220));
    for (std::size_t i = ClickBarFrames + 240 + 192; i < clicked.click.size(); ++i)
        ASSERT_EQ(0.0F, clicked.click[i]) << i;
}

TEST(Click, InMainBySettings_IsInTheHouseAsWithTheOption) {
    TestShow show;
    show.Song("1", 2);
    const Clicked mixed = PerformWithClick(show, {.everywhere = true, .mixes = true});
    show.settings = R"({"clickInMain": true})";
    const Clicked bySettings = PerformWithClick(show, {.everywhere = true});
    EXPECT_EQ(mixed.played.left, bySettings.played.left);
    EXPECT_EQ(mixed.click, bySettings.click);
}

/// The frame at which the first note is played.
std::int64_t FindFirstNote(const Performance& played) {
    const auto note = std::find_if(played.messages.begin(), played.messages.end(),
                                   [](const stage::SynthMessage& message) { return message.status == 0x90; });
    return note == played.messages.end() ? -1 : note->frame;
}

TEST(CountIn, OfABar_IsHeardBeforeTheSongBegins) {
    TestShow show;
    show.Song("1", 2);
    show.settings = R"({"countIn": 4})";
    const Clicked clicked = PerformWithClick(show, {});
    EXPECT_EQ("0! 24000 48000 72000", ListClicks(clicked.click));
    EXPECT_EQ(96000, FindFirstNote(clicked.played));
    EXPECT_EQ("0.000 count-in 4\n0.500 count-in 3\n1.000 count-in 2\n1.500 count-in 1\n",
              clicked.played.Only({"count-in"}));
}

TEST(CountIn, OfTwoBeats_IsTheBarsLast) {
    TestShow show;
    show.Song("1", 2);
    show.settings = R"({"countIn": 2})";
    const Clicked clicked = PerformWithClick(show, {});
    EXPECT_EQ("0 24000", ListClicks(clicked.click));
    EXPECT_EQ(48000, FindFirstNote(clicked.played));
}

TEST(CountIn, IsInTheTempoOfThePlace) {
    TestShow show;
    show.Song("1", 3).Edits("tempo 1 1 50");
    const Clicked clicked =
        PerformWithClick(show, {.script = "at frame 0 tempo 200%\n+0s stop\n+0s count-in 4\n+0s play"});
    EXPECT_EQ("0! 24000 48000 72000", ListClicks(clicked.click));
    const Clicked slow = PerformWithClick(show, {.script = "+0s stop\n+0s count-in 1\n+0s play"});
    EXPECT_EQ("0", ListClicks(slow.click));
    EXPECT_EQ(48000, FindFirstNote(slow.played));
}

TEST(CountIn, AfterASeek_LeadsToThePlaceAndItsBar) {
    TestShow show;
    show.Song("1", 4);
    const Clicked clicked =
        PerformWithClick(show, {.script = "+0s stop\n+0s seek 3:2\n+0s count-in 5\n+0s play", .everywhere = true});
    EXPECT_TRUE(ListClicks(clicked.click).starts_with("0! 24000 48000 72000 96000! 120000 144000 168000 192000!"))
        << ListClicks(clicked.click);
    EXPECT_EQ(120000, FindFirstNote(clicked.played));
}

// 6000 frames after the second beat: the third comes a beat after the last that is counted.
TEST(CountIn, AfterAPauseInsideABeat_CountsTheBeatsOn) {
    TestShow show;
    show.Song("1", 2);
    const Clicked clicked = PerformWithClick(
        show, {.script = "at frame 30000 pause\nat frame 78000 count-in 3\n+0s play", .everywhere = true});
    EXPECT_EQ("0! 24000 78000 102000! 126000 150000 174000 198000! 222000 246000 270000", ListClicks(clicked.click));
}

TEST(CountIn, GoInIt_BeginsAtOnce) {
    TestShow show;
    show.Song("1", 2).Edits("vamp 1 1");
    show.settings = R"({"countIn": 4})";
    const Clicked clicked = PerformWithClick(show, {.script = "at frame 30000 go\nat 1@2 exit"});
    EXPECT_EQ("0! 24000", ListClicks(clicked.click));
    EXPECT_EQ(30000, FindFirstNote(clicked.played));
    // The press was not one that leaves the vamp.
    EXPECT_EQ((std::vector<int>{1, 1, 2}), clicked.played.Bars());
}

class CountInEnded : public testing::TestWithParam<const char*> {};

TEST_P(CountInEnded, BeginsAnewWithTheNextStart) {
    TestShow show;
    show.Song("1", 2);
    show.settings = R"({"countIn": 4})";
    const std::string script = std::string("at frame 30000 ") + GetParam() + "\n+1s play";
    const Clicked clicked = PerformWithClick(show, {.script = script.c_str()});
    EXPECT_EQ("0! 24000 78000! 102000 126000 150000", ListClicks(clicked.click));
    EXPECT_EQ(174000, FindFirstNote(clicked.played));
}

INSTANTIATE_TEST_SUITE_P(Presses, CountInEnded, testing::Values("stop", "pause", "panic", "load 1"));

TEST(CountIn, FromACaesura_IsNotMade) {
    TestShow show;
    show.Song("1", 3).Edits("caesura 2");
    show.settings = R"({"countIn": 2})";
    const Clicked clicked = PerformWithClick(show, {.script = "at 1:4 tempo 100%\n+4s continue"});
    EXPECT_EQ("0 24000", ListClicks(clicked.click));
}

TEST(CountIn, OfAnAttacca_IsNotMade) {
    TestShow show;
    show.Song("1", 1).Edits("attacca").Song("2", 1);
    show.settings = R"({"countIn": 1})";
    EXPECT_EQ("0", ListClicks(PerformWithClick(show, {}).click));
}

/// Each volume in the settings: at 0 there is silence, from the first frame on.
class VolumeOfZero : public testing::TestWithParam<const char*> {};

TEST_P(VolumeOfZero, IsSilenceFromTheFirstFrame) {
    TestShow show;
    show.Song("1", 1);
    show.settings = std::string(R"({"volumes": {")") + GetParam() + R"(": 0}})";
    const Clicked clicked = PerformWithClick(show, {.everywhere = true});
    const bool isOfClick = GetParam() == std::string("click");
    const std::vector<float>& silent = isOfClick ? clicked.click : clicked.played.left;
    EXPECT_TRUE(std::all_of(silent.begin(), silent.end(), [](float value) { return value == 0.0F; }));
    EXPECT_FALSE(silent.empty());
    const std::vector<float>& heard = isOfClick ? clicked.played.left : clicked.click;
    const bool isSilent = std::all_of(heard.begin(), heard.end(), [](float value) { return value == 0.0F; });
    EXPECT_EQ(GetParam() == std::string("master"), isSilent);
}

INSTANTIATE_TEST_SUITE_P(Volumes, VolumeOfZero, testing::Values("master", "synth", "click"));

}  // namespace
