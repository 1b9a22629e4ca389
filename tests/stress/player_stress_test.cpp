#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <iostream>
#include <mutex>
#include <random>
#include <thread>
#include <vector>

#include "tavo_core/callback_dispatcher.h"
#include "tavo_core/gui_dispatcher.h"
#include "tests/stress/stress_show.h"
#include "tests/stress/watchdog.h"

namespace {

using namespace stress;

/// One player, and everybody who has to do with it at once.
class Hammer {
public:
    Hammer() {
        auto feed = std::make_unique<gui::GuiUpdate>(show_.GetPlayer(), [this](unsigned int* tick) {
            *tick = playhead_;
            return true;
        });
        feed->SetInterval(0.001);
        SetGuiUpdate(std::move(feed));
        GetGuiUpdate().StartUpdateGenerator();
        show_.GetPlayer().LoadSong("1");
        notify::callbackDispatcher.AddCallback(this, notify::names::reportTargetTempo, [this](void* tempo) {
            if (*static_cast<double*>(tempo) > 0) ++tempos_;
        });
        handler_ = notify::guiDispatcher.AddHandler([this](const notify::GuiNotification& notification) {
            ++notifications_;
            // A display that asks back while it is told.
            if (notification.type == notify::GuiNotificationType::VampOn) static_cast<void>(Player_().GetTickIndex());
        });
    }

    ~Hammer() {
        notify::guiDispatcher.RemoveHandler(handler_);
        notify::callbackDispatcher.RemoveCallbacksForTarget(this);
        SetGuiUpdate(nullptr);
    }

    void Run(std::chrono::seconds duration) {
        std::vector<std::thread> threads;
        threads.push_back(Start_("host", &Hammer::HostStep_));
        threads.push_back(Start_("MIDI", &Hammer::MidiStep_));
        threads.push_back(Start_("engine", &Hammer::EngineStep_));
        threads.push_back(Start_("display", &Hammer::DisplayStep_));
        {
            std::unique_lock lock(mutex_);
            ended_.wait_for(lock, duration, [] { return false; });
        }
        isEnding_ = true;
        for (std::thread& thread : threads)
            thread.join();
        notify::guiDispatcher.Drain();
    }

    /// Everybody got through, and what they did had an effect.
    void ExpectWorkDone() {
        std::cout << searches_ << " searches, " << jumps_ << " jumps, " << caesuras_ << " caesuras, " << songsEnded_
                  << " songs ended, " << Player_().internalCuts << " seeks into cuts, " << notifications_
                  << " notifications\n";
        EXPECT_GT(searches_, 0U);
        EXPECT_GT(jumps_, 0U);
        EXPECT_GT(Player_().internalCuts, 0U);
        EXPECT_GT(Player_().newChangeLogs, 0U);
        EXPECT_GT(notifications_, 0U);
        EXPECT_GT(tempos_, 0U);
    }

private:
    using Random = std::minstd_rand;
    using Step = void (Hammer::*)(Random&, Diary&);

    StressPlayer& Player_() { return show_.GetPlayer(); }
    StressShowControl& Flow_() { return show_.GetFlow(); }

    std::thread Start_(const char* name, Step step) {
        Diary& diary = watchdog_.Watch(name);
        const auto seed = static_cast<unsigned int>(name[0]);
        return std::thread([this, step, seed, &diary] {
            Random random(seed);
            while (!isEnding_)
                (this->*step)(random, diary);
            diary.Finish();
        });
    }

    static unsigned int Below_(Random& random, unsigned int end) { return static_cast<unsigned int>(random() % end); }

    void HostStep_(Random& random, Diary& diary);
    void MidiStep_(Random& random, Diary& diary);
    void EngineStep_(Random& random, Diary& diary);
    void DisplayStep_(Random& random, Diary& diary);
    void Search_(unsigned int from, unsigned int to, Diary& diary);
    void Obey_(unsigned int from, const FindNextControlEventResult& result, Diary& diary);

