#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "kit/utf8.h"
#include "stage/live/screen_layout.h"

namespace {

using stage::LayOutScreen;
using stage::LiveStatus;
using stage::ScreenPicture;
using stage::ScreenSize;
using stage::ScreenState;
using stage::ScreenStyle;
using testing::HasSubstr;
using testing::Not;

constexpr ScreenSize Usual{24, 80};
constexpr ScreenSize Large{60, 200};

LiveStatus MakeEvening() {
    LiveStatus status;
    status.showTitle = "The Harbour";
    status.motion = LiveStatus::Motion::Playing;
    status.song = "12a";
    status.title = "The Ferry Comes In";
    status.bar = "127";
    status.beat = "3";
    status.meter = "6/8";
    status.key = "F# minor";
    status.page = "48";
    status.marker = "Verse 2";
    status.nextMarker = "Chorus";
    status.beatsPerMinute = 97.2;
    status.tempoScale = 0.9;
    status.scale = "90%";
    status.transposition = -2;
    status.vampLamp = true;
    status.status = "Caesura";
    status.statusCount = 3;
    status.loops = {{"vamp", "bars 126 to 128", 4, 0, true}, {"repeat", "bars 120 to 131", 2, 3, false}};
    status.leavesInBeats = 5;
    status.elapsedSeconds = 3725;
    status.volumes = {{"master", 0.8}, {"music", 1}, {"click", 1}, {"effects", 0.5}, {"ambience", 1}};
    status.output.isPlaying = true;
    status.output.name = "JACK";
    status.output.format = {48000, 128, 256};
    status.output.deviceOverruns = 7;
    status.output.timesLost = 1;
    status.leadFrames = 192;
    status.latePeriods = 11;
    status.midiInput = "Pedal";
    status.takeProblem = "The take is not written: the disk is full.";
    status.messages = {"JACK was lost.", "JACK plays again."};
    return status;
}

ScreenState MakeState() {
    ScreenState state;
    state.presses = {{"REFUSED go: it came 108 ms after \"go\", and presses within 250 ms are one press.", false},
                     {"go", true},
                     {"volume 80%", true}};
    return state;
}

std::string Draw(const LiveStatus& status, const ScreenState& state, const ScreenSize& size) {
    return LayOutScreen(status, state, size).AsText();
}

std::vector<std::string> LinesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

std::size_t CountBlocks(const std::string& text) {
    std::size_t count = 0;
    for (std::size_t at = text.find("█"); at != std::string::npos; at = text.find("█", at + 1))
        ++count;
    return count;
}

/// The style of the span that holds the text; a failure where none does.
ScreenStyle StyleOf(const ScreenPicture& picture, const std::string& text) {
    for (int row = 0; row < picture.GetSize().rows; ++row) {
        for (const auto& span : picture.GetRow(row))
            if (span.text.find(text) != std::string::npos) return span.style;
    }
    ADD_FAILURE() << "\"" << text << "\" is not on the screen:\n" << picture.AsText();
    return ScreenStyle::Plain;
}

class ScreenLayoutSizes : public testing::TestWithParam<ScreenSize> {};

TEST_P(ScreenLayoutSizes, Evening_EverythingIsOnTheScreen) {
    const std::string screen = Draw(MakeEvening(), MakeState(), GetParam());
    for (const char* expected : {"The Harbour",
                                 "PLAYING",
                                 "1:02:05",
                                 "12a  The Ferry Comes In",
                                 "BAR",
                                 "BEAT",
                                 "97.2 at 90%",
                                 "6/8",
                                 "F# minor, -2 semitones",
                                 "48",
                                 "Verse 2",
                                 "Chorus",
                                 "LAMP ON",
                                 "Caesura 3",
                                 "leaves in 5 beats",
                                 "vamp bars 126 to 128: pass 4, leaves at its end",
                                 "repeat bars 120 to 131: pass 2 of 3",
                                 "JACK plays",
                                 "48000 Hz",
                                 "128 frames",
                                 "latency 5.3 ms",
                                 "lead 192",
                                 "11 late blocks",
                                 "7 overruns",
                                 "lost 1 time",
                                 "master 80%",
                                 "music 100%",
                                 "Pedal",
                                 "The take is not written: the disk is full.",
                                 "REFUSED go: it came 108 ms",
                                 "JACK plays again.",
                                 "Space go on"})
        EXPECT_THAT(screen, HasSubstr(expected));
}

TEST_P(ScreenLayoutSizes, AnySize_NoLineIsLongerAndTheKeysAreInTheLast) {
    const auto lines = LinesOf(Draw(MakeEvening(), MakeState(), GetParam()));
    ASSERT_EQ(static_cast<std::size_t>(GetParam().rows), lines.size());
    for (const std::string& line : lines)
        EXPECT_LE(kit::CountColumns(line), static_cast<std::size_t>(GetParam().columns)) << line;
    EXPECT_THAT(lines.back(), HasSubstr("Space go on"));
}

INSTANTIATE_TEST_SUITE_P(UsualAndLarge, ScreenLayoutSizes, testing::Values(Usual, Large, ScreenSize{24, 120}),
                         [](const auto& tested) {
                             return std::to_string(tested.param.columns) + "x" + std::to_string(tested.param.rows);
                         });

TEST(ScreenLayout, LargerTerminal_HasLargerDigits) {
    const std::size_t usual = CountBlocks(Draw(MakeEvening(), {}, Usual));
    EXPECT_GT(usual, 50U);
    EXPECT_GE(CountBlocks(Draw(MakeEvening(), {}, {36, 120})), 4 * usual);
    EXPECT_GE(CountBlocks(Draw(MakeEvening(), {}, Large)), 9 * usual);
}

TEST(ScreenLayout, BarAndBeat_AreDrawnAsDigits) {
    LiveStatus status = MakeEvening();
    status.bar = "17";
    status.beat = "4";
    const auto lines = LinesOf(Draw(status, {}, Usual));
    EXPECT_THAT(lines[3], HasSubstr("  ██    ██████    ██  ██"));
    EXPECT_THAT(lines[5], HasSubstr("  ██        ██    ██████"));
}

TEST(ScreenLayout, BarOfFourDigitsAndBeatOfTwo_LeaveTheFactsVisible) {
    LiveStatus status = MakeEvening();
    status.bar = "1024";
    status.beat = "12";
    EXPECT_THAT(Draw(status, {}, Usual), HasSubstr("97.2 at 90%"));
}

TEST(ScreenLayout, TitleThatIsTooLong_IsCutAtTheColumns) {
    LiveStatus status = MakeEvening();
    for (int i = 0; i < 60; ++i) {
        status.title += "漢字";  // two columns each
        status.showTitle += " étude";
    }
    const auto lines = LinesOf(Draw(status, {}, Usual));
    EXPECT_LE(kit::CountColumns(lines[1]), 80U);
    EXPECT_GE(kit::CountColumns(lines[1]), 77U);
    EXPECT_TRUE(kit::IsUtf8(lines[1]));
    EXPECT_THAT(lines[1], testing::EndsWith("…"));
    EXPECT_THAT(lines[0], HasSubstr("PLAYING   1:02:05"));
}

TEST(ScreenLayout, TitleWithControlCharacters_DoesNotReachTheTerminal) {
    LiveStatus status = MakeEvening();
    status.title = "A\033[2Jb\nc";
    EXPECT_THAT(Draw(status, {}, Usual), HasSubstr("A [2Jb c"));
}

TEST(ScreenLayout, TerminalWithoutUtf8_GetsAsciiOnly) {
    LiveStatus status = MakeEvening();
    status.title = "Été";
    const std::string screen = Draw(status, MakeState(), {24, 80, false});
    for (const char character : screen)
        ASSERT_LT(static_cast<unsigned char>(character), 0x80) << screen;
    EXPECT_THAT(screen, HasSubstr("?t?"));
    EXPECT_THAT(screen, HasSubstr("######"));
}

TEST(ScreenLayout, RefusedPress_StandsOutInWordsAndStyle) {
    const ScreenPicture picture = LayOutScreen(MakeEvening(), MakeState(), Usual);
    EXPECT_EQ(ScreenStyle::Alarm, StyleOf(picture, "REFUSED go"));
    EXPECT_THAT(picture.AsText(), HasSubstr("one\n press."));
}

TEST(ScreenLayout, RefusalAsNotice_IsBelowTheDigits) {
    ScreenState state;
    state.notice = "REFUSED go: it came too soon.";
    state.isRefusal = true;
    EXPECT_THAT(LinesOf(Draw(MakeEvening(), state, Usual))[8], HasSubstr("REFUSED go: it came too soon."));
}

TEST(ScreenLayout, OneBeatLeft_IsSaidInTheSingular) {
    LiveStatus status = MakeEvening();
    status.leavesInBeats = 1;
    const ScreenPicture picture = LayOutScreen(status, {}, Usual);
    EXPECT_EQ(ScreenStyle::Warning, StyleOf(picture, "leaves in 1 beat"));
    EXPECT_THAT(picture.AsText(), Not(HasSubstr("1 beats")));
}

TEST(ScreenLayout, LargeScreenWithAnArmedExit_CountsTheBeatsInBigDigits) {
    LiveStatus status = MakeEvening();
    EXPECT_THAT(Draw(status, {}, Large), HasSubstr("LEAVES IN"));
    status.leavesInBeats.reset();
    EXPECT_THAT(Draw(status, {}, Large), Not(HasSubstr("LEAVES IN")));
}

TEST(ScreenLayout, MoreLoopsThanRows_AreCounted) {
    LiveStatus status = MakeEvening();
    status.loops.assign(5, {"repeat", "bars 1 to 2", 1, 2, false});
    EXPECT_THAT(Draw(status, {}, Usual), HasSubstr("and 3 more loops"));
}

TEST(ScreenLayout, LostOutput_SaysWhy) {
    LiveStatus status = MakeEvening();
    status.output.isPlaying = false;
    status.output.problem = "The JACK server has ended.";
    const ScreenPicture picture = LayOutScreen(status, {}, Usual);
    EXPECT_EQ(ScreenStyle::Alarm, StyleOf(picture, "LOST: The JACK server has ended."));
}

TEST(ScreenLayout, ListOfSixtySongs_ShowsTheChosenOne) {
    ScreenState state;
    for (int i = 1; i <= 60; ++i)
        state.songs.push_back({std::to_string(i), "Title " + std::to_string(i)});
    state.mode = ScreenState::Mode::Songs;
    for (const std::size_t chosen : {0U, 30U, 59U}) {
        state.chosen = chosen;
        EXPECT_THAT(Draw(MakeEvening(), state, Usual),
                    HasSubstr(">   " + std::string(chosen < 9 ? " " : "") + state.songs[chosen].number + "  Title"));
    }
}

TEST(ScreenLayout, AllKeys_HaveRoomBelowThePlaceAndWhatIsArmed) {
    ScreenState state;
    state.mode = ScreenState::Mode::Keys;
    const std::string screen = Draw(MakeEvening(), state, Usual);
    for (const char* expected :
         {"Space", "Enter", "Esc", "Left Right", "Up Down", "[ ]", "save the edits", "quit; asks", "leaves in 5 beats"})
        EXPECT_THAT(screen, HasSubstr(expected));
    EXPECT_EQ(CountBlocks(Draw(MakeEvening(), {}, Usual)), CountBlocks(screen)) << "the digits are covered";
}

TEST(ScreenLayout, SmallTerminal_KeepsWhatMattersMost) {
    const std::string screen = Draw(MakeEvening(), MakeState(), {12, 50});
    for (const char* expected : {"PLAYING", "12a", "Bar 127  beat 3", "Caesura 3", "leaves in 5"})
        EXPECT_THAT(screen, HasSubstr(expected));
}

TEST(ScreenLayout, EverySize_DrawsNothingOutsideOfIt) {
    for (int rows = 1; rows <= 70; ++rows) {
        for (const int columns : {1, 2, 20, 59, 60, 79, 80, 81, 119, 120, 140, 170, 250}) {
            for (const auto mode : {ScreenState::Mode::Show, ScreenState::Mode::Keys, ScreenState::Mode::Songs}) {
                ScreenState state = MakeState();
                state.mode = mode;
                state.songs.assign(7, {"1", "One"});
                const auto lines = LinesOf(Draw(MakeEvening(), state, {rows, columns}));
                ASSERT_EQ(static_cast<std::size_t>(rows), lines.size());
                for (const std::string& line : lines)
                    ASSERT_LE(kit::CountColumns(line), static_cast<std::size_t>(columns)) << rows << "x" << columns;
            }
        }
    }
}

TEST(WrapColumns, LongLine_IsBrokenAtBlanksAndInsideLongWords) {
    EXPECT_EQ((std::vector<std::string>{"one two", "three"}), stage::WrapColumns("one two three", 8));
    EXPECT_EQ((std::vector<std::string>{"one two", "three"}), stage::WrapColumns("one two three", 7));
    EXPECT_EQ((std::vector<std::string>{"abcd", "ef"}), stage::WrapColumns("abcdef", 4));
    EXPECT_EQ((std::vector<std::string>{""}), stage::WrapColumns("", 4));
}

}  // namespace
