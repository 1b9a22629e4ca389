// A long stretch of a show on a real JACK server while the other core is busy.

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <thread>

#include "tests/live/live_program.h"
#include "tests/stage/small_show.h"

namespace {

using test_support::LiveProgram;

/// How long; an hour when asked for.
const char* const WantedSeconds = std::getenv("TAVO_ENDURANCE_SECONDS");

int CountSeconds() {
    return WantedSeconds != nullptr ? std::atoi(WantedSeconds) : 60;
}

/// What the process itself has in memory, in kB: what it shares with the JACK server is the server's.
long ReadMemory(pid_t pid) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    long memory = 0;
    for (std::string line; std::getline(status, line);)
        for (const std::string name : {"RssAnon:", "RssFile:"})
            if (line.starts_with(name)) memory += std::atol(line.c_str() + name.size());
    return memory;
}

/// A program that would take all of the machine.
class BusyThread {
public:
    BusyThread()
        : thread_([this] {
              while (!ends_)
                  work_ = work_ * 3 + 1;
          }) {}
    ~BusyThread() {
        ends_ = true;
        thread_.join();
    }

private:
    std::atomic<bool> ends_{false};
    std::atomic<unsigned int> work_{1};
    std::thread thread_;
};

class Endurance : public test_support::SmallShow {};

TEST_F(Endurance, LongShowBesideABusyProgram_NothingIsSlowerThanTheMachineAndMemoryStaysAsItIs) {
    if (test_support::IsSanitized) GTEST_SKIP() << "Music in real time needs a build without a sanitizer.";
    if (!test_support::EnterOwnSharedMemory())
        GTEST_SKIP() << "A /dev/shm of its own, which a JACK server of its own needs, is not permitted here.";
    for (const char* edit : {"add vamp --song 1 --from 2 --to 3", "add vamp --song 1 --from 5 --to 6"})
        ASSERT_EQ(0, Edit(edit).exitCode) << edit;
    const auto server = test_support::StartJackServer("-S", 48000, 128);
    if (server == nullptr) GTEST_SKIP() << "No JACK server with the dummy driver can be started here.";
    LiveProgram play({Show(), "--output", "jack", "--take", directory_ / "long.take"});
    play.WaitFor("song", {{"song", "1"}});
    const BusyThread busy;
    play.Press("tempo 200%");
    play.Press("play");
    const auto begin = std::chrono::steady_clock::now();
    const auto end = begin + std::chrono::seconds(CountSeconds());
    // By then everything that is used has been used once.
    const auto settled = begin + std::chrono::seconds(10);
    long memory = 0;
    double longestBlock = 0;
    int rounds = 0;
    while (std::chrono::steady_clock::now() < end) {
        play.WaitFor("jump", {{"reason", "loop"}});
        // On through the second vamp, and back to the first: presses belong to a show.
        if (++rounds % 3 == 0) {
            play.Press("exit");
            play.WaitFor("bar", {{"bar", "5"}});
            play.WaitFor("jump", {{"reason", "loop"}});
            play.Press("seek 1");
        }
        if (memory == 0 && std::chrono::steady_clock::now() >= settled) memory = ReadMemory(play.GetPid());
        longestBlock = std::max(longestBlock, play.Status()["longestBlockMs"].get<double>());
    }
    const nlohmann::json status = play.Status();
    const long grown = ReadMemory(play.GetPid()) - memory;
    std::cout << "  " << CountSeconds() << " s: " << status["slowBlocks"] << " slow blocks, " << status["heldUpBlocks"]
              << " held up, " << status["latePeriods"] << " late ones, " << status["output"]["overruns"]
              << " by the server's count, longest " << longestBlock << " ms, memory " << memory << " kB, grown by "
              << grown << " kB\n";
    // Where a virtual machine stands still, a thread's clock goes on; the server notices it, too.
    const int stalls = status["output"]["overruns"];
    EXPECT_LE(status["slowBlocks"], stalls) << status;
    // Another program with real-time rights, such as a test beside this one, may hold up whom the rendering waits for.
    EXPECT_LE(status["heldUpBlocks"], 1 + CountSeconds() / 10) << status;
    EXPECT_TRUE(status["output"]["playing"]);
    EXPECT_EQ(0, status["output"]["timesLost"]);
    EXPECT_GT(memory, 0);
    EXPECT_LE(grown, 1024);
    play.Quit();
}

}  // namespace
