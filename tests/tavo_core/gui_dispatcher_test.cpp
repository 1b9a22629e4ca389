#include "tavo_core/gui_dispatcher.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <future>
#include <stdexcept>
#include <thread>

#include "kit/file.h"
#include "kit/thread_exception_log.h"
#include "kit/thread_names.h"
#include "tavo_core/gui_batch.h"
#include "tests/support/notification_log.h"
#include "tests/support/temporary_directory.h"

using notify::GuiDispatcher;
using notify::GuiNotification;
using Lines = std::vector<std::string>;

namespace {

/// Writes down what it hears; written by the dispatcher's thread only, read after Drain.
struct Listener {
    explicit Listener(GuiDispatcher& dispatcher) {
        dispatcher.AddHandler([this](const GuiNotification& n) { lines.push_back(test_support::AsLine(n)); });
    }
    Lines lines;
};

/// Keeps the dispatcher's thread inside a handler until it is let go.
class Gate {
public:
    explicit Gate(GuiDispatcher& dispatcher) : dispatcher_(dispatcher) {
        id_ = dispatcher.AddHandler([this](const GuiNotification&) {
            if (entered_.exchange(true)) return;
            isInside_.set_value();
            mayGo_.get_future().wait();
        });
    }
    void Close() {
        dispatcher_.SendNoNextSong();
        isInside_.get_future().wait();
    }
    void Open() { mayGo_.set_value(); }
    [[nodiscard]] GuiDispatcher::HandlerId Id() const { return id_; }

private:
    GuiDispatcher& dispatcher_;
    GuiDispatcher::HandlerId id_ = 0;
    std::atomic<bool> entered_{false};
    std::promise<void> isInside_;
    std::promise<void> mayGo_;
};

}  // namespace

TEST(GuiDispatcher, EverySend_ArrivesInOrderAsSent) {
    GuiDispatcher dispatcher;
    Listener heard(dispatcher);
    dispatcher.SendPlayhead(480);
    dispatcher.SendMarker(960, "Verse");
    dispatcher.SendSongTitle("Overture");
    dispatcher.SendBarBeat("12:3");
    dispatcher.SendMeter("6/8");
    dispatcher.SendStatusClickResolution(12);
    dispatcher.SendTransposition(-2);
    dispatcher.SendKey("Eb major");
    dispatcher.SendTempo("104");
    dispatcher.SendTempoScale("90.00%");
    dispatcher.SendStatusTargetTempo(94);
    dispatcher.SendPageNum(17);
    dispatcher.SendStatusFlowControl("Repeat", 2);
    dispatcher.SendVampOn();
    dispatcher.SendVampOff();
    dispatcher.SendCaesura(4000000000U);
    dispatcher.SendPlaybackStarted();
    dispatcher.SendPlaybackStopped();
    dispatcher.SendNoNextSong();
    dispatcher.Drain();
    EXPECT_EQ((Lines{"Playhead 480", "Marker 960 'Verse'", "SongTitle 'Overture'", "BarBeat '12:3'", "Meter '6/8'",
                     "StatusClickResolution 12", "Transposition -2", "Key 'Eb major'", "Tempo '104'",
                     "TempoScale '90.00%'", "StatusTargetTempo 94", "PageNum 17", "StatusFlowControl 'Repeat' 2",
                     "VampOn", "VampOff", "Caesura 4000000000", "PlaybackStarted", "PlaybackStopped", "NoNextSong"}),
              heard.lines);
}

TEST(GuiBatch, SendsWithinIt_ArriveInOrderOnceItHasEnded) {
    GuiDispatcher dispatcher;
    Listener listener(dispatcher);
    {
        const notify::GuiBatch batch;
        dispatcher.SendBarBeat("1:1");
        {
            const notify::GuiBatch nested;
            dispatcher.SendPageNum(2);
        }
        dispatcher.SendBarBeat("1:2");
    }
    dispatcher.Drain();
    EXPECT_EQ((Lines{"BarBeat '1:1'", "PageNum 2", "BarBeat '1:2'"}), listener.lines);
}

/// Counts what it hears, without Drain, which wakes the dispatcher's thread itself.
class Counter {
public:
    explicit Counter(GuiDispatcher& dispatcher) {
        dispatcher.AddHandler([this](const GuiNotification&) { ++heard_; });
    }
    [[nodiscard]] bool Hears(int count, std::chrono::milliseconds patience) const {
        const auto end = std::chrono::steady_clock::now() + patience;
        while (heard_ < count && std::chrono::steady_clock::now() < end)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        return heard_ >= count;
    }

private:
    std::atomic<int> heard_{0};
};

