// A long stretch of a show on a real JACK server while the other core is busy.

#include <gtest/gtest.h>
#include <sched.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <mutex>
#include <thread>
#include <vector>

#include "kit/real_time.h"
#include "stage/live/real_time.h"
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

/// A thread on each processor that should come next after the rendering, and notes when it did not: the machine stood
/// still, or another program with real-time rights had the processor.
class StandstillWatch {
public:
    using Clock = std::chrono::steady_clock;

    StandstillWatch() {
        cpu_set_t allowed{};
        if (::sched_getaffinity(0, sizeof allowed, &allowed) != 0) return;
        for (int processor = 0; processor < CPU_SETSIZE; ++processor)
            if (CPU_ISSET(processor, &allowed)) threads_.emplace_back([this, processor] { Watch_(processor); });
    }
    ~StandstillWatch() {
        ends_ = true;
        for (std::thread& thread : threads_)
            thread.join();
    }
    StandstillWatch(const StandstillWatch&) = delete;
    StandstillWatch& operator=(const StandstillWatch&) = delete;

    /// False where a watching thread is an ordinary one and notes whatever the others do.
    [[nodiscard]] bool IsRealTime() const { return isRealTime_; }
    /// Whether something stood still shortly before `moment`: what is told comes a little later.
    [[nodiscard]] bool HasStoodStillBefore(Clock::time_point moment) {
        const std::lock_guard lock(mutex_);
        return std::ranges::any_of(moments_, [moment](Clock::time_point each) {
            return each <= moment && each > moment - std::chrono::milliseconds(200);
        });
    }

private:
    static constexpr std::chrono::microseconds Interval{500};
    /// A few of these in a row are a period of 128 frames.
    static constexpr std::chrono::microseconds Standstill{500};

    void Watch_(int processor) {
        cpu_set_t own{};
        CPU_SET(processor, &own);
        ::sched_setaffinity(0, sizeof own, &own);
        if (!kit::MakeThisThreadRealTime(static_cast<int>(stage::RealTimePriority::Rendering) - 1)) isRealTime_ = false;
        for (Clock::time_point due = Clock::now(); !ends_;) {
            due += Interval;
            std::this_thread::sleep_until(due);
            const Clock::time_point now = Clock::now();
            if (now - due < Standstill) continue;
            due = now;
            const std::lock_guard lock(mutex_);
            moments_.push_back(now);
        }
    }

    std::atomic<bool> ends_{false};
    std::atomic<bool> isRealTime_{true};
    std::mutex mutex_;
    std::vector<Clock::time_point> moments_;  // guarded by mutex_: when they ended
    std::vector<std::thread> threads_;
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
    StandstillWatch watch;
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
    const auto ours = std::ranges::count_if(
        play.GetLateMoments(), [&watch](const auto& moment) { return !watch.HasStoodStillBefore(moment); });
    std::cout << "  " << CountSeconds() << " s: " << status["slowBlocks"] << " slow blocks, " << status["heldUpBlocks"]
              << " held up, " << status["latePeriods"] << " late ones, " << ours
              << " of them while nothing stood still, " << status["output"]["overruns"]
              << " by the server's count, longest " << longestBlock << " ms, memory " << memory << " kB, grown by "
              << grown << " kB\n";
    if (watch.IsRealTime()) {
        EXPECT_EQ(0, ours);
    }
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
