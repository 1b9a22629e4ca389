#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <limits>
#include <memory>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "kit/clock.h"
#include "kit/thread_exception_log.h"
#include "kit/thread_names.h"
#include "tests/player_core/support/test_player.h"
#include "tests/player_core/support/test_show.h"
#include "tests/support/temporary_directory.h"
#include "tests/support/virtual_slots.h"

// The feed's two threads: how they begin, wait, signal and end.

namespace {

using namespace std::chrono_literals;

/// A clock whose sleepers return at once; it remembers who slept and for how long.
class RecordingClock final : public kit::Clock {
public:
    [[nodiscard]] std::chrono::nanoseconds Now() const override { return 0ns; }
    void SleepFor(std::chrono::nanoseconds duration) override {
        {
            const std::lock_guard lock(mutex_);
            ++sleeps_;
            lastDuration_ = duration;
            lastSleeper_ = kit::threadNames.GetNameOfCurrentThread();
            changed_.notify_all();
            if (throwing_) throw std::runtime_error("the clock has stopped");
        }
        std::this_thread::yield();
    }
    int CountSleeps() {
        const std::lock_guard lock(mutex_);
        return sleeps_;
    }
    std::string LastSleeper() {
        const std::lock_guard lock(mutex_);
        return lastSleeper_;
    }
    void ThrowFromNowOn() {
        const std::lock_guard lock(mutex_);
        throwing_ = true;
    }
    [[nodiscard]] bool WaitUntilSleptMoreThan(int count) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, 30s, [&] { return sleeps_ > count; });
    }
    [[nodiscard]] bool WaitUntilSleptFor(std::chrono::nanoseconds duration) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, 30s, [&] { return lastDuration_ == duration; });
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    int sleeps_ = 0;
    bool throwing_ = false;
    std::chrono::nanoseconds lastDuration_{0};
    std::string lastSleeper_;
};

class FeedThreads : public ::testing::Test {
protected:
    FeedThreads() : scopedClock_(clock_), player_(showData_) {}

    std::unique_ptr<test_support::TestFeed> MakeFeed() {
        return std::make_unique<test_support::TestFeed>(player_, position_);
    }
    static void DoNothing() {}

    RecordingClock clock_;
    kit::ScopedClock scopedClock_;
    tavo_midi::ShowData showData_;
    test_support::TestPlayer player_;
    test_support::ReportedPosition position_;
};

TEST_F(FeedThreads, NewFeed_IsPausedAndItsGeneratorSignalsNothing) {
    const auto feed = MakeFeed();
    feed->StartUpdateGenerator();
    EXPECT_TRUE(feed->GetIsPaused());
    EXPECT_TRUE(feed->GetShouldRun());
    // Passes run when they are asked for...
    EXPECT_TRUE(position_.WaitUntilAsked(3, [&] { feed->SendGuiUpdate(); }));
    EXPECT_TRUE(position_.WaitUntilAsked(6, [&] { feed->UpdateOnce(); }));
    EXPECT_TRUE(position_.WaitUntilAsked(9, [&] { feed->SendGuiUpdateWithTickIndex(1); }));
    // ...and the generator, which sleeps after every signal, has not sent one.
    EXPECT_EQ(0, clock_.CountSleeps());
}

TEST_F(FeedThreads, NewFeed_RunsNoPassBeforeASignal) {
    auto feed = MakeFeed();
    feed->StartUpdateGenerator();
    feed->PrepareForExit();
    feed->SetShouldRun(true);
    feed->Quit();
    EXPECT_EQ(0U, position_.CountAsked());
}

TEST_F(FeedThreads, Unpaused_TheGeneratorSignalsAgainAndAgain) {
    const auto feed = MakeFeed();
    feed->StartUpdateGenerator();
    feed->Unpause();
    EXPECT_FALSE(feed->GetIsPaused());
    EXPECT_TRUE(position_.WaitUntilAsked(5, DoNothing));
}

TEST_F(FeedThreads, UnpausedBeforeItsStart_TheGeneratorDoesNotWait) {
    const auto feed = MakeFeed();
    feed->Unpause();
    feed->StartUpdateGenerator();
    EXPECT_TRUE(position_.WaitUntilAsked(3, DoNothing));
}

TEST_F(FeedThreads, Paused_TheGeneratorSendsAtMostOneMoreSignal) {
    const auto feed = MakeFeed();
    feed->StartUpdateGenerator();
    feed->Unpause();
    ASSERT_TRUE(clock_.WaitUntilSleptMoreThan(10));
    feed->Pause();
    const int slept = clock_.CountSleeps();
    const unsigned int asked = position_.CountAsked();
    EXPECT_TRUE(position_.WaitUntilAsked(asked + 50, [&] { feed->SendGuiUpdate(); }));
    EXPECT_LE(clock_.CountSleeps(), slept + 1);
}

