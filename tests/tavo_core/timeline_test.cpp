#include "tavo_core/timeline.h"

#include <gtest/gtest.h>

#include "tavo_core/as_string.h"
#include "tavo_core/event_codes.h"

TEST(Timeline, Codes_AreTheTimelinesOwn) {
    EXPECT_EQ(codes::Tempo, TL::Tempo().code());
    EXPECT_EQ(codes::Meter, TL::Meter().code());
    EXPECT_EQ(codes::Key, TL::Key().code());
    EXPECT_EQ(codes::BarsBeats, TL::BarsBeats().code());
    EXPECT_EQ(codes::PageNum, TL::PageNum().code());
}

TEST(AllowedClickValues, DivideTheBarOfTheMeterEvenly) {
    struct Row {
        std::uint8_t numerator;
        std::uint8_t denominator;
        std::vector<int> values;
    };
    const std::vector<Row> rows{{4, 4, {1, 2, 4, 8, 16, 32}},
                                {6, 8, {1, 2, 3, 4, 6, 8, 12, 24}},
                                {5, 8, {1, 2, 4, 5, 10, 20}},
                                {3, 32, {1, 3}},
                                {1, 64, {}},
                                {1, 128, {}},
                                {4, 128, {1}},
                                {8, 1, {1, 2, 4, 8, 16, 32, 64, 128}},
                                {0, 4, {}},
                                {4, 0, {}}};
    for (const Row& row : rows) {
        TL::Timeline timeline;
        timeline.GetMeters().Append(TL::Meter(0, row.numerator, row.denominator));
        EXPECT_EQ(row.values, timeline.GetAllowedClickValuesAtTickIndex(0))
            << +row.numerator << '/' << +row.denominator;
    }
}

TEST(AllowedClickValues, OfTicksBeforeAtAndAfterMeters) {
    const std::vector<int> common{1, 2, 4, 8, 16, 32};
    const std::vector<int> sixEight{1, 2, 3, 4, 6, 8, 12, 24};
    TL::Timeline timeline;
    EXPECT_EQ(common, timeline.GetAllowedClickValuesAtTickIndex(0));
    timeline.GetMeters().Append(TL::Meter(100, 6, 8));
    timeline.GetMeters().Append(TL::Meter(200, 4, 4));
    EXPECT_EQ(sixEight, timeline.GetAllowedClickValuesAtTickIndex(0));
    EXPECT_EQ(sixEight, timeline.GetAllowedClickValuesAtTickIndex(199));
    EXPECT_EQ(common, timeline.GetAllowedClickValuesAtTickIndex(200));
}

TEST(AsString, BarsBeatsMetersAndPages) {
    EXPECT_EQ("12:3", as_string(TL::BarsBeats(0, 3, "12")));
    EXPECT_EQ("A1:1", as_string(TL::BarsBeats(0, 1, "A1")));
    EXPECT_EQ("6/8", as_string(TL::Meter(0, 6, 8)));
    EXPECT_EQ("255/128", as_string(TL::Meter(0, 255, 128)));
    EXPECT_EQ("17", as_string(TL::PageNum(0, 17)));
    EXPECT_EQ("4294967295", as_string(TL::PageNum(0, 0xFFFFFFFFU)));
}

TEST(AsString, KeysFromSevenFlatsToSevenSharps) {
    const char* majors[] = {"Cb", "Gb", "Db", "Ab", "Eb", "Bb", "F", "C", "G", "D", "A", "E", "B", "F#", "C#"};
    const char* minors[] = {"Ab", "Eb", "Bb", "F", "C", "G", "D", "A", "E", "B", "F#", "C#", "G#", "D#", "A#"};
    for (int sharps = -7; sharps <= 7; ++sharps) {
        EXPECT_EQ(std::string(majors[sharps + 7]) + " major", as_string(TL::Key(0, sharps, false)));
        EXPECT_EQ(std::string(minors[sharps + 7]) + " minor", as_string(TL::Key(0, sharps, true)));
    }
}

TEST(AsString, TempoInClicksOfTheMeter) {
    struct Row {
        std::uint32_t microseconds;
        std::uint8_t clocksPerClick;
        const char* text;
    };
    for (const Row& row :
         {Row{500000, 24, "120"}, Row{576923, 24, "104"}, Row{500000, 36, "80"}, Row{500000, 12, "240"},
          Row{500000, 48, "60"}, Row{500000, 0, "120"}, Row{600001, 24, "100"}, Row{452489, 24, "132.6"},
          Row{461538, 24, "130"}, Row{480100, 24, "124.97"}, Row{600000, 24, "100"}, Row{16777215, 24, "3.58"},
          Row{1, 24, "60000000"}, Row{0, 24, "60000000"}}) {
        const TL::Tempo tempo(0, row.microseconds);
        EXPECT_EQ(row.text, as_string(tempo, TL::Meter(0, 4, 4, row.clocksPerClick))) << row.microseconds;
        if (row.clocksPerClick == 24) {
            EXPECT_EQ(row.text, as_string(tempo));
        }
    }
}
