// RtAudio's way to a real sound server, whose device plays into nothing.

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "tests/live/live_program.h"
#include "tests/stage/small_show.h"

namespace {

using test_support::Child;
using test_support::LiveProgram;

/// For the programs that are started while it lives.
class Variable {
public:
    Variable(const char* name, const std::string& value) : name_(name) {
        if (const char* old = std::getenv(name)) old_ = old;
        ::setenv(name, value.c_str(), 1);
    }
    ~Variable() {
        if (old_) {
            ::setenv(name_, old_->c_str(), 1);
        } else {
            ::unsetenv(name_);
        }
    }
    Variable(const Variable&) = delete;
    Variable& operator=(const Variable&) = delete;

private:
    const char* name_;
    std::optional<std::string> old_;
};

class RtAudioOutput : public test_support::SmallShow {
protected:
    void SetUp() override {
        if (test_support::IsSanitized) GTEST_SKIP() << "Music in real time needs a build without a sanitizer.";
        std::filesystem::create_directory(RunDirectory());
        // Like the JACK servers of the other tests it has precedence, where that is allowed: a device's clock does not
        // stop because the machine is busy.
        server_.emplace(std::vector<std::string>{
            "/bin/sh", "-c", "chrt -r 50 true 2>/dev/null && exec chrt -r 50 \"$@\"; exec \"$@\"", "server",
            "pulseaudio", "-n", "--daemonize=no", "--exit-idle-time=-1", "--log-target=null", "-L",
            "module-native-protocol-unix auth-anonymous=1", "-L", "module-null-sink sink_name=pit rate=48000"});
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (!std::filesystem::exists(RunDirectory() + "/pulse/native")) {
            if (std::chrono::steady_clock::now() > end) GTEST_SKIP() << "No PulseAudio server can be started here.";
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    }
    [[nodiscard]] std::string RunDirectory() const { return directory_ / "run"; }

    Variable runDirectory_{"XDG_RUNTIME_DIR", RunDirectory()};
    Variable home_{"HOME", RunDirectory()};
    std::optional<Child> server_;
};

TEST_F(RtAudioOutput, DeviceThatTakesTimeToBegin_PlaysTheShowInTime) {
    // Without those rights the server stands still where the machine is busy with others, which is noticed as a device
    // that is lost: then it is tried again.
    constexpr int MostAttempts = 10;
    for (int attempt = 1;; ++attempt) {
        LiveProgram play({Show(), "--output", "rtaudio", "--period", "512", "--no-take"});
        play.WaitFor("song", {{"song", "1"}});
        play.Press("play");
        // Bars of two seconds.
        play.WaitFor("bar", {{"bar", "2"}});
        const auto begin = std::chrono::steady_clock::now();
        play.WaitFor("bar", {{"bar", "4"}});
        const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
        play.Press("stop");
        play.WaitFor("stopped");
        const nlohmann::json status = play.Status();
        play.Quit();
        ASSERT_EQ(48000, status["output"]["framesPerSecond"]);
        if (status["output"]["timesLost"] == 0) {
            EXPECT_NEAR(4.0, seconds, 0.5);
            return;
        }
        ASSERT_LT(attempt, MostAttempts) << status;
    }
}

TEST_F(RtAudioOutput, ServerEnds_IsNoticedAndTheShowGoesOnWithTheNextOne) {
    LiveProgram play({Show(), "--output", "rtaudio", "--period", "512", "--no-take"});
    play.WaitFor("song", {{"song", "1"}});
    play.Press("play");
    play.WaitFor("bar", {{"bar", "2"}});
    server_->End(SIGKILL);
    play.WaitFor("message",
                 {{"sentence", "RtAudio (ALSA) takes sound faster than it can be heard; it will be tried again."}});
    EXPECT_FALSE(play.Status()["output"]["playing"].get<bool>());
    std::filesystem::remove_all(RunDirectory() + "/pulse");
    SetUp();
    play.WaitFor("message", {{"sentence", "RtAudio (ALSA) is back, sound goes on."}});
    play.WaitFor("bar", {{"bar", "3"}});
    play.Quit();
}

}  // namespace
