#include "player_core/tavo_ext.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

namespace {

/// Songs in the order given; a '-' behind a number marks a song that is passed over.
CL::ChangeLog MakeShow(const std::vector<std::string>& songs) {
    CL::ChangeLog show;
    for (std::string song : songs) {
        const bool passedOver = song.ends_with('-');
        if (passedOver) song.pop_back();
        show.GetSongLogs()[song].SetAttacca(passedOver ? CL::AttaccaSkip : CL::AttaccaNormal);
    }
    return show;
}

std::string SongAfter(const std::vector<std::string>& songs, const std::string& song) {
    try {
        return tavo_ext::get_song_after(MakeShow(songs), song);
    } catch (const tavo_ext::EndOfShow& end) {
        return end.what();
    }
}

std::string SongBefore(const std::vector<std::string>& songs, const std::string& song) {
    try {
        return tavo_ext::get_song_before(MakeShow(songs), song);
    } catch (const tavo_ext::StartOfShow& start) {
        return start.what();
    }
}

CL::SongLog MakeSongWithMarkers(const std::vector<unsigned int>& ticks) {
    CL::SongLog songLog;
    for (const unsigned int tick : ticks)
        songLog.GetMarkers().Add(CL::Marker(tick, "marker"));
    return songLog;
}

std::string MarkerAfter(const std::vector<unsigned int>& ticks, unsigned int tick) {
    try {
        return std::to_string(tavo_ext::get_next_marker_time(tick, MakeSongWithMarkers(ticks)));
    } catch (const tavo_ext::NoNextMarker& none) {
        return none.what();
    }
}

TEST(SongNavigation, StepsInNumericOrder) {
    struct {
        std::vector<std::string> songs;
        std::string from, after, before;
    } const rows[] = {
        {{"1", "2", "10"}, "2", "10", "1"},
        {{"1", "2", "10"}, "10", "no next song", "2"},
        {{"1", "2", "10"}, "1", "2", "no previous song"},
        // Numbers that name no song have neighbours all the same.
        {{"1", "2", "10"}, "5", "10", "2"},
        {{"1", "2", "10"}, "0", "1", "no previous song"},
        {{"1", "2", "10"}, "11", "no next song", "10"},
        {{"1", "2", "10"}, "", "1", "no previous song"},
        {{"1", "1a", "2"}, "1", "1a", "no previous song"},
        {{}, "1", "no next song", "no previous song"},
        {{"1"}, "1", "no next song", "no previous song"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.after, SongAfter(row.songs, row.from)) << "after " << row.from;
        EXPECT_EQ(row.before, SongBefore(row.songs, row.from)) << "before " << row.from;
    }
}

TEST(SongNavigation, PassesOverSkippedSongs) {
    EXPECT_EQ("3", SongAfter({"1", "2-", "3"}, "1"));
    EXPECT_EQ("1", SongBefore({"1", "2-", "3"}, "3"));
    EXPECT_EQ("no next song", SongAfter({"1", "2-"}, "1"));
    EXPECT_EQ("no previous song", SongBefore({"1-", "2"}, "2"));
    EXPECT_EQ("5", SongAfter({"1", "2-", "3-", "4-", "5"}, "1"));
    EXPECT_EQ("1", SongBefore({"1", "2-", "3-", "4-", "5"}, "5"));
    EXPECT_EQ("no next song", SongAfter({"1", "2-", "3-"}, "1"));
    EXPECT_EQ("2", SongAfter({"1-", "2"}, "1"));
}

TEST(SongNavigation, PassesOverAttaccaTwoOnly) {
    CL::ChangeLog show = MakeShow({"1", "2", "3"});
    for (const auto& [attacca, after] :
         std::vector<std::pair<unsigned char, std::string>>{{0, "2"}, {1, "2"}, {2, "3"}, {3, "2"}, {255, "2"}}) {
        show.GetSongLog("2").SetAttacca(attacca);
        EXPECT_EQ(after, tavo_ext::get_song_after(show, "1")) << int{attacca};
    }
}

TEST(MarkerNavigation, NextMarkerLiesStrictlyBehind) {
    EXPECT_EQ("960", MarkerAfter({960, 1920}, 0));
    EXPECT_EQ("960", MarkerAfter({960, 1920}, 959));
    EXPECT_EQ("1920", MarkerAfter({960, 1920}, 960));
    EXPECT_EQ("no next marker found", MarkerAfter({960, 1920}, 1920));
    EXPECT_EQ("no next marker found", MarkerAfter({960, 1920}, 4294967295));
    EXPECT_EQ("no markers", MarkerAfter({}, 0));
}

TEST(MarkerNavigation, PreviousMarkerLiesStrictlyBefore) {
    struct {
        std::vector<unsigned int> markers;
        unsigned int from, previous;
    } const rows[] = {
        {{960, 1920}, 0, 0},          {{960, 1920}, 959, 0},           {{960, 1920}, 960, 0},
        {{960, 1920}, 961, 960},      {{960, 1920}, 1920, 960},        {{960, 1920}, 1921, 1920},
        {{960, 960, 1920}, 961, 960}, {{960, 1920}, 4294967295, 1920},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.previous, tavo_ext::get_previous_marker_time(row.from, MakeSongWithMarkers(row.markers)))
            << row.from;
    }
}