TEST_F(FeedThreads, UnpauseAndPauseAtOnce_NeverLoseTheGenerator) {
    const auto feed = MakeFeed();
    feed->StartUpdateGenerator();
    for (int round = 0; round < 500; ++round) {
        const int slept = clock_.CountSleeps();
        feed->Unpause();
        ASSERT_TRUE(clock_.WaitUntilSleptMoreThan(slept)) << "round " << round;
        feed->Pause();
    }
}

TEST_F(FeedThreads, UnpauseOfARunningFeed_TakesNoLock) {
    const auto feed = MakeFeed();
    feed->Unpause();
    const std::lock_guard lock(feed->GetMutex());
    std::thread other([&] { feed->Unpause(); });
    other.join();
}

TEST_F(FeedThreads, UnpauseWithTheFeedsMutexHeld_DoesNotBlockTheGenerator) {
    const auto feed = MakeFeed();
    feed->StartUpdateGenerator();
    for (int round = 0; round < 200; ++round) {
        const std::lock_guard lock(feed->GetMutex());
        feed->Pause();
        feed->Unpause();
    }
    EXPECT_TRUE(clock_.WaitUntilSleptMoreThan(0));
}

TEST_F(FeedThreads, Interval_IsRoundedToMilliseconds) {
    const auto feed = MakeFeed();
    struct {
        double seconds;
        unsigned int milliseconds;
    } const rows[] = {
        {0.05, 50},
        {0.0334, 33},
        {0.0335, 34},
        {0.0336, 34},
        {1.0 / 30, 33},
        {0, 0},
        {0.0004, 0},
        {-1, 0},
        {-0.0001, 0},
        {4294967.295, 4294967295U},
        {4294968, 4294967295U},
        {1e300, 4294967295U},
        {std::numeric_limits<double>::infinity(), 4294967295U},
        {-std::numeric_limits<double>::infinity(), 0},
    };
    EXPECT_EQ(33U, feed->GetInterval());
    for (const auto& row : rows) {
        feed->SetInterval(row.seconds);
        EXPECT_EQ(row.milliseconds, feed->GetInterval()) << row.seconds;
    }
}

TEST_F(FeedThreads, IntervalThatIsNotANumber_ChangesNothing) {
    const auto feed = MakeFeed();
    feed->SetInterval(std::numeric_limits<double>::quiet_NaN());
    EXPECT_EQ(33U, feed->GetInterval());
}

TEST_F(FeedThreads, GeneratorSleepsForTheInterval) {
    const auto feed = MakeFeed();
    feed->StartUpdateGenerator();
    feed->Unpause();
    EXPECT_TRUE(clock_.WaitUntilSleptFor(33ms));
    feed->SetInterval(0.05);
    EXPECT_TRUE(clock_.WaitUntilSleptFor(50ms));
}

TEST_F(FeedThreads, HaveTheirNames) {
    std::mutex mutex;
    std::string passThread;
    position_.onAsked = [&] {
        const std::lock_guard lock(mutex);
        passThread = kit::threadNames.GetNameOfCurrentThread();
    };
    const auto feed = MakeFeed();
    feed->StartUpdateGenerator();
    feed->Unpause();
    EXPECT_TRUE(position_.WaitUntilAsked(1, DoNothing));
    EXPECT_TRUE(clock_.WaitUntilSleptMoreThan(0));
    EXPECT_EQ("update_generator", clock_.LastSleeper());
    feed->Quit();
    EXPECT_EQ("GuiUpdate", passThread);
}

// The end.

TEST_F(FeedThreads, QuitTwice_TheSecondDoesNothing) {
    const auto feed = MakeFeed();
    feed->StartUpdateGenerator();
    feed->Unpause();
    feed->Quit();
    EXPECT_FALSE(feed->GetShouldRun());
    feed->Quit();
    const unsigned int asked = position_.CountAsked();
    feed->SendGuiUpdate();
    EXPECT_EQ(asked, position_.CountAsked());
}

TEST_F(FeedThreads, QuitFromSeveralThreadsAtOnce_EndsOnce) {
    for (int round = 0; round < 50; ++round) {
        const auto feed = MakeFeed();
        feed->StartUpdateGenerator();
        std::thread other([&] { feed->Quit(); });
        feed->Quit();
        other.join();
    }
}

TEST_F(FeedThreads, ConstructStartAndQuit_NeverHangs) {
    for (int round = 0; round < 300; ++round) {
        const auto feed = MakeFeed();
        if (round % 3 != 0) feed->StartUpdateGenerator();
        if (round % 2 != 0) feed->Unpause();
        if (round % 5 == 0) feed->SendGuiUpdate();
        feed->Quit();
    }
}

