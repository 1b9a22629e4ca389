// The generator is private to its library: its header is reached by path.
#include "tavo_midi/time_code_generator.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using namespace tavo_midi;

/// The messages up to `end`: "0 full 1:2:3:4" and "400 F1 10".
std::vector<std::string> Collect(TimeCodeGenerator& generator, std::int64_t from, std::int64_t end) {
    std::vector<std::string> lines;
    TimeCodeMessage message;
    while (generator.Next(from, end, message)) {
        const auto& bytes = message.bytes;
        lines.push_back(message.size == 2 ? fmt::format("{} F1 {:02X}", message.at, bytes[1])
                                          : fmt::format("{} full {}:{}:{}:{}", message.at, bytes[5] & 0x1F, bytes[6],
                                                        bytes[7], bytes[8]));
    }
    return lines;
}

using Lines = std::vector<std::string>;

TEST(TimeCodeGenerator, StartedOnAPair_AFullFrameAndQuarterFramesFromThereOn) {
    TimeCodeGenerator generator(48000);
    generator.Post({1000, FrameRate::Fps25, 0, true});
    EXPECT_EQ(generator.GetNextAt(), 1000);
    EXPECT_EQ(Collect(generator, 0, 1000), Lines{});
    EXPECT_EQ(Collect(generator, 1000, 1000 + 8 * 480 + 1),
              (Lines{"1000 full 0:0:0:0", "1000 F1 00", "1480 F1 10", "1960 F1 20", "2440 F1 30", "2920 F1 40",
                     "3400 F1 50", "3880 F1 60", "4360 F1 72", "4840 F1 02"}));
}

TEST(TimeCodeGenerator, StartedInsideOfAPair_TheQuarterFramesWaitForTheNext) {
    TimeCodeGenerator generator(48000);
    generator.Post({0, FrameRate::Fps25, 10'000'000, true});
    EXPECT_EQ(Collect(generator, 0, 3361), (Lines{"0 full 0:0:0:0", "3360 F1 02"}));
}

TEST(TimeCodeGenerator, StoppedAndLocated_OneFullFrameEach) {
    TimeCodeGenerator generator(48000);
    generator.Post({0, FrameRate::Fps24, 0, true});
    Collect(generator, 0, 100);
    generator.Post({100, FrameRate::Fps24, 3'600'000'000'000, false});
    generator.Post({200, FrameRate::Fps24, 5'000'000'000, false});
    EXPECT_EQ(Collect(generator, 100, 1'000'000), (Lines{"100 full 1:0:0:0", "200 full 0:0:5:0"}));
    EXPECT_EQ(generator.GetNextAt(), TimeCodeGenerator::Never);
}

TEST(TimeCodeGenerator, OrderForAnEarlierMoment_TakesBackTheLaterOnes) {
    TimeCodeGenerator generator(48000);
    generator.Post({0, FrameRate::Fps25, 0, false});
    generator.Post({5000, FrameRate::Fps25, 1'000'000'000, true});
    generator.Post({4000, FrameRate::Fps25, 2'000'000'000, false});
    EXPECT_EQ(Collect(generator, 0, 100'000), (Lines{"0 full 0:0:0:0", "4000 full 0:0:2:0"}));
}

TEST(TimeCodeGenerator, OrdersAreDue_CountedUntilTheirFullFramesAreGivenOut) {
    TimeCodeGenerator generator(48000);
    EXPECT_EQ(generator.CountDue(1'000'000), 0U);
    generator.Post({300, FrameRate::Fps25, 0, true});
    generator.Post({400, FrameRate::Fps25, 0, false});
    EXPECT_EQ(generator.CountDue(299), 0U);
    EXPECT_EQ(generator.CountDue(300), 1U);
    EXPECT_EQ(generator.CountDue(1000), 2U);
    Collect(generator, 256, 384);
    EXPECT_EQ(generator.CountDue(1000), 1U);
    Collect(generator, 384, 512);
    EXPECT_EQ(generator.CountDue(1000), 0U);
}

TEST(TimeCodeGenerator, HeldUpForLong_AFullFrameMakesUpForWhatIsLeftOut) {
    TimeCodeGenerator generator(48000);
    generator.Post({0, FrameRate::Fps25, 0, true});
    Collect(generator, 0, 1);
    EXPECT_EQ(Collect(generator, 48000, 48001), (Lines{"48000 full 0:0:1:0"}));
    // The next pair begins at frame 26.
    EXPECT_EQ(generator.GetNextAt(), 48000 + 1920);
}

TEST(TimeCodeGenerator, ADayAndMore_NoQuarterFrameIsOffItsSample) {
    for (const FrameRate rate : {FrameRate::Fps24, FrameRate::Fps25, FrameRate::Fps2997Drop, FrameRate::Fps30}) {
        const FrameRateFraction fraction = GetFrameRateFraction(rate);
        TimeCodeGenerator generator(44100);
        // A second before midnight, for twice as long.
        const std::int64_t startNs = ConvertFramesToNanoseconds(GetFramesPerDay(rate) - 30, rate);
        generator.Post({0, rate, startNs, true});
        TimeCodeMessage message;
        ASSERT_TRUE(generator.Next(0, 1, message));
        std::int64_t first = TimeCodeGenerator::Never;
        for (std::int64_t quarter = 0; generator.Next(message.at, 88200, message); ++quarter) {
            if (quarter == 0) first = message.at;
            const double due = static_cast<double>(quarter * fraction.denominator * 44100) /
                               (4.0 * static_cast<double>(fraction.numerator));
            ASSERT_NEAR(static_cast<double>(message.at - first), due, 1.0) << quarter;
        }
    }
}

}  // namespace
