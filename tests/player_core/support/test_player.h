#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "player_core/gui_update.h"
#include "player_core/player.h"
#include "player_core/show_control.h"
#include "tavo_core/gui_dispatcher.h"
#include "tests/support/notification_log.h"

namespace test_support {

/// The names of the calls a concrete player received, in order; notifications may be added between them. Thread-safe.
class CallLog {
public:
    /// What was sent to the display before the call has been heard, and so stands before it.
    void Add(std::string call) {
        notify::guiDispatcher.Drain();
        AddHeard(std::move(call));
    }
    void AddHeard(std::string call) {
        const std::lock_guard lock(mutex_);
        calls_.push_back(std::move(call));
    }
    std::vector<std::string> Take() {
        notify::guiDispatcher.Drain();
        const std::lock_guard lock(mutex_);
        return std::exchange(calls_, {});
    }

private:
    std::mutex mutex_;
    std::vector<std::string> calls_;
};

/// Flow control with its doors open and nothing but a tracker of its own.
class TestShowControl : public ShowControl {
public:
    TestShowControl(ActiveSongNumber& activeSongNumber, const tavo_midi::ShowData& showData, UserControls& controls)
        : ShowControl(activeSongNumber, showData), howToPlay_(controls) {}

    HowToPlay& GetHowToPlay() override { return howToPlay_; }

    using ShowControl::DoExpireFermata;
    using ShowControl::DoRepeatOff;
    using ShowControl::DoSkipAhead;
    using ShowControl::FindNextControlEventOnSeek;
    using ShowControl::GetAmbientSfxInTickRange_;
    using ShowControl::GetLoopEvents_;
    using ShowControl::GetOscEvents_;
    using ShowControl::GetResult_;
    using ShowControl::GetSfxInTickRange_;
    using ShowControl::HasCutAtTickIndex;
    using ShowControl::RecoverySeek;
    using ShowControl::SetJump;

    /// Whether an operator's exit would still find a vamp to release.
    bool HoldsVamp() {
        const std::lock_guard lock(GetSeekLock());
        return GetLoopEvents_().GetHasVamp();
    }
    /// Puts playback at a caesura as if it had arrived there.
    void ArriveAtCaesura(unsigned int tickIndex) {
        SetTickIndex(tickIndex);
        FindNextControlEventOnAdvance(tickIndex, tickIndex + 1);
    }

private:
    HowToPlay howToPlay_;
};

/// The smallest concrete player: it plays nothing, keeps its state as told and writes down what it is asked to do.
class TestPlayer : public Player {
public:
    explicit TestPlayer(const tavo_midi::ShowData& showData)
        : Player("show directory"), showControl_(GetActiveSongNumberRef(), showData, GetUserControls()) {}

    TestShowControl& GetShowControl() override { return showControl_; }
    double GetElapsedTime() override { return 0; }
    bool IsOutputRunning() override { return false; }
    bool StopIfPlaying() override {
        calls.Add("StopIfPlaying");
        return stopsAsked;
    }
    void LoadSong(const std::string& songNumber) override {
        SetActiveSongNumber(songNumber);
        showControl_.LoadSong();
        calls.Add("LoadSong " + songNumber);
    }
    bool NextSong() override {
        calls.Add("NextSong");
        return hasNoNextSong;
    }
    void Pause(bool flag) override { calls.Add(flag ? "Pause true" : "Pause false"); }
    void PrevSong() override { calls.Add("PrevSong"); }
    void Seek(unsigned int tickIndex) override {
        if (onSeek) onSeek();
        calls.Add("Seek " + std::to_string(tickIndex));
    }
    void SeekLeft() override { calls.Add("SeekLeft"); }
    void SeekRight() override { calls.Add("SeekRight"); }
    void PrepareForExit() override { calls.Add("PrepareForExit"); }
    void Shutdown() override { calls.Add("Shutdown"); }
    void HaltOutput() override { calls.Add("HaltOutput"); }
    void Stop() override { calls.Add("Stop"); }
    void CancelFade() override { calls.Add("CancelFade"); }
    void ConductBeat() override { calls.Add("ConductBeat"); }
    void SetConductorMode(bool on) override { calls.Add(on ? "SetConductorMode true" : "SetConductorMode false"); }
    void JumpToInternalCut(unsigned int tickIndex) override {
        calls.Add("JumpToInternalCut " + std::to_string(tickIndex));
    }
    void ResetPlayerNoFillBuffers() override {
        calls.Add("ResetPlayerNoFillBuffers");
        Player::ResetPlayerNoFillBuffers();
    }
    void OnNewChangeLog() override { calls.Add("OnNewChangeLog"); }
    void Play() override { calls.Add("Play"); }