TEST(GuiBatch, SendOutsideOne_WakesTheThreadThatSleeps) {
    GuiDispatcher dispatcher;
    const Counter counter(dispatcher);
    for (int sent = 1; sent <= 20; ++sent) {
        dispatcher.SendNoNextSong();
        ASSERT_TRUE(counter.Hears(sent, std::chrono::seconds(20))) << sent;
        // Most of the next ones meet a thread that has gone to sleep.
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
}

TEST(GuiBatch, InnerOneEnds_TheThreadSleepsUntilTheOuterOneDoes) {
    GuiDispatcher dispatcher;
    const Counter counter(dispatcher);
    bool hasSleptOn = false;
    int sent = 0;
    // On a busy machine the thread may still be awake, and hears it without having been woken.
    for (int tries = 0; tries < 100 && !hasSleptOn; ++tries) {
        {
            const notify::GuiBatch batch;
            {
                const notify::GuiBatch nested;
                dispatcher.SendNoNextSong();
            }
            hasSleptOn = !counter.Hears(++sent, std::chrono::milliseconds(30));
        }
        ASSERT_TRUE(counter.Hears(sent, std::chrono::seconds(20)));
    }
    EXPECT_TRUE(hasSleptOn);
}

TEST(GuiBatch, DrainWithinIt_IsNotHeldUp) {
    GuiDispatcher dispatcher;
    Listener listener(dispatcher);
    const notify::GuiBatch batch;
    dispatcher.SendPageNum(1);
    dispatcher.Drain();
    EXPECT_EQ((Lines{"PageNum 1"}), listener.lines);
}

TEST(GuiBatch, SendOfAnotherThread_DoesNotWaitForIt) {
    GuiDispatcher dispatcher;
    Listener listener(dispatcher);
    const notify::GuiBatch batch;
    dispatcher.SendPageNum(1);
    std::thread([&] {
        dispatcher.SendPageNum(2);
        dispatcher.Drain();
    }).join();
    EXPECT_EQ((Lines{"PageNum 1", "PageNum 2"}), listener.lines);
}

TEST(GuiBatch, SendThroughASecondDispatcher_DoesNotWaitForIt) {
    GuiDispatcher first;
    GuiDispatcher second;
    Listener toFirst(first);
    Listener toSecond(second);
    {
        const notify::GuiBatch batch;
        first.SendPageNum(1);
        second.SendPageNum(2);
        second.Drain();
        EXPECT_EQ((Lines{"PageNum 2"}), toSecond.lines);
    }
    first.Drain();
    EXPECT_EQ((Lines{"PageNum 1"}), toFirst.lines);
}

TEST(GuiDispatcher, Handlers_RunOnTheDispatchersOwnThread) {
    GuiDispatcher dispatcher;
    std::string name;
    std::thread::id thread;
    dispatcher.AddHandler([&](const GuiNotification&) {
        name = kit::threadNames.GetNameOfCurrentThread();
        thread = std::this_thread::get_id();
    });
    dispatcher.SendPlaybackStarted();
    dispatcher.Drain();
    EXPECT_EQ("GuiDispatcher", name);
    EXPECT_NE(std::this_thread::get_id(), thread);
}

TEST(GuiDispatcher, WaitingPlayheads_OnlyTheNewestIsHeardAtItsOwnPlace) {
    GuiDispatcher dispatcher;
    Gate gate(dispatcher);
    Listener heard(dispatcher);
    gate.Close();
    dispatcher.SendPlayhead(1);
    dispatcher.SendPlayhead(2);
    dispatcher.SendStatusFlowControl("Vamp", 0);
    dispatcher.SendPlayhead(3);
    dispatcher.SendBarBeat("2:1");
    dispatcher.SendPlayhead(4);
    dispatcher.SendPlayhead(5);
    gate.Open();
    dispatcher.Drain();
    EXPECT_EQ((Lines{"NoNextSong", "StatusFlowControl 'Vamp' 0", "BarBeat '2:1'", "Playhead 5"}), heard.lines);
    dispatcher.SendPlayhead(6);
    dispatcher.Drain();
    EXPECT_EQ("Playhead 6", heard.lines.back());
}

TEST(GuiDispatcher, LampAlreadyInTheStateSent_IsNotSentAgain) {
    GuiDispatcher dispatcher;
    Listener heard(dispatcher);
    dispatcher.SendVampOff();
    dispatcher.SendVampOff();
    dispatcher.SendVampOn();
    dispatcher.SendVampOn();
    dispatcher.SendVampOff();
    dispatcher.Drain();
    EXPECT_EQ((Lines{"VampOff", "VampOn", "VampOff"}), heard.lines);
}

TEST(GuiDispatcher, HandlerAddedLater_HearsTheLampWhateverOthersHeard) {
    GuiDispatcher dispatcher;
    dispatcher.SendVampOn();
    Listener early(dispatcher);
    dispatcher.SendVampOn();
    dispatcher.Drain();
    Listener late(dispatcher);
    dispatcher.SendVampOn();
    dispatcher.Drain();
    EXPECT_EQ(Lines{"VampOn"}, early.lines);
    EXPECT_EQ(Lines{"VampOn"}, late.lines);
}

TEST(GuiDispatcher, HandlerAdded_DoesNotHearWhatWasSentBefore) {
    GuiDispatcher dispatcher;
    Gate gate(dispatcher);
    gate.Close();
    dispatcher.SendBarBeat("before");
    Listener heard(dispatcher);
    dispatcher.SendBarBeat("after");
    gate.Open();
    dispatcher.Drain();
    EXPECT_EQ(Lines{"BarBeat 'after'"}, heard.lines);
}

TEST(GuiDispatcher, HandlerRemoved_HearsNoMoreNotEvenWhatWaits) {
    GuiDispatcher dispatcher;
    Gate gate(dispatcher);
    int heard = 0;
    const auto id = dispatcher.AddHandler([&heard](const GuiNotification&) { ++heard; });
    gate.Close();
    dispatcher.SendPlaybackStarted();
    dispatcher.RemoveHandler(id);
    dispatcher.RemoveHandler(id);
    gate.Open();
    dispatcher.Drain();
    EXPECT_EQ(0, heard);
}

TEST(GuiDispatcher, RemovingAHandlerThatRuns_WaitsForIt) {
    GuiDispatcher dispatcher;
    Gate gate(dispatcher);
    gate.Close();
    std::atomic<bool> opened{false};
    std::thread opener([&] {
        opened = true;
        gate.Open();
    });
    dispatcher.RemoveHandler(gate.Id());
    EXPECT_TRUE(opened);
    opener.join();
}

TEST(GuiDispatcher, RemovedHandler_LetsGoOfWhatItOwns) {
    GuiDispatcher dispatcher;
    const auto owned = std::make_shared<int>(1);
    const auto id = dispatcher.AddHandler([owned](const GuiNotification&) {});
    dispatcher.SendNoNextSong();
    dispatcher.RemoveHandler(id);
    EXPECT_EQ(1, owned.use_count());
}

TEST(GuiDispatcher, InsideAHandler_EverythingMayBeCalled) {
    GuiDispatcher dispatcher;
    Listener heard(dispatcher);
    GuiDispatcher::HandlerId self = 0;
    int calls = 0;
    self = dispatcher.AddHandler([&](const GuiNotification&) {
        ++calls;
        dispatcher.RemoveHandler(self);
        dispatcher.Drain();
        dispatcher.AddHandler([&calls](const GuiNotification&) { calls += 10; });
        dispatcher.SendBarBeat("from the handler");
    });
    dispatcher.SendNoNextSong();
    dispatcher.Drain();
    dispatcher.Drain();
    EXPECT_EQ(11, calls);
    EXPECT_EQ((Lines{"NoNextSong", "BarBeat 'from the handler'"}), heard.lines);
}

TEST(GuiDispatcher, PrepareForExitInsideAHandler_EndsTheCalls) {
    GuiDispatcher dispatcher;
    int calls = 0;
    dispatcher.AddHandler([&](const GuiNotification&) {
        ++calls;
        dispatcher.PrepareForExit();
    });
    dispatcher.AddHandler([&](const GuiNotification&) { calls += 10; });
    dispatcher.SendNoNextSong();
    dispatcher.SendNoNextSong();
    dispatcher.Drain();
    dispatcher.SendNoNextSong();
    dispatcher.PrepareForExit();
    dispatcher.Drain();
    EXPECT_EQ(1, calls);
}

TEST(GuiDispatcher, AfterPrepareForExit_NothingIsHeardAndNothingWaits) {
    GuiDispatcher dispatcher;
    Listener before(dispatcher);
    dispatcher.PrepareForExit();
    Listener after(dispatcher);
    dispatcher.SendPlaybackStopped();
    dispatcher.Drain();
    EXPECT_TRUE(before.lines.empty());
    EXPECT_TRUE(after.lines.empty());
}

TEST(GuiDispatcher, HandlerThatThrows_IsLoggedAndKept) {
    const test_support::TemporaryDirectory directory;
    kit::SetThreadExceptionLogPath(directory / "tavo.threaderr");
    GuiDispatcher dispatcher;
    int calls = 0;
    dispatcher.AddHandler([&](const GuiNotification&) {
        if (++calls == 1) throw std::runtime_error("The display fell over.");
        throw 7;
    });
    Listener heard(dispatcher);
    dispatcher.SendPlaybackStarted();
    dispatcher.SendPlaybackStopped();
    dispatcher.Drain();
    kit::SetThreadExceptionLogPath("");
    EXPECT_EQ(2, calls);
    EXPECT_EQ((Lines{"PlaybackStarted", "PlaybackStopped"}), heard.lines);
    const std::string log = kit::ReadFile(directory / "tavo.threaderr", 4096);
    EXPECT_NE(std::string::npos, log.find("The display fell over. (platform/tavo_core/src/gui_dispatcher, line "));
    EXPECT_NE(std::string::npos, log.find("Unknown exception."));
}

namespace {

/// Says nothing of itself.
struct Speechless : std::exception {
    const char* what() const noexcept override { return nullptr; }
};

}  // namespace

TEST(GuiDispatcher, HandlerThatThrowsWhatSaysNothing_IsLoggedAndTheThreadGoesOn) {
    const test_support::TemporaryDirectory directory;
    kit::SetThreadExceptionLogPath(directory / "tavo.threaderr");
    GuiDispatcher dispatcher;
    const auto thrower = dispatcher.AddHandler([](const GuiNotification&) { throw Speechless(); });
    Listener heard(dispatcher);
    dispatcher.SendPlaybackStarted();
    dispatcher.Drain();
    dispatcher.RemoveHandler(thrower);
    dispatcher.SendPlaybackStopped();
    dispatcher.Drain();
    kit::SetThreadExceptionLogPath("");
    EXPECT_EQ((Lines{"PlaybackStarted", "PlaybackStopped"}), heard.lines);
    EXPECT_NE(std::string::npos, kit::ReadFile(directory / "tavo.threaderr", 4096).find("Unknown exception."));
}

TEST(GuiDispatcher, DestroyedWithHandlersAndWaitingNotifications_Ends) {
    for (int round = 0; round < 200; ++round) {
        GuiDispatcher dispatcher;
        std::atomic<int> calls{0};
        dispatcher.AddHandler([&calls](const GuiNotification&) { ++calls; });
        for (int i = 0; i < round % 4; ++i)
            dispatcher.SendNoNextSong();
    }
}

TEST(GuiDispatcher, SendersAddersAndRemoversAtOnce_EachSendersStatusesStayComplete) {
    constexpr int Sends = 2000;
    GuiDispatcher dispatcher;
    std::array<int, 3> nextOf{};
    bool inOrder = true;
    dispatcher.AddHandler([&](const GuiNotification& n) {
        if (n.type != notify::GuiNotificationType::StatusFlowControl) return;
        const auto sender = static_cast<std::size_t>(n.text.front() - 'a');
        inOrder = inOrder && n.number == nextOf[sender]++;
    });
    std::vector<std::thread> threads;
    for (const char* sender : {"a", "b", "c"}) {
        threads.emplace_back([&dispatcher, sender] {
            for (int i = 0; i < Sends; ++i) {
                dispatcher.SendStatusFlowControl(sender, i);
                dispatcher.SendPlayhead(i);
            }
        });
    }
    threads.emplace_back([&dispatcher] {
        for (int i = 0; i < 500; ++i) {
            auto alive = std::make_unique<std::atomic<int>>(0);
            const auto id = dispatcher.AddHandler([&calls = *alive](const GuiNotification&) { ++calls; });
            if (i % 8 == 0) dispatcher.Drain();
            dispatcher.RemoveHandler(id);
            alive.reset();
        }
    });
    for (std::thread& thread : threads)
        thread.join();
    dispatcher.Drain();
    EXPECT_TRUE(inOrder);
    EXPECT_EQ((std::array<int, 3>{Sends, Sends, Sends}), nextOf);
}
