#include "tavo_midi/time_code.h"

#include <gtest/gtest.h>

#include <array>
#include <vector>

#include "tavo_midi/frame_rate.h"

namespace {

using namespace tavo_midi;

constexpr std::array<FrameRate, 4> Rates{FrameRate::Fps24, FrameRate::Fps25, FrameRate::Fps2997Drop, FrameRate::Fps30};

TEST(FrameRates, NamesAndValues) {
    EXPECT_EQ(frameRateStrings, (std::vector<std::string>{"24", "25", "29.97 drop", "30"}));
    for (const FrameRate rate : Rates)
        EXPECT_EQ(ConvertStringToFrameRate(ConvertFrameRateToString(rate)), rate);
    EXPECT_THROW(static_cast<void>(ConvertFrameRateToString(static_cast<FrameRate>(4))), std::out_of_range);
    EXPECT_THROW(static_cast<void>(ConvertStringToFrameRate("29.97")), std::out_of_range);
}

TEST(TimeCodes, EveryFrameOfADay_HasTheAddressThatCountingGives) {
    const std::array<int, 4> framesPerSecond{24, 25, 30, 30};
    for (const FrameRate rate : Rates) {
        SCOPED_TRACE(ConvertFrameRateToString(rate));
        std::int64_t frame = 0;
        const int frames = framesPerSecond[static_cast<std::size_t>(rate)];
        for (int second = 0; second < 86400; ++second) {
            const bool drops = rate == FrameRate::Fps2997Drop && second % 60 == 0 && second / 60 % 10 != 0;
            for (int number = drops ? 2 : 0; number < frames; ++number, ++frame) {
                const TimeCode expected{second / 3600, second / 60 % 60, second % 60, number};
                ASSERT_EQ(ConvertFramesToTimeCode(frame, rate), expected) << frame;
                ASSERT_EQ(ConvertTimeCodeToFrames(expected, rate), frame);
            }
        }
        EXPECT_EQ(frame, GetFramesPerDay(rate));
        EXPECT_EQ(ConvertFramesToTimeCode(frame, rate), (TimeCode{0, 0, 0, 0}));
        EXPECT_EQ(ConvertFramesToTimeCode(-1, rate), (TimeCode{23, 59, 59, frames - 1}));
    }
}

TEST(TimeCodes, DropFrame_LosesLessThanAFrameInAnHourAndThreeInADay) {
    // An hour of 107892 frames lasts 3.6 ms less than the wall clock's, a day 86.4 ms.
    EXPECT_EQ(GetFramesPerDay(FrameRate::Fps2997Drop), 2589408);
    EXPECT_EQ(ConvertTimeCodeToFrames({1, 0, 0, 0}, FrameRate::Fps2997Drop), 107892);
    EXPECT_EQ(ConvertFramesToNanoseconds(107892, FrameRate::Fps2997Drop), 3599996400000);
    EXPECT_EQ(ConvertFramesToNanoseconds(2589408, FrameRate::Fps2997Drop), 86399913600000);
}

TEST(TimeCodes, TimesAndFrames_AgreeToTheNanosecond) {
    for (const FrameRate rate : Rates) {
        for (const std::int64_t frame : {std::int64_t{0}, std::int64_t{1}, std::int64_t{29}, std::int64_t{30},
                                         std::int64_t{1799}, std::int64_t{1800}, GetFramesPerDay(rate)}) {
            const std::int64_t ns = ConvertFramesToNanoseconds(frame, rate);
            EXPECT_EQ(ConvertNanosecondsToFrames(ns, rate), frame);
            EXPECT_EQ(ConvertNanosecondsToFrames(ns - 1, rate), frame - 1);
        }
    }
}

TEST(TimeCodes, AddressesThatAreNone_AreRefused) {
    const struct {
        TimeCode timeCode;
        FrameRate rate;
        bool isOne;
    } rows[] = {
        {{23, 59, 59, 23}, FrameRate::Fps24, true},    {{0, 0, 0, 24}, FrameRate::Fps24, false},
        {{0, 0, 0, 24}, FrameRate::Fps25, true},       {{24, 0, 0, 0}, FrameRate::Fps25, false},
        {{0, 60, 0, 0}, FrameRate::Fps30, false},      {{0, 0, 60, 0}, FrameRate::Fps30, false},
        {{0, 1, 0, 0}, FrameRate::Fps2997Drop, false}, {{0, 1, 0, 1}, FrameRate::Fps2997Drop, false},
        {{0, 1, 0, 2}, FrameRate::Fps2997Drop, true},  {{0, 10, 0, 0}, FrameRate::Fps2997Drop, true},
        {{0, 1, 1, 0}, FrameRate::Fps2997Drop, true},  {{0, 1, 0, 0}, FrameRate::Fps30, true},
        {{0, 0, 0, -1}, FrameRate::Fps30, false},
    };
    for (const auto& row : rows)
        EXPECT_EQ(IsTimeCode(row.timeCode, row.rate), row.isOne) << ConvertTimeCodeToString(row.timeCode, row.rate);
}

TEST(TimeCodes, Texts) {
    EXPECT_EQ(ConvertTimeCodeToString({1, 2, 3, 4}, FrameRate::Fps25), "01:02:03:04");
    EXPECT_EQ(ConvertTimeCodeToString({1, 2, 3, 4}, FrameRate::Fps2997Drop), "01:02:03;04");
    EXPECT_EQ(ConvertStringToTimeCode("01:02:03;04", FrameRate::Fps2997Drop), (TimeCode{1, 2, 3, 4}));
    for (const char* const text : {"", "1", "01:02:03", "01:02:03:25", "01:02:03:04 ", "01:02:03.04", "aa:02:03:04"})
        EXPECT_THROW(static_cast<void>(ConvertStringToTimeCode(text, FrameRate::Fps25)), std::out_of_range) << text;
}

TEST(TimeCodes, MessagesAsTheStandardHasThem) {
    const TimeCode timeCode{21, 59, 58, 29};
    EXPECT_EQ(MakeFullFrame(timeCode, FrameRate::Fps30),
              (std::array<unsigned char, 10>{0xF0, 0x7F, 0x7F, 0x01, 0x01, 0x75, 59, 58, 29, 0xF7}));
    const std::array<unsigned char, 8> expected{0x0D, 0x11, 0x2A, 0x33, 0x4B, 0x53, 0x65, 0x77};
    for (int piece = 0; piece < 8; ++piece)
        EXPECT_EQ(MakeQuarterFrame(timeCode, FrameRate::Fps30, piece), expected[static_cast<std::size_t>(piece)]);
}

}  // namespace
