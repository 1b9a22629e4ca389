#include "stage/session/time_code_follower.h"

#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;

constexpr std::uint16_t TicksPerQuarter = 480;
constexpr unsigned int Start = 960;

/// 120 quarter notes a minute, 60 from tick 2880 on; the song begins at tick 960. Half as fast from 1920 to 2400.
tavo_midi::TempoMap HeardTempos() {
    TL::Timeline timeline(Start, 9600);
    timeline.GetTempos().Append({0, 500000});
    timeline.GetTempos().Append({2880, 1000000});
    CL::SongLog log;
    log.GetTempoScales().Add(CL::TempoScale(1920, 2400, 0.5F));
    return stage::MakeHeardTempoMap({"1", timeline, TicksPerQuarter}, log);
}

struct Row {
    unsigned int tick;
    std::chrono::milliseconds time;
};

TEST(TimeCodeFollower, TimeInSong_IsWhatIsHeard) {
    const tavo_midi::TempoMap heard = HeardTempos();
    for (const Row& row : {Row{0, -1000ms}, Row{960, 0ms}, Row{1440, 500ms}, Row{1920, 1000ms}, Row{2160, 1500ms},
                           Row{2400, 2000ms}, Row{2880, 2500ms}, Row{3360, 3500ms}}) {
        EXPECT_EQ(stage::FindTimeInSong(heard, Start, row.tick, 1.0), row.time) << row.tick;
        EXPECT_EQ(stage::FindTimeInSong(heard, Start, row.tick, 2.0), row.time / 2) << row.tick;
    }
}

TEST(TimeCodeFollower, TickInSong_IsTheTickOfItsTimeAndOfWhatFollowsUpToTheNext) {
    const tavo_midi::TempoMap heard = HeardTempos();
    for (const double scale : {0.5, 0.93, 1.0, 1.7}) {
        for (unsigned int tick = Start; tick < 4000; ++tick) {
            const auto time = stage::FindTimeInSong(heard, Start, tick, scale);
            ASSERT_EQ(stage::FindTickInSong(heard, Start, time, scale), tick);
            ASSERT_EQ(stage::FindTickInSong(heard, Start, time + 1us, scale), tick);
        }
    }
}

}  // namespace
