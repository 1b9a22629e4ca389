#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>

#include "kit/clock.h"
#include "tavo_core/callback_dispatcher.h"
#include "tavo_core/gui_dispatcher.h"
#include "tests/player_core/support/test_interface.h"
#include "tests/support/notification_log.h"

namespace {

using test_support::TheFacade;

class TheEnd : public TheFacade {
protected:
    TheEnd() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
    void SetUp() override {
        TheFacade::SetUp();
        // Each step is told with what has ended by then.
        facade_->player->onEnding = [this](const std::string& step) {
            order_ += step + (facade_->feed->GetShouldRun() ? "" : " without feed") +
                      (CanBeHeard_() ? "" : " without display") + "; ";
        };
    }
    static bool CanBeHeard_() {
        bool isHeard = false;
        const auto id = notify::guiDispatcher.AddHandler([&isHeard](const auto&) { isHeard = true; });
        notify::guiDispatcher.SendNoNextSong();
        notify::guiDispatcher.Drain();
        notify::guiDispatcher.RemoveHandler(id);
        return isHeard;
    }

    kit::FakeClock clock_{kit::FakeClock::Mode::AutoAdvance};
    std::string order_;
};

TEST_F(TheEnd, Shutdown_HaltsThenEndsFeedAndPlayer_AndLeavesTheDisplayAlone) {
    facade_->Shutdown();
    EXPECT_EQ("HaltOutput; Shutdown without feed; ", order_);
    EXPECT_TRUE(CanBeHeard_());
}

TEST_F(TheEnd, Shutdown_EndsTheMidiCommands) {
    facade_->Shutdown();
    facade_->player->calls.Take();
    notify::callbackDispatcher.Notify(notify::names::midiCommandPlay, nullptr);
    EXPECT_TRUE(facade_->player->calls.Take().empty());
    facade_.reset();
    notify::callbackDispatcher.Notify(notify::names::midiCommandPlay, nullptr);
}

TEST_F(TheEnd, ShutdownTwice_IsFine) {
    facade_->Shutdown();
    facade_->Shutdown();
    EXPECT_EQ("HaltOutput; Shutdown without feed; HaltOutput without feed; Shutdown without feed; ", order_);
}

// After PrepareForExit the process can only exit: the display's dispatcher is silent for good. So it has one of its
// own.

/// The outcome of a test in a process of its own.
[[noreturn]] void ExitWith(bool isGood) {
    std::_Exit(isGood ? 0 : 1);
}

TEST_F(TheEnd, PrepareForExit_SilencesTheDisplayThenFeedThenPlayer) {
    EXPECT_EXIT(
        {
            const kit::ScopedClock scope(clock_);
            facade_->PrepareForExit();
            std::fprintf(stderr, "%s", order_.c_str());
            ExitWith(order_ == "PrepareForExit without feed without display; ");
        },
        ::testing::ExitedWithCode(0), "PrepareForExit without feed without display; ");
}

TEST_F(TheEnd, PrepareForExit_GivesThreadsATenthOfASecond) {
    EXPECT_EXIT(
        {
            const kit::ScopedClock scope(clock_);
            facade_->PrepareForExit();
            ExitWith(clock_.Now() == std::chrono::milliseconds(100));
        },
        ::testing::ExitedWithCode(0), "");
}

TEST_F(TheEnd, PrepareForExit_DisconnectsMidiAndKeepsTheCallbacks) {
    EXPECT_EXIT(
        {
            const kit::ScopedClock scope(clock_);
            facade_->PrepareForExit();
            facade_->player->calls.Take();
            notify::callbackDispatcher.Notify(notify::names::midiCommandPlay, nullptr);
            ExitWith(!facade_->HasMidiSource() && facade_->player->calls.Take() == std::vector<std::string>{"Play"});
        },
        ::testing::ExitedWithCode(0), "");
}

TEST_F(TheEnd, FacadeDestroyedAfterPrepareForExit_IsClean) {
    EXPECT_EXIT(
        {
            const kit::ScopedClock scope(clock_);
            facade_->PrepareForExit();
            // The feed's threads were told to finish and nobody waits for them: the feed stays, and so does its player.
            static_cast<void>(facade_->player.release());
            facade_->feed = nullptr;
            facade_.reset();
            notify::callbackDispatcher.Notify(notify::names::midiCommandPlay, nullptr);
            ExitWith(true);
        },
        ::testing::ExitedWithCode(0), "");
}

}  // namespace
