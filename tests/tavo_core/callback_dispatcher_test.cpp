#include "tavo_core/callback_dispatcher.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <future>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using notify::CallbackDispatcher;

namespace {

const int first = 0;
const int second = 0;

/// Adds letters to a text in the order in which callbacks run.
std::function<void(void*)> Write(std::string& text, char letter) {
    return [&text, letter](void*) { text += letter; };
}

/// A callback that does `begin` first is still running elsewhere when its target is removed.
void TestRemovalWaits(CallbackDispatcher& dispatcher, const std::function<void()>& begin) {
    std::promise<void> hasBegun;
    std::promise<void> mayGo;
    std::atomic<bool> released{false};
    dispatcher.AddCallback(&first, "play", [&](void*) {
        begin();
        hasBegun.set_value();
        mayGo.get_future().wait();
    });
    std::thread notifier([&] { dispatcher.Notify("play", nullptr); });
    hasBegun.get_future().wait();
    std::thread releaser([&] {
        released = true;
        mayGo.set_value();
    });
    dispatcher.RemoveCallbacksForTarget(&first);
    EXPECT_TRUE(released);
    notifier.join();
    releaser.join();
}

}  // namespace

TEST(CallbackDispatcher, Notified_RunsAtOnceOnTheCallersThreadInOrderOfAdding) {
    CallbackDispatcher dispatcher;
    std::string text;
    std::thread::id thread;
    dispatcher.AddCallback(&first, "play", Write(text, 'a'));
    dispatcher.AddCallback(&second, "play", Write(text, 'b'));
    dispatcher.AddCallback(&first, "stop", Write(text, 'x'));
    dispatcher.AddCallback(&first, "play", [&](void*) { thread = std::this_thread::get_id(); });
    dispatcher.Notify("play", nullptr);
    EXPECT_EQ("ab", text);
    EXPECT_EQ(std::this_thread::get_id(), thread);
    dispatcher.Notify("unknown", nullptr);
    EXPECT_EQ("ab", text);
}

TEST(CallbackDispatcher, Payload_IsHandedOnAsItIs) {
    CallbackDispatcher dispatcher;
    double tempo = 104.5;
    dispatcher.AddCallback(&first, "tempo", [](void* data) { *static_cast<double*>(data) *= 2; });
    dispatcher.Notify("tempo", &tempo);
    EXPECT_EQ(209, tempo);
}

TEST(CallbackDispatcher, Removed_IsTheTargetAndNoOther) {
    CallbackDispatcher dispatcher;
    std::string text;
    dispatcher.AddCallback(&first, "play", Write(text, 'a'));
    dispatcher.AddCallback(&second, "play", Write(text, 'b'));
    dispatcher.AddCallback(&first, "stop", Write(text, 'c'));
    dispatcher.RemoveCallbacksForTarget(&first);
    dispatcher.RemoveCallbacksForTarget(&first);
    dispatcher.Notify("play", nullptr);
    dispatcher.Notify("stop", nullptr);
    EXPECT_EQ("b", text);
    dispatcher.AddCallback(&first, "play", Write(text, 'd'));
    dispatcher.Notify("play", nullptr);
    EXPECT_EQ("bbd", text);
}

TEST(CallbackDispatcher, InsideACallback_NotifyingAddingAndRemovingItselfWork) {
    CallbackDispatcher dispatcher;
    std::string text;
    dispatcher.AddCallback(&first, "outer", [&](void*) {
        text += '(';
        dispatcher.Notify("inner", nullptr);
        dispatcher.AddCallback(&second, "outer", Write(text, 'n'));
        dispatcher.RemoveCallbacksForTarget(&first);
        text += ')';
    });
    dispatcher.AddCallback(&first, "outer", Write(text, 'x'));
    dispatcher.AddCallback(&second, "inner", Write(text, 'i'));
    dispatcher.Notify("outer", nullptr);
    EXPECT_EQ("(i)", text) << "a callback removed meanwhile is not started, one added meanwhile neither";
    dispatcher.Notify("outer", nullptr);
    EXPECT_EQ("(i)n", text);
}

