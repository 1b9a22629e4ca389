// A performance that was killed goes on where it stood.

#include <gtest/gtest.h>

#include "tests/live/live_program.h"
#include "tests/stage/small_show.h"

namespace {

using test_support::LiveProgram;

class Resume : public test_support::SmallShow {
protected:
    void SetUp() override {
        for (const char* edit : {"add vamp --song 1 --from 2 --to 2", "add fermata --song 1 --from 6:3 --to 6:4",
                                 "add caesura --song 1 --at 8:1"})
            ASSERT_EQ(0, Edit(edit).exitCode) << edit;
    }
    [[nodiscard]] std::unique_ptr<LiveProgram> Start(std::vector<std::string> more = {}) const {
        std::vector<std::string> words{Show(), "--output", "null", "--lead", "1024"};
        words.insert(words.end(), more.begin(), more.end());
        return std::make_unique<LiveProgram>(std::move(words));
    }
    /// Kills the performance, and starts it again where it was.
    static void WaitForTake(LiveProgram& play, const std::string& press) {
        play.WaitFor("press", {{"press", press}, {"outcome", "taken"}});
        // What has been taken is on the disk within 50 ms; a busy machine may need longer.
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
    }
};

TEST_F(Resume, KilledInVamp_StandsThereWithItsPassTempoAndVolume) {
    {
        const auto play = Start();
        play->WaitFor("song", {{"song", "1"}});
        play->Press("tempo 150%");
        play->Press("transpose -2");
        play->Press("play");
        play->WaitFor("jump", {{"reason", "loop"}});
        play->WaitFor("jump", {{"reason", "loop"}});
        play->Press("volume 60%");
        play->Press("volume 40% music");
        WaitForTake(*play, "volume 40% music");
        play->Kill();
    }
    const auto play = Start({"--resume"});
    play->WaitFor("press", {{"outcome", "taken"}, {"source", "resume"}, {"song", "1"}});
    const nlohmann::json status = play->Status();
    EXPECT_EQ("stopped", status["motion"]);
    EXPECT_EQ("1", status["song"]);
    EXPECT_EQ("2", status["bar"]);
    EXPECT_EQ(1.5, status["tempoScale"]);
    EXPECT_EQ(-2, status["transposition"]);
    EXPECT_EQ(0.6, status["volumes"]["master"]);
    EXPECT_EQ(0.4, status["volumes"]["music"]);
    ASSERT_EQ(1U, status["loops"].size()) << status;
    EXPECT_GE(status["loops"][0]["pass"], 3);
    const int pass = status["loops"][0]["pass"];

    play->Press("go");
    play->WaitFor("jump", {{"reason", "loop"}});
    EXPECT_GE(play->Status()["loops"][0]["pass"], pass + 1);
    play->Press("exit");
    play->WaitFor("bar", {{"bar", "3"}});
    play->Quit();
}

TEST_F(Resume, KilledInFermata_HoldsAgain) {
    {
        const auto play = Start();
        play->WaitFor("song", {{"song", "1"}});
        play->Press("seek 6");
        play->Press("play");
        play->WaitFor("hold");
        play->Press("volume 90%");
        WaitForTake(*play, "volume 90%");
        play->Kill();
    }
    const auto play = Start({"--resume"});
    play->WaitFor("press", {{"outcome", "taken"}, {"source", "resume"}, {"song", "1"}});
    EXPECT_EQ("6", play->Status()["bar"]);
    play->Press("go");
    play->WaitFor("hold");
    // Within the guard's time it would be the same press.
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    play->Press("exit");
    play->WaitFor("bar", {{"bar", "7"}});
    play->Quit();
}

TEST_F(Resume, KilledBeforeACaesura_CountsDownAndStopsThere) {
    {
        const auto play = Start();
        play->WaitFor("song", {{"song", "1"}});
        play->Press("seek 7:2");
        play->Press("play");
        play->WaitFor("status", {{"status", "Caesura"}});
        play->Press("volume 80%");
        WaitForTake(*play, "volume 80%");
        play->Kill();
    }
    const auto play = Start({"--resume"});
    play->WaitFor("press", {{"outcome", "taken"}, {"source", "resume"}, {"song", "1"}});
    play->Press("go");
    play->WaitFor("status", {{"status", "Caesura"}});
    play->WaitFor("caesura", {{"bar", "8"}});
    play->Quit();
}

TEST_F(Resume, EndedByQuit_OffersNothing) {
    {
        const auto play = Start();
        play->WaitFor("song", {{"song", "1"}});
        play->Quit();
    }
    const auto play = Start({"--resume"});
    play->WaitFor("song", {{"song", "1"}});
    EXPECT_EQ(0, play->Status()["tick"]);
    play->Quit();
}

TEST_F(Resume, Killed_LeavesTheShowAsItWas) {
    {
        const auto play = Start();
        play->WaitFor("song", {{"song", "1"}});
        play->Press("edit {\"removed\":{},\"added\":{}}");
        play->WaitFor("press", {{"outcome", "failed"}});
        play->Kill();
    }
    const auto play = Start();
    play->WaitFor("song", {{"song", "1"}});
    play->Quit();
}

}  // namespace
