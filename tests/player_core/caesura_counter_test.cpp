#include "player_core/caesura_counter.h"

#include <gtest/gtest.h>

#include <functional>
#include <list>
#include <sstream>
#include <stdexcept>
#include <vector>

namespace {

std::list<unsigned int> Beats(unsigned int count = 40) {
    std::list<unsigned int> beats;
    for (unsigned int beat = 0; beat < count; ++beat)
        beats.push_back(beat * 480);
    return beats;
}

// The ticks that count, found through the public queries.
std::vector<unsigned int> CountdownOf(CountdownCaesura caesura) {
    std::vector<unsigned int> ticks;
    for (unsigned int tick = 0; tick < 20000; tick += 20) {
        if (caesura.GetCountdownAtTickIndex(tick) >= 0) ticks.push_back(tick);
    }
    return ticks;
}

std::string Written(const CountdownCaesura& caesura) {
    std::ostringstream text;
    caesura.WriteString(text);
    return text.str();
}

TL::Timeline FourFour(unsigned int bars) {
    TL::Timeline timeline(0, bars * 1920);
    timeline.GetMeters().Append({0, 4, 4});
    for (unsigned int beat = 0; beat < bars * 4; ++beat) {
        timeline.GetBarsBeats().Append({beat * 480, beat % 4 + 1, std::to_string(beat / 4 + 1)});
    }
    return timeline;
}

unsigned int Same(unsigned int tick) {
    return tick;
}

CaesuraCounter CounterOf(std::initializer_list<unsigned int> caesuras) {
    CL::SongLog log;
    for (const unsigned int tick : caesuras)
        log.GetCaesuras().Add({tick, "", 0});
    return {log, FourFour(10), 480, Same};
}

}  // namespace

TEST(CountdownCaesura, OnABeat_CountsFromFourToZero) {
    CountdownCaesura caesura(4800, Beats());
    EXPECT_EQ((std::vector<unsigned int>{2880, 3360, 3840, 4320, 4800}), CountdownOf(caesura));
    struct Row {
        unsigned int tick;
        int atTick, left;
        bool within;
    };
    for (const Row& row :
         {Row{2879, -1, 5, false}, Row{2880, 4, 4, true}, Row{3840, 2, 2, true}, Row{4000, -1, 2, true},
          Row{4799, -1, 1, true}, Row{4800, 0, 0, false}, Row{4801, -1, 0, false}}) {
        EXPECT_EQ(row.atTick, caesura.GetCountdownAtTickIndex(row.tick)) << row.tick;
        EXPECT_EQ(row.left, caesura.GetCountdown(row.tick)) << row.tick;
        EXPECT_EQ(row.within, caesura.WithinCountdownRange(row.tick)) << row.tick;
    }
    EXPECT_EQ(2880U, caesura.GetFirstCountdownTickIndex());
    EXPECT_EQ(4800U, caesura.end());
    EXPECT_EQ("CountdownCaesura: tickIndex_ = 4800, countdown range = [2880, 4800)\n", Written(caesura));
}

TEST(CountdownCaesura, BetweenBeats_ItsZeroLiesBehindItsRange) {
    CountdownCaesura caesura(4700, Beats());
    EXPECT_EQ((std::vector<unsigned int>{2880, 3360, 3840, 4320, 4800}), CountdownOf(caesura));
    EXPECT_TRUE(caesura.WithinCountdownRange(4699));
    EXPECT_FALSE(caesura.WithinCountdownRange(4700));
    EXPECT_EQ(0, caesura.GetCountdownAtTickIndex(4800));
}

TEST(CountdownCaesura, NearTheStart_TheSongsFirstBeatIsNeverCounted) {
    EXPECT_EQ((std::vector<unsigned int>{480, 960, 1440}), CountdownOf(CountdownCaesura(1440, Beats())));
    EXPECT_EQ((std::vector<unsigned int>{480}), CountdownOf(CountdownCaesura(480, Beats())));
    EXPECT_EQ((std::vector<unsigned int>{}), CountdownOf(CountdownCaesura(0, Beats())));
    EXPECT_EQ((std::vector<unsigned int>{480, 960, 1440, 1920, 2400}), CountdownOf(CountdownCaesura(2400, Beats())));
}

TEST(CountdownCaesura, WithoutACountdown_StandsAloneAtItsTick) {
    for (const CountdownCaesura& caesura : {CountdownCaesura(0, Beats()), CountdownCaesura(0, {})}) {
        EXPECT_EQ(0U, caesura.GetFirstCountdownTickIndex());
        EXPECT_FALSE(caesura.WithinCountdownRange(0));
        EXPECT_EQ("CountdownCaesura: tickIndex_ = 0, countdown range = [0, 0)\n", Written(caesura));
    }
}

TEST(CountdownCaesura, BehindTheLastBeat_ItsOwnTickIsTheLastCount) {
    EXPECT_EQ((std::vector<unsigned int>{480, 960, 1440, 1500}), CountdownOf(CountdownCaesura(1500, Beats(4))));
}

TEST(CountdownCaesura, ByDefault_HasNoCountdownAndNothingReported) {
    CountdownCaesura caesura;
    EXPECT_EQ(0U, caesura.GetTickIndex());
    EXPECT_EQ(-1, caesura.GetCountdownAtTickIndex(0));
    EXPECT_FALSE(caesura.GetZeroCountHasBeenReported());
}

TEST(CountdownCaesura, EqualityComparesPlacesNotCountdowns) {
    EXPECT_EQ(CountdownCaesura(4800, Beats()), CountdownCaesura(4800, {}));
    EXPECT_FALSE(CountdownCaesura(4800, Beats()) == CountdownCaesura(4801, Beats()));
}