TEST(MarkerNavigation, WithoutMarkers_NextThrowsAndPreviousFallsBackToTheStart) {
    const CL::SongLog songLog;
    EXPECT_THROW((void)tavo_ext::get_next_marker_time(5000, songLog), tavo_ext::NoNextMarker);
    EXPECT_EQ(0U, tavo_ext::get_previous_marker_time(5000, songLog));
}

TEST(NavigationExceptions, CarryTheirMessageAndStandInTheirFamilies) {
    static_assert(std::is_base_of_v<std::out_of_range, tavo_ext::EndOfShow>);
    static_assert(std::is_base_of_v<std::out_of_range, tavo_ext::StartOfShow>);
    static_assert(std::is_base_of_v<std::runtime_error, tavo_ext::NoNextMarker>);
    static_assert(!std::is_base_of_v<std::logic_error, tavo_ext::NoNextMarker>);
    const std::string message = "nothing there";
    tavo_ext::EndOfShow first(message);
    tavo_ext::EndOfShow second("other");
    second = first;
    const tavo_ext::EndOfShow third(std::move(first));
    EXPECT_EQ(message, second.what());
    EXPECT_EQ(message, third.what());
    EXPECT_EQ(message, tavo_ext::StartOfShow(message).what());
    EXPECT_EQ(message, tavo_ext::NoNextMarker(message).what());
    try {
        throw tavo_ext::EndOfShow(message);
    } catch (const std::logic_error& caught) {
        EXPECT_EQ(message, caught.what());
    }
}

TEST(CopyTimeline, CopiesTheFiveSequencesAndNothingElse) {
    TL::Timeline source(480, 9600);
    source.SetSongTitle("Overture");
    source.GetTempos().Append(TL::Tempo(0, 400000));
    source.GetTempos().Append(TL::Tempo(960, 500000));
    source.GetBarsBeats().Append(TL::BarsBeats(0, 1, "1"));
    source.GetKeys().Append(TL::Key(0, -3, true));
    source.GetPageNums().Append(TL::PageNum(0, 4));
    source.GetMeters().Append(TL::Meter(0, 3, 4));

    const TL::Timeline copy = tavo_ext::copy_timeline(source);
    ASSERT_EQ(2U, copy.GetTempos().size());
    EXPECT_EQ(TL::Tempo(960, 500000), copy.GetTempos()[1]);
    ASSERT_EQ(1U, copy.GetBarsBeats().size());
    EXPECT_EQ(TL::BarsBeats(0, 1, "1"), copy.GetBarsBeats()[0]);
    ASSERT_EQ(1U, copy.GetKeys().size());
    EXPECT_EQ(TL::Key(0, -3, true), copy.GetKeys()[0]);
    ASSERT_EQ(1U, copy.GetPageNums().size());
    EXPECT_EQ(TL::PageNum(0, 4), copy.GetPageNums()[0]);
    ASSERT_EQ(1U, copy.GetMeters().size());
    EXPECT_EQ(TL::Meter(0, 3, 4), copy.GetMeters()[0]);
    EXPECT_EQ("", copy.GetSongTitle());
    EXPECT_EQ(0U, copy.GetStartTickIndex());
    EXPECT_EQ(0U, copy.GetEndTickIndex());

    source.GetTempos().Append(TL::Tempo(1920, 600000));
    EXPECT_EQ(2U, copy.GetTempos().size());
}

}  // namespace