    using Player::GetNewChangeLogLoaded;
    using Player::GetUserCanceledCaesura;
    using Player::ResetForRecovery;
    using Player::ResetForRecoveryAdvance;
    using Player::SetActiveSongNumber;
    using Player::TakeNewChangeLogLoaded;

    CallLog calls;
    // What the operations answer.
    std::atomic<bool> stopsAsked{false};
    std::atomic<bool> hasNoNextSong{false};
    std::function<void()> onSeek;

private:
    TestShowControl showControl_;
};

/// A playhead as a test reports it, and a count of how often it was asked for.
class ReportedPosition {
public:
    /// False: none is available.
    std::atomic<bool> available{true};
    std::atomic<unsigned int> tickIndex{0};
    /// Called by every question, on the asking thread.
    std::function<void()> onAsked;

    bool Answer(unsigned int* position) {
        if (onAsked) onAsked();
        {
            const std::lock_guard lock(mutex_);
            ++asked_;
            changed_.notify_all();
        }
        if (!available) return false;
        *position = tickIndex;
        return true;
    }
    [[nodiscard]] unsigned int CountAsked() {
        const std::lock_guard lock(mutex_);
        return asked_;
    }
    /// Waits until it was asked for `count` times in all, calling `nudge` again and again: a signal that finds the
    /// update thread busy is lost. False if that does not happen.
    bool WaitUntilAsked(unsigned int count, const std::function<void()>& nudge) {
        std::unique_lock lock(mutex_);
        for (int attempt = 0; asked_ < count && attempt < 30000; ++attempt) {
            lock.unlock();
            nudge();
            lock.lock();
            changed_.wait_for(lock, std::chrono::milliseconds(1), [&] { return asked_ >= count; });
        }
        return asked_ >= count;
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    unsigned int asked_ = 0;
};

/// The display feed with its passes in the test's hands, on the test's thread.
class TestFeed : public gui::GuiUpdate {
public:
    TestFeed(Player& player, ReportedPosition& position)
        : GuiUpdate(player, [&position](unsigned int* tickIndex) { return position.Answer(tickIndex); }) {}

    using GuiUpdate::AdvanceToCurrentPosition;
    using GuiUpdate::GetInterval;
    using GuiUpdate::GetIsPaused;
    using GuiUpdate::GetShouldRun;
    using GuiUpdate::RunOnePass_;
    using GuiUpdate::SetShouldRun;
    using GuiUpdate::SetTickIndex_;
};

/// Runs an operation and tells the calls that the player received, the notifications between them, and what became of
/// the feed: "Stop; PlaybackStopped; feed updates".
inline std::string CallsOf(TestPlayer& player, TestFeed& feed, const std::function<void()>& operation) {
    const bool wasPaused = feed.GetIsPaused();
    (void)feed.UseCurrentPosition();
    player.calls.Take();
    const auto handler = notify::guiDispatcher.AddHandler([&player](const notify::GuiNotification& notification) {
        using enum notify::GuiNotificationType;
        switch (notification.type) {
            case PlaybackStarted:
            case PlaybackStopped:
            case NoNextSong:
            case Caesura:
                player.calls.AddHeard(AsLine(notification));
                break;
            default:  // a pass of the feed's thread may come in between at any moment
                break;
        }
    });
    operation();
    std::vector<std::string> calls = player.calls.Take();
    notify::guiDispatcher.RemoveHandler(handler);
    if (feed.GetIsPaused() != wasPaused) calls.emplace_back(wasPaused ? "feed runs" : "feed pauses");
    if (feed.UseCurrentPosition()) calls.emplace_back("feed updates");
    std::string text;
    for (const std::string& call : calls)
        text += (text.empty() ? "" : "; ") + call;
    return text;
}

}  // namespace test_support
