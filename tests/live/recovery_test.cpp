// The JACK server dies and comes back in the middle of a show.

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <thread>

#include "tests/live/live_program.h"
#include "tests/stage/small_show.h"

namespace {

using test_support::Child;
using test_support::LiveProgram;

/// How often the server is killed in each state; more, and in both of its modes, when asked for.
const char* const WantedKills = std::getenv("TAVO_SERVER_KILLS");

int CountKills() {
    return WantedKills != nullptr ? std::atoi(WantedKills) : 5;
}

class Recovery : public test_support::SmallShow, public testing::WithParamInterface<const char*> {
protected:
    void SetUp() override {
        if (test_support::IsSanitized) GTEST_SKIP() << "Music in real time needs a build without a sanitizer.";
        if (!test_support::EnterOwnSharedMemory())
            GTEST_SKIP() << "A /dev/shm of its own, which a JACK server of its own needs, is not permitted here.";
        for (const char* edit : {"add vamp --song 1 --from 2 --to 2", "add fermata --song 1 --from 6:3 --to 6:4",
                                 "add caesura --song 1 --at 12:1"})
            ASSERT_EQ(0, Edit(edit).exitCode) << edit;
        server_ = test_support::StartJackServer(GetParam());
        if (server_ == nullptr) GTEST_SKIP() << "No JACK server with the dummy driver can be started here.";
        play_ = std::make_unique<LiveProgram>(
            std::vector<std::string>{Show(), "--output", "jack", "--no-take", "--lead", "2048"});
        play_->WaitFor("song", {{"song", "1"}});
    }
    void TearDown() override { play_.reset(); }

    /// Whether this mode of the server has been seen to do in another state what is tested here.
    [[nodiscard]] static bool IsLeftOut() { return WantedKills == nullptr && std::string(GetParam()).empty(); }

    /// Kills the server and starts another one; the show says both.
    void KillServer() {
        server_->End(SIGKILL);
        play_->WaitFor("message", {{"sentence", "The JACK server has gone; sound goes on when it returns."}});
        EXPECT_FALSE(play_->Status()["output"]["playing"].get<bool>());
        server_ = test_support::StartJackServer(GetParam());
        ASSERT_NE(nullptr, server_);
        play_->WaitFor("message", {{"sentence", "JACK is back, sound goes on."}});
    }