TEST_F(FeedThreads, PausedAgainWhileItQuits_TheGeneratorStillEnds) {
    for (int round = 0; round < 200; ++round) {
        const auto feed = MakeFeed();
        feed->StartUpdateGenerator();
        feed->Unpause();
        std::thread other([&] {
            for (int i = 0; i < 20; ++i)
                feed->Pause();
        });
        feed->Quit();
        other.join();
    }
}

TEST_F(FeedThreads, DestroyedWithoutQuit_TheyEnd) {
    auto feed = MakeFeed();
    feed->StartUpdateGenerator();
    feed->Unpause();
    feed.reset();
}

TEST_F(FeedThreads, SeveralCallersAtOnce_AreSerialised) {
    tavo_midi::SongData song = test_support::MakeSong("1", 8);
    const CL::SongLog songLog;
    const auto feed = MakeFeed();
    feed->StartUpdateGenerator();
    feed->Unpause();
    std::atomic<unsigned int> rounds{0};
    const auto call = [&](const std::function<void(unsigned int)>& operation) {
        return std::thread([&rounds, operation] {
            for (unsigned int i = 0; i < 300; ++i) {
                operation(i);
                ++rounds;
            }
        });
    };
    std::vector<std::thread> callers;
    callers.push_back(call([&](unsigned int i) {
        feed->SetData(songLog, song.GetTimeline(), test_support::TicksPerQuarter);
        feed->Seek(i * 10);
        feed->ResetAndSeekToTickIndex(i);
    }));
    callers.push_back(call([&](unsigned int i) {
        feed->AddFutureStatusFlowControl("Vamp", 1, i);
        position_.tickIndex = feed->GetTickIndex() + i;
        feed->SendGuiUpdateWithoutCaesura(i);
    }));
    callers.push_back(call([&](unsigned int i) {
        feed->UpdateAll();
        if (i % 2 == 0) feed->Pause();
        feed->UpdateOnce();
        feed->Unpause();
    }));
    for (std::thread& caller : callers)
        caller.join();
    EXPECT_EQ(900U, rounds);
}

// What escapes a thread is logged with its place, and the thread ends.

class LoggedExceptions : public FeedThreads {
protected:
    LoggedExceptions() : pathBefore_(kit::GetThreadExceptionLogPath()) {
        kit::SetThreadExceptionLogPath(directory_ / "threads.log");
    }
    ~LoggedExceptions() override { kit::SetThreadExceptionLogPath(pathBefore_); }

    std::string Log() const {
        std::ifstream file(directory_ / "threads.log");
        std::stringstream text;
        text << file.rdbuf();
        return text.str();
    }

    void SignalUntilLogged(gui::GuiUpdate& feed) const {
        for (int i = 0; i < 100000 && Log().empty(); ++i) {
            feed.SendGuiUpdate();
            std::this_thread::yield();
        }
    }

    test_support::TemporaryDirectory directory_;
    const std::string pathBefore_;
};

TEST_F(LoggedExceptions, OfTheUpdateThread) {
    position_.onAsked = [] { throw std::runtime_error("no playhead today"); };
    const auto feed = MakeFeed();
    SignalUntilLogged(*feed);
    feed->Quit();
    EXPECT_NE(std::string::npos, Log().find("no playhead today")) << Log();
    EXPECT_NE(std::string::npos, Log().find("player_core/Sources/gui_update")) << Log();
    EXPECT_NE(std::string::npos, Log().find("627")) << Log();
    EXPECT_NE(std::string::npos, Log().find("GuiUpdate")) << Log();
    EXPECT_EQ(1, std::ranges::count(Log(), '\n'));
}

TEST_F(LoggedExceptions, OfTheUpdateThread_ThatAreNoStandardOnes) {
    position_.onAsked = [] { throw 17; };
    const auto feed = MakeFeed();
    SignalUntilLogged(*feed);
    feed->Quit();
    EXPECT_NE(std::string::npos, Log().find("Unknown exception.")) << Log();
    EXPECT_NE(std::string::npos, Log().find("627")) << Log();
}

TEST_F(LoggedExceptions, OfTheGenerator) {
    clock_.ThrowFromNowOn();
    const auto feed = MakeFeed();
    feed->StartUpdateGenerator();
    feed->Unpause();
    ASSERT_TRUE(clock_.WaitUntilSleptMoreThan(0));
    feed->Quit();
    EXPECT_NE(std::string::npos, Log().find("the clock has stopped")) << Log();
    EXPECT_NE(std::string::npos, Log().find("player_core/Sources/gui_update")) << Log();
    EXPECT_NE(std::string::npos, Log().find("634")) << Log();
}

TEST_F(LoggedExceptions, OfAnEmptyPositionFunction) {
    gui::GuiUpdate feed(player_, nullptr);
    SignalUntilLogged(feed);
    feed.Quit();
    EXPECT_NE(std::string::npos, Log().find("bad_function_call")) << Log();
}

