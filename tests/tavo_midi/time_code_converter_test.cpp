#include "tavo_midi/time_code_converter.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

tavo_midi::ShowData TwoSongs() {
    tavo_midi::ShowData show;
    TL::Timeline slow(0, 4800);
    slow.GetTempos() = {{0, 1000000}, {480, 500000}};
    show.AddSong({"1", slow, 480});
    TL::Timeline fast(0, 4800);
    fast.GetTempos() = {{0, 250000}};
    show.AddSong({"2", fast, 480});
    return show;
}

TEST(TimeCodeConverter, SecondsFollowTheSongsTemposAndTheScale) {
    const tavo_midi::ShowData show = TwoSongs();
    TimeCodeConverter converter(show);
    converter.UpdateToNewSong("1", 480);
    EXPECT_DOUBLE_EQ(0, converter.GetSeconds(0));
    EXPECT_DOUBLE_EQ(1, converter.GetSeconds(480));
    EXPECT_DOUBLE_EQ(1.5, converter.GetSeconds(960));
    EXPECT_DOUBLE_EQ(0.75, converter.GetSeconds(960, 2.0));
    converter.UpdateToNewSong("2", 480);
    EXPECT_DOUBLE_EQ(0.25, converter.GetSeconds(480));
    converter.UpdateToNewSong("2", 960);
    EXPECT_DOUBLE_EQ(0.125, converter.GetSeconds(480));
}

TEST(TimeCodeConverter, TicksComeBackFromTheirSeconds) {
    const tavo_midi::ShowData show = TwoSongs();
    TimeCodeConverter converter(show);
    converter.UpdateToNewSong("1", 480);
    for (const double scale : {1.0, 0.9, 0.5, 2.0, 1.37})
        for (unsigned int tick = 0; tick < 4800; tick += 7)
            ASSERT_EQ(tick, converter.GetTickIndex(converter.GetSeconds(tick, scale), scale)) << scale;
    EXPECT_EQ(479U, converter.GetTickIndex(0.9999));
    EXPECT_EQ(0U, converter.GetTickIndex(-3));
    EXPECT_EQ(0xFFFFFFFFU, converter.GetTickIndex(1e30));
}

TEST(TimeCodeConverter, AnUnknownSong_IsRefusedAndChangesNothing) {
    const tavo_midi::ShowData show = TwoSongs();
    TimeCodeConverter converter(show);
    converter.UpdateToNewSong("2", 480);
    EXPECT_THROW(converter.UpdateToNewSong("3", 480), std::out_of_range);
    EXPECT_DOUBLE_EQ(0.25, converter.GetSeconds(480));
}

}  // namespace