    std::unique_ptr<Child> server_;
    std::unique_ptr<LiveProgram> play_;
};

TEST_P(Recovery, ServerKilledInVamp_GoesRoundAfterwards) {
    play_->Press("play");
    play_->WaitFor("jump", {{"reason", "loop"}});
    for (int kill = 0; kill < CountKills(); ++kill) {
        const int pass = play_->Status()["loops"].at(0)["pass"];
        KillServer();
        const nlohmann::json status = play_->Status();
        EXPECT_EQ("playing", status["motion"]);
        ASSERT_EQ(1U, status["loops"].size()) << status;
        EXPECT_GE(status["loops"][0]["pass"], pass);
        EXPECT_LE(status["loops"][0]["pass"], pass + 1);
    }
    play_->WaitFor("jump", {{"reason", "loop"}});
    play_->Press("exit");
    play_->WaitFor("bar", {{"bar", "3"}});
}

TEST_P(Recovery, ServerHeldUpAgainAndAgain_IsSaidAndThatItGoesOnAgain) {
    if (IsLeftOut()) GTEST_SKIP() << "Only with TAVO_SERVER_KILLS in this mode.";
    play_->Press("play");
    play_->WaitFor("started");
    {
        const std::jthread holding([this](const std::stop_token& stop) {
            while (!stop.stop_requested()) {
                server_->Signal(SIGSTOP);
                std::this_thread::sleep_for(std::chrono::milliseconds(150));
                server_->Signal(SIGCONT);
                std::this_thread::sleep_for(std::chrono::milliseconds(30));
            }
        });
        std::string sentence;
        while (!sentence.ends_with("look what holds up the sound server.")) {
            const nlohmann::json message = play_->WaitFor("message");
            ASSERT_FALSE(message.is_null());
            sentence = message["sentence"].get<std::string>();
        }
        EXPECT_EQ(0U, sentence.find("JACK takes the sound at ")) << sentence;
    }
    play_->WaitFor("message", {{"sentence", "JACK takes the sound at its speed again."}});
    EXPECT_EQ(0, play_->Status()["output"]["timesLost"]);
    EXPECT_EQ("playing", play_->Status()["motion"]);
}

TEST_P(Recovery, ServerKilledInFermata_HoldsUntilReleased) {
    if (IsLeftOut()) GTEST_SKIP() << "Only with TAVO_SERVER_KILLS in this mode.";
    play_->Press("seek 6");
    play_->Press("play");
    play_->WaitFor("hold");
    for (int kill = 0; kill < CountKills(); ++kill) {
        KillServer();
        EXPECT_EQ("holding", play_->Status()["motion"]);
    }
    play_->Press("exit");
    play_->WaitFor("release");
    play_->WaitFor("bar", {{"bar", "7"}});
}

TEST_P(Recovery, ServerKilledInCountdown_StopsAtTheCaesura) {
    if (IsLeftOut()) GTEST_SKIP() << "Only with TAVO_SERVER_KILLS in this mode.";
    for (int kill = 0; kill < CountKills(); ++kill) {
        play_->Press("seek 11:2");
        play_->Press("play");
        play_->WaitFor("started");
        play_->WaitFor("status", {{"status", "Caesura"}});
        KillServer();
        play_->WaitFor("caesura", {{"bar", "12"}});
        EXPECT_EQ("paused", play_->Status()["motion"]);
        play_->Press("continue");
        play_->WaitFor("started");
        play_->Press("pause");
        play_->WaitFor("stopped");
    }
}

TEST_P(Recovery, ServerKilledInFade_FadesOutAndStops) {
    if (IsLeftOut()) GTEST_SKIP() << "Only with TAVO_SERVER_KILLS in this mode.";
    for (int kill = 0; kill < CountKills(); ++kill) {
        play_->Press("seek 13");
        play_->Press("play");
        play_->WaitFor("started");
        play_->Press("fade 1.2");
        play_->WaitFor("press", {{"press", "fade 1.2"}, {"outcome", "taken"}});
        EXPECT_EQ("fading", play_->Status()["motion"]);
        KillServer();
        play_->WaitFor("stopped");
        EXPECT_EQ("stopped", play_->Status()["motion"]);
    }
}

TEST_P(Recovery, ServerStopped_IsNoticedAndTheShowGoesOnWithIt) {
    play_->Press("play");
    play_->WaitFor("jump", {{"reason", "loop"}});
    server_->Signal(SIGSTOP);
    play_->WaitFor("message", {{"sentence", "JACK has stopped taking sound; it will be tried again."}});
    play_->Press("exit");
    play_->WaitFor("press", {{"press", "exit"}, {"outcome", "taken"}});
    server_->Signal(SIGCONT);
    play_->WaitFor("message", {{"sentence", "JACK is back, sound goes on."}});
    play_->WaitFor("bar", {{"bar", "3"}});
}

TEST_P(Recovery, ServerReturnsWithAnotherRate_ShowPlaysOnAtItsTempo) {
    if (IsLeftOut()) GTEST_SKIP() << "Only with TAVO_SERVER_KILLS in this mode.";
    play_->Press("play");
    play_->WaitFor("jump", {{"reason", "loop"}});
    server_->End(SIGKILL);
    play_->WaitFor("message", {{"sentence", "The JACK server has gone; sound goes on when it returns."}});
    server_ = test_support::StartJackServer(GetParam(), 44100, 256);
    ASSERT_NE(nullptr, server_);
    play_->WaitFor("message", {{"sentence", "JACK is back, sound goes on."}});
    const nlohmann::json first = play_->WaitFor("jump", {{"reason", "loop"}});
    const auto begin = std::chrono::steady_clock::now();
    const nlohmann::json second = play_->WaitFor("jump", {{"reason", "loop"}});
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    // A bar of two seconds, counted in frames of the session.
    EXPECT_EQ(96000, second["frame"].get<int>() - first["frame"].get<int>());
    EXPECT_NEAR(2.0, seconds, 0.5);
    const nlohmann::json status = play_->Status();
    EXPECT_EQ(44100, status["output"]["framesPerSecond"]);
    EXPECT_EQ(256, status["output"]["periodFrames"]);
}

TEST_P(Recovery, ServerKilledWhileTheShowKeepsTime_MusicHasGoneOn) {
    if (IsLeftOut()) GTEST_SKIP() << "Only with TAVO_SERVER_KILLS in this mode.";
    play_ = std::make_unique<LiveProgram>(
        std::vector<std::string>{Show(), "--output", "jack", "--no-take", "--when-lost", "run"});
    play_->WaitFor("song", {{"song", "1"}});
    play_->Press("seek 13");
    play_->Press("play");
    play_->WaitFor("bar", {{"bar", "14"}});
    server_->End(SIGKILL);
    // Nobody hears it, and it is told as it happens.
    play_->WaitFor("bar", {{"bar", "15"}});
    play_->WaitFor("bar", {{"bar", "16"}});
    server_ = test_support::StartJackServer(GetParam());
    play_->WaitFor("message", {{"sentence", "JACK is back, sound goes on."}});
    play_->WaitFor("bar", {{"bar", "18"}});
}

TEST_P(Recovery, ServerTakesLongerPeriods_ShowPlaysOn) {
    if (IsLeftOut()) GTEST_SKIP() << "Only with TAVO_SERVER_KILLS in this mode.";
    play_->Press("play");
    play_->WaitFor("jump", {{"reason", "loop"}});
    Child change({"jack_bufsize", "512"});
    static_cast<void>(change.ReadLine());
    nlohmann::json status = play_->Status();
    for (int looks = 0; looks < 500 && status["output"]["periodFrames"] != 512; ++looks) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        status = play_->Status();
    }
    EXPECT_EQ(512, status["output"]["periodFrames"]);
    play_->WaitFor("jump", {{"reason", "loop"}});
    EXPECT_EQ(0, play_->Status()["output"]["timesLost"]);
}

INSTANTIATE_TEST_SUITE_P(Jack, Recovery, testing::Values("-S", ""), [](const auto& tested) {
    return std::string(tested.param).empty() ? "Asynchronous" : "Synchronous";
});

}  // namespace