// The process's feed.

class CountedFeed final : public test_support::TestFeed {
public:
    CountedFeed(Player& player, test_support::ReportedPosition& position, int& alive)
        : TestFeed(player, position), alive_(alive) {
        ++alive_;
    }
    ~CountedFeed() override { --alive_; }

    void Reset() override {
        ++resets;
        TestFeed::Reset();
    }
    int resets = 0;

private:
    int& alive_;
};

TEST_F(FeedThreads, InstallingAFeed_DestroysTheOneBefore) {
    int alive = 0;
    auto first = std::make_unique<CountedFeed>(player_, position_, alive);
    first->StartUpdateGenerator();
    gui::GuiUpdate* const firstAddress = first.get();
    SetGuiUpdate(std::move(first));
    EXPECT_EQ(firstAddress, &GetGuiUpdate());
    auto second = std::make_unique<CountedFeed>(player_, position_, alive);
    gui::GuiUpdate* const secondAddress = second.get();
    SetGuiUpdate(std::move(second));
    EXPECT_EQ(1, alive);
    EXPECT_EQ(secondAddress, &GetGuiUpdate());
    SetGuiUpdate(nullptr);
    EXPECT_EQ(0, alive);
}

TEST_F(FeedThreads, ResetAndSeek_CallsAnOverriddenReset) {
    int alive = 0;
    CountedFeed feed(player_, position_, alive);
    feed.ResetAndSeekToTickIndex(100);
    EXPECT_EQ(1, feed.resets);
}

TEST(FeedInterface, VirtualOperationsKeepTheirOrder) {
    using test_support::SlotOf;
    EXPECT_TRUE(test_support::AreConsecutive({SlotOf(&gui::GuiUpdate::ResetAndSeekToTickIndex),
                                              SlotOf(&gui::GuiUpdate::Reset), SlotOf(&gui::GuiUpdate::Seek)}));
    // The destructor takes the first two places.
    EXPECT_EQ(2, SlotOf(&gui::GuiUpdate::ResetAndSeekToTickIndex));
}

// What ends the whole process.

class FeedDeathTest : public FeedThreads {
protected:
    FeedDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(FeedDeathTest, DestroyedAfterPrepareForExit_Terminates) {
    EXPECT_DEATH(
        {
            auto feed = MakeFeed();
            feed->PrepareForExit();
            feed.reset();
        },
        "terminate called");
}

TEST_F(FeedDeathTest, QuitAfterPrepareForExit_JoinsNothing) {
    EXPECT_DEATH(
        {
            auto feed = MakeFeed();
            feed->StartUpdateGenerator();
            feed->PrepareForExit();
            feed->Quit();
            feed.reset();
        },
        "terminate called");
}

TEST_F(FeedDeathTest, GeneratorStartedTwice_Terminates) {
    EXPECT_DEATH(
        {
            const auto feed = MakeFeed();
            feed->StartUpdateGenerator();
            feed->StartUpdateGenerator();
        },
        "terminate called");
}

TEST_F(FeedDeathTest, GeneratorStartedAfterQuit_TerminatesAtTheEnd) {
    EXPECT_DEATH(
        {
            auto feed = MakeFeed();
            feed->Quit();
            feed->StartUpdateGenerator();
            feed.reset();
        },
        "terminate called");
}

TEST_F(FeedDeathTest, ProcessThatExitsAfterPrepareForExit_EndsCleanly) {
    // The thread sanitizer would report, in the process that this starts, that nobody joins the threads: that is so.
    const char* const options = std::getenv("TSAN_OPTIONS");
    ::setenv("TSAN_OPTIONS", (std::string(options == nullptr ? "" : options) + " report_thread_leaks=0").c_str(), 1);
    EXPECT_EXIT(
        {
            SetGuiUpdate(MakeFeed());
            GetGuiUpdate().StartUpdateGenerator();
            GetGuiUpdate().Unpause();
            GetGuiUpdate().PrepareForExit();
            std::exit(0);
        },
        ::testing::ExitedWithCode(0), "");
}

TEST_F(FeedDeathTest, QuitOnTheUpdateThreadItself_IsRefused) {
    EXPECT_EXIT(
        {
            std::atomic<gui::GuiUpdate*> feed{nullptr};
            position_.onAsked = [&feed] {
                try {
                    feed.load()->Quit();
                } catch (const std::system_error& error) {
                    std::_Exit(error.code() == std::errc::resource_deadlock_would_occur ? 0 : 2);
                }
                std::_Exit(3);
            };
            const auto owner = MakeFeed();
            feed = owner.get();
            (void)position_.WaitUntilAsked(1, [&owner] { owner->SendGuiUpdate(); });
            std::_Exit(4);
        },
        ::testing::ExitedWithCode(0), "");
}

}  // namespace