TEST(CallbackDispatcher, CallbackThatThrows_EndsTheCallAndLeavesNothingRunning) {
    CallbackDispatcher dispatcher;
    std::string text;
    dispatcher.AddCallback(&first, "play", [](void*) { throw std::runtime_error("no"); });
    dispatcher.AddCallback(&second, "play", Write(text, 'b'));
    EXPECT_THROW(dispatcher.Notify("play", nullptr), std::runtime_error);
    EXPECT_EQ("", text);
    std::thread([&] { dispatcher.RemoveCallbacksForTarget(&first); }).join();
    dispatcher.Notify("play", nullptr);
    EXPECT_EQ("b", text);
}

TEST(CallbackDispatcher, RemovingWhileItRunsElsewhere_WaitsForItsEnd) {
    CallbackDispatcher dispatcher;
    TestRemovalWaits(dispatcher, [] {});
}

TEST(CallbackDispatcher, RemovedInItsOwnCallback_AnotherThreadsRemovalStillWaits) {
    CallbackDispatcher dispatcher;
    TestRemovalWaits(dispatcher, [&] { dispatcher.RemoveCallbacksForTarget(&first); });
}

TEST(CallbackDispatcher, TwoCallbacksThatRemoveEachOthersTarget_DoNotWaitForEver) {
    CallbackDispatcher dispatcher;
    std::promise<void> firstInside;
    std::promise<void> secondInside;
    const auto secondIsInside = secondInside.get_future().share();
    const auto firstIsInside = firstInside.get_future().share();
    dispatcher.AddCallback(&first, "one", [&](void*) {
        firstInside.set_value();
        secondIsInside.wait();
        dispatcher.RemoveCallbacksForTarget(&second);
    });
    dispatcher.AddCallback(&second, "two", [&](void*) {
        secondInside.set_value();
        firstIsInside.wait();
        dispatcher.RemoveCallbacksForTarget(&first);
    });
    std::thread one([&] { dispatcher.Notify("one", nullptr); });
    std::thread two([&] { dispatcher.Notify("two", nullptr); });
    one.join();
    two.join();
    SUCCEED() << "both threads came back";
}

TEST(CallbackDispatcher, TargetsThatComeAndGoUnderFire_AreNeverCalledAfterTheirRemoval) {
    struct Target {
        std::atomic<bool> alive{true};
        std::atomic<int> calls{0};
    };
    CallbackDispatcher dispatcher;
    std::atomic<bool> finished{false};
    std::atomic<int> calledDead{0};
    std::vector<std::thread> notifiers;
    for (int i = 0; i < 3; ++i) {
        notifiers.emplace_back([&] {
            while (!finished)
                dispatcher.Notify("play", nullptr);
        });
    }
    std::vector<std::thread> owners;
    for (int i = 0; i < 2; ++i) {
        owners.emplace_back([&] {
            for (int round = 0; round < 1000; ++round) {
                const auto target = std::make_unique<Target>();
                for (int n = 0; n < 2; ++n) {
                    dispatcher.AddCallback(target.get(), "play", [t = target.get(), &calledDead](void*) {
                        ++t->calls;
                        if (!t->alive) ++calledDead;
                    });
                }
                dispatcher.Notify("play", nullptr);
                dispatcher.RemoveCallbacksForTarget(target.get());
                target->alive = false;
                if (target->calls == 0) ++calledDead;
            }
        });
    }
    for (std::thread& owner : owners)
        owner.join();
    finished = true;
    for (std::thread& notifier : notifiers)
        notifier.join();
    EXPECT_EQ(0, calledDead);
}

TEST(CallbackNames, AreDistinct) {
    using namespace notify::names;
    const std::set<std::string> all{
        internal_cut,          stopped_at_end_of_song,    reportTargetTempo,   midiCommandPlay,
        midiCommandPause,      midiCommandStop,           midiCommandNextSong, midiCommandPreviousSong,
        midiCommandNextMarker, midiCommandPreviousMarker, midiCommandContinue};
    EXPECT_EQ(11U, all.size());
    EXPECT_FALSE(all.contains(""));
}
