// Where a show that is not moving stands, as the operator is told.

#include <gtest/gtest.h>

#include "tests/live/live_program.h"
#include "tests/stage/small_show.h"

namespace {

using test_support::LiveProgram;

class StandingPlace : public test_support::SmallShow {};

TEST_F(StandingPlace, StoppedWhilePlaying_IsTheSongsBeginning) {
    LiveProgram play({Show(), "--output", "null", "--no-take"});
    play.WaitFor("song", {{"song", "1"}});
    play.Press("play");
    play.WaitFor("bar", {{"bar", "2"}});
    play.Press("stop");
    play.WaitFor("put", {{"bar", "1"}});
    EXPECT_EQ("1", play.Status()["bar"]);
    play.Quit();
}

TEST_F(StandingPlace, StoppedAfterSeek_IsTheSongsBeginning) {
    LiveProgram play({Show(), "--output", "null", "--no-take"});
    play.WaitFor("song", {{"song", "1"}});
    play.Press("seek 3");
    play.WaitFor("put", {{"bar", "3"}});
    EXPECT_EQ("3", play.Status()["bar"]);
    play.Press("stop");
    play.WaitFor("put", {{"bar", "1"}});
    EXPECT_EQ("1", play.Status()["bar"]);
    play.Quit();
}

TEST_F(StandingPlace, Paused_IsWhereItWasPaused) {
    LiveProgram play({Show(), "--output", "null", "--no-take"});
    play.WaitFor("song", {{"song", "1"}});
    play.Press("play");
    play.WaitFor("bar", {{"bar", "2"}});
    play.Press("pause");
    const nlohmann::json stopped = play.WaitFor("stopped");
    EXPECT_EQ(stopped["tick"], play.Status()["tick"]);
    play.Quit();
}

}  // namespace