TEST(CaesuraCounter, CaesuraForTheIgnoredVersion_IsLeftOut) {
    CL::SongLog log;
    log.GetCaesuras().Add({1920, "", CL::GetCaesuraIgnoredVersionTarget()});
    log.GetCaesuras().Add({3840, "", 7});
    CaesuraCounter counter(log, FourFour(10), 480, Same);
    ASSERT_EQ(1U, counter.GetCountdownCaesuras().size());
    EXPECT_EQ(3840U, counter.GetCountdownCaesuras()[0].GetTickIndex());
}

TEST(CaesuraCounter, MapMovesTheCaesuraBeforeItsBeatsAreFound) {
    CL::SongLog log;
    log.GetCaesuras().Add({4790, "", 0});
    CaesuraCounter counter(log, FourFour(10), 480, [](unsigned int tick) { return tick + 10; });
    EXPECT_EQ(4800U, counter.GetCountdownCaesuras()[0].GetTickIndex());
    EXPECT_EQ(2880U, counter.GetCountdownCaesuras()[0].GetFirstCountdownTickIndex());
}

TEST(CaesuraCounter, EmptyMap_ThrowsOnlyWhereThereIsACaesuraToBuild) {
    CL::SongLog log;
    EXPECT_NO_THROW(CaesuraCounter(log, FourFour(10), 480, nullptr));
    log.GetCaesuras().Add({1920, "", CL::GetCaesuraIgnoredVersionTarget()});
    EXPECT_NO_THROW(CaesuraCounter(log, FourFour(10), 480, nullptr));
    log.GetCaesuras().Add({3840, "", 0});
    EXPECT_THROW(CaesuraCounter(log, FourFour(10), 480, nullptr), std::bad_function_call);
}

TEST(CaesuraCounter, ClickEditsInTheCountdown_AreCounted) {
    CL::SongLog log;
    log.GetClicks().Add({1920, 3840, 4});  // quavers in the second bar
    log.GetCaesuras().Add({3840, "", 0});
    CaesuraCounter counter(log, FourFour(10), 480, Same);
    EXPECT_EQ(3840U - 4 * 240U, counter.GetCountdownCaesuras()[0].GetFirstCountdownTickIndex());
}

TEST(CaesuraCounter, FindsCaesurasByTheirTick) {
    const CaesuraCounter counter = CounterOf({1920, 5760});
    EXPECT_TRUE(counter.HasCaesuraAtTickIndex(5760));
    EXPECT_FALSE(counter.HasCaesuraAtTickIndex(5759));
    EXPECT_EQ(5760U, counter.GetCountdownCaesuraAtTickIndex(5760).GetTickIndex());
    try {
        static_cast<void>(counter.GetCountdownCaesuraAtTickIndex(100));
        FAIL() << "an unknown caesura was found";
    } catch (const std::logic_error& error) {
        EXPECT_STREQ("There is no CountdownCaesura at requested tick index.", error.what());
    }
}

TEST(CaesuraCounter, SearchForARunningCountdown_GivesUpAtTheFirstCaesuraAhead) {
    const CaesuraCounter inOrder = CounterOf({1920, 5760});
    EXPECT_TRUE(inOrder.HasCaesuraWithinCountdownRange(1000));
    EXPECT_FALSE(inOrder.HasCaesuraWithinCountdownRange(1920));
    EXPECT_TRUE(inOrder.HasCaesuraWithinCountdownRange(4000));
    // The map puts the first caesura behind the second: the second's range is never asked.
    CL::SongLog log;
    log.GetCaesuras().Add({1000, "", 0});
    log.GetCaesuras().Add({5760, "", 0});
    const CaesuraCounter outOfOrder(log, FourFour(10), 480,
                                    [](unsigned int tick) { return tick == 1000 ? 17280U : tick; });
    EXPECT_FALSE(outOfOrder.HasCaesuraWithinCountdownRange(5000));
}

TEST(CaesuraCounter, AtACaesuraWithinTheNextOnesCountdown_FindsThatCountdown) {
    const CaesuraCounter counter = CounterOf({1920, 2880});
    EXPECT_TRUE(counter.HasCaesuraWithinCountdownRange(1920));
    EXPECT_FALSE(counter.HasCaesuraWithinCountdownRange(2880));
}

TEST(CaesuraCounter, ZeroMarkSetOnACopy_LeavesTheCountersOwnUntouched) {
    CaesuraCounter counter = CounterOf({1920});
    CountdownCaesura copy = counter.GetCountdownCaesuraAtTickIndex(1920);
    copy.SetZeroCountHasBeenReported();
    EXPECT_FALSE(counter.GetCountdownCaesuras()[0].GetZeroCountHasBeenReported());
    counter.GetCountdownCaesuras()[0].SetZeroCountHasBeenReported();
    EXPECT_TRUE(counter.GetCountdownCaesuraAtTickIndex(1920).GetZeroCountHasBeenReported());
}

TEST(CaesuraCounter, Printed_NamesEachCountdownAndWhereTheObjectLives) {
    CaesuraCounter counter = CounterOf({4800});
    std::ostringstream expected;
    expected << "CaesuraCounter\n"
             << "CountdownCaesura: tickIndex_ = 4800, countdown range = [2880, 4800)\n"
             << "  at " << static_cast<const void*>(&counter.GetCountdownCaesuras()[0]) << "\n";
    testing::internal::CaptureStdout();
    counter.PrintCaesuras();
    EXPECT_EQ(expected.str(), testing::internal::GetCapturedStdout());
}

TEST(CaesuraCounter, ByDefault_IsEmpty) {
    CaesuraCounter counter;
    EXPECT_TRUE(counter.GetCountdownCaesuras().empty());
    EXPECT_FALSE(counter.HasCaesuraAtTickIndex(0));
}
