#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <thread>

#include "player_core/gui_update.h"
#include "tests/stress/stress_show.h"
#include "tests/stress/watchdog.h"

namespace {

using namespace stress;

// A feed is started and ended at every moment of its threads' lives: before they wait, while they wait, in a pass.
// TAVO_FEED_CYCLES sets how often.
TEST(FeedCycles, ConstructStartAndQuit_NeverHangs) {
    const std::uint64_t cycles = NumberFromEnvironment("TAVO_FEED_CYCLES", 10000);
    StressShow show;
    Watchdog watchdog;
    Diary& diary = watchdog.Watch("host");
    std::atomic<std::uint64_t> passes{0};
    for (std::uint64_t cycle = 0; cycle < cycles; ++cycle) {
        diary.Begin("constructing a feed");
        gui::GuiUpdate feed(show.GetPlayer(), [&passes](unsigned int*) {
            ++passes;
            return false;
        });
        // A generator that sleeps is waited for: no interval, so that the cycles meet the threads and not the clock.
        feed.SetInterval(0);
        if (cycle % 5 != 4) feed.StartUpdateGenerator();
        if (cycle % 3 == 1) feed.Unpause();
        if (cycle % 4 == 1) feed.UpdateOnce();
        if (cycle % 7 == 1) feed.Pause();
        if (cycle % 100 == 3) {
            diary.Begin("waiting for a pass");
            for (const std::uint64_t before = passes; passes == before; std::this_thread::yield())
                feed.SendGuiUpdate();
        }
        diary.Begin("quitting a feed");
        if (cycle % 2 == 0) feed.Quit();
    }
    diary.Finish();
    EXPECT_GE(passes, cycles / 100);
}

}  // namespace