    Watchdog watchdog_;
    StressShow show_;
    std::atomic<unsigned int> playhead_{0};
    std::atomic<bool> isEnding_{false};
    std::mutex mutex_;
    std::condition_variable ended_;
    notify::GuiDispatcher::HandlerId handler_ = 0;
    std::atomic<std::uint64_t> searches_{0};
    std::atomic<std::uint64_t> jumps_{0};
    std::atomic<std::uint64_t> caesuras_{0};
    std::atomic<std::uint64_t> songsEnded_{0};
    std::atomic<std::uint64_t> notifications_{0};
    std::atomic<std::uint64_t> tempos_{0};
};

void Hammer::HostStep_(Random& random, Diary& diary) {
    StressPlayer& player = Player_();
    const unsigned int tick = Below_(random, StressShow::EndTick + 500);
    switch (Below_(random, 18)) {
        case 0:
            diary.Begin("loading a song");
            return player.LoadSong(std::to_string(1 + tick % 3));
        case 1:
            diary.Begin("activating a change log and loading it");
            StressShow::ActivateVersion(tick % StressShow::VersionCount);
            return player.LoadNewChangeLog([](unsigned int t) { return t + 1; });
        case 2:
            diary.Begin("activating a change log while playing");
            StressShow::ActivateVersion(tick % StressShow::VersionCount);
            return player.NotifyNewChangeLog();
        case 3:
            diary.Begin("seeking into the cut");
            return player.Seek(5 * 1920 + 600);
        case 4:
            diary.Begin("moving out of a cut");
            return player.MovePlayheadOutOfCut(tick, tick + 1920, [](unsigned int t) { return t; });
        case 5:
            diary.Begin("changing attacca");
            return player.SetAttaccaState("2", static_cast<unsigned char>(tick % 3));
        case 6:
            diary.Begin("stopping");
            player.UserRequestedStop();
            return player.Continue();
        case 7:
            diary.Begin("pausing");
            player.Pause(true);
            GetGuiUpdate().Pause();
            return player.Continue();
        case 8:
            diary.Begin("refreshing the display");
            GetGuiUpdate().UpdateAll();
            return player.EnsureGuiIsCurrent();
        case 9:
            diary.Begin("stepping to the previous song");
            return player.PrevSong();
        case 10:
            diary.Begin("changing tempo and key");
            player.SetTempoScale(0.5 + tick % 16 * 0.1);
            return player.SetTransposition(static_cast<int>(tick % 9) - 4);
        case 11:
            diary.Begin("fading");
            player.SetPlayerState(PlayerState::Faded);
            return player.FlowControlExit();
        default:
            diary.Begin("seeking");
            return player.Seek(tick);
    }
}

void Hammer::MidiStep_(Random& random, Diary& diary) {
    StressPlayer& player = Player_();
    switch (Below_(random, 8)) {
        case 0:
            diary.Begin("marker to the left");
            return player.SeekLeft();
        case 1:
            diary.Begin("marker to the right");
            return player.SeekRight();
        case 2:
            diary.Begin("previous bar");
            return player.SeekToPreviousMeasure();
        case 3:
            diary.Begin("next bar");
            return player.SeekToNextMeasure();
        case 4:
            diary.Begin("cancelling the caesura");
            return player.UserCancelCaesura();
        case 5:
            diary.Begin("exiting");
            return player.FlowControlExit();
        default:
            diary.Begin("continuing");
            return player.Continue();
    }
}

void Hammer::EngineStep_(Random& random, Diary& diary) {
    StressPlayer& player = Player_();
    if (!player.IsPlaying()) {
        diary.Begin("waiting for play");
        player.Play();
    }
    diary.Begin("arriving");
    const unsigned int from = Flow_().GetTickIndex();
    player.ClearJump();
    Flow_().Report(from);
    playhead_ = from;
    Flow_().ProcessLoopEventsAtCurrentTickIndex();
    if (player.GetJump()) {
        ++jumps_;
        return;
    }
    if (from >= Flow_().GetEndTickIndex()) {
        diary.Begin("reporting the end of the song");
        ++songsEnded_;
        if (player.CurrentSongIsAttacca()) {
            player.NextSong();
        } else {
            notify::callbackDispatcher.Notify(notify::names::stopped_at_end_of_song, nullptr);
        }
        // The last song has no next one.
        if (Flow_().GetTickIndex() >= Flow_().GetEndTickIndex()) player.LoadSong("1");
        return;
    }
    if (Below_(random, 500) == 0) {
        diary.Begin("recovering");
        player.ResetForRecovery();
        Flow_().RecoverySeek(from);
        return;
    }
    const unsigned int block = 1 + Below_(random, 700);
    const unsigned int loopEnd = Flow_().FirstLoopEnd();
    Search_(from, loopEnd > from ? std::min(from + block, loopEnd) : from + block, diary);
}

void Hammer::Search_(unsigned int from, unsigned int to, Diary& diary) {
    diary.Begin("searching");
    ++searches_;
    Flow_().FindNextControlEventOnAdvance(from, to);
    const FindNextControlEventResult result = Flow_().Result();
    // Somebody moved the playhead: what was found belongs to another place.
    if (Player_().GetJump()) return;
    Obey_(from, result, diary);
}

void Hammer::Obey_(unsigned int from, const FindNextControlEventResult& result, Diary& diary) {
    if (result.caesuraHere) {
        diary.Begin("stopping at a caesura");
        ++caesuras_;
        if (Player_().HasPendingCaesura()) Player_().GUINotifyCaesura();
        if (Player_().GetUserCanceledCaesura() || Player_().GetFermataCanceledCaesura()) {
            Flow_().ClearFermataCanceledCaesura();
        } else {
            Flow_().OnCaesuraStop();
        }
        Flow_().Report(Flow_().GetTickIndex() + 1);
    } else if (result.cutHere) {
        diary.Begin("skipping");
        Flow_().SkipAhead(from, result.tickIndex);
    } else if (!result.loopStartsHere) {
        diary.Begin("playing");
        Flow_().Report(std::max(from + 1, std::min(result.tickIndex, std::max(Flow_().FirstLoopEnd(), from + 1))));
    }
}

void Hammer::DisplayStep_(Random& random, Diary& diary) {
    diary.Begin("asking");
    StressPlayer& player = Player_();
    static_cast<void>(player.GetTickIndex());
    static_cast<void>(player.GetPlayerState());
    static_cast<void>(player.HasPendingCaesura());
    static_cast<void>(player.CurrentSongIsAttacca());
    static_cast<void>(player.GetJumpForVampRepeatOrCut());
    static_cast<void>(Flow_().GetSeekLeft());
    static_cast<void>(Flow_().SongIsNotSkip("3"));
    static_cast<void>(Flow_().GetCaesuraCountdown());
    static_cast<void>(Flow_().GetPreJumpTickIndex());
    if (Below_(random, 20) == 0) {
        diary.Begin("coming and going");
        const auto id = notify::guiDispatcher.AddHandler([](const notify::GuiNotification&) {});
        GetGuiUpdate().SendGuiUpdateWithoutCaesura(playhead_);
        notify::guiDispatcher.RemoveHandler(id);
    }
    // A display asks now and then; asking without a pause would only keep the writers of the change log waiting.
    std::unique_lock lock(mutex_);
    ended_.wait_for(lock, std::chrono::microseconds(200), [this] { return isEnding_.load(); });
}

// TAVO_STRESS_SECONDS sets for how long.
TEST(PlayerStress, HostMidiEngineAndFeedAtOnce_NeitherRaceNorHang) {
    Hammer hammer;
    hammer.Run(std::chrono::seconds(NumberFromEnvironment("TAVO_STRESS_SECONDS", 5)));
    hammer.ExpectWorkDone();
}

}  // namespace
