#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <string>

#include "player_core/gui_update.h"
#include "player_core/player.h"
#include "player_core/show_control.h"
#include "tavo_midi/show_data.h"

/// The smallest host that flow control and the display feed run in: no audio, no clock, one song.
namespace bench {

/// A transport that transports nothing.
class BenchPlayer : public Player {
public:
    BenchPlayer() : Player("") {}

    void SetFlow(ShowControl* flow) { flow_ = flow; }
    using Player::SetActiveSongNumber;

    double GetElapsedTime() override { return 0; }
    ShowControl& GetShowControl() override { return *flow_; }
    bool IsOutputRunning() override { return false; }
    bool StopIfPlaying() override { return false; }
    void LoadSong(const std::string& songNumber) override { SetActiveSongNumber(songNumber); }
    bool NextSong() override { return true; }
    void Pause(bool /*flag*/) override {}
    void PrevSong() override {}
    void Seek(unsigned int tickIndex) override { flow_->Seek(tickIndex); }
    void SeekLeft() override { flow_->SeekLeft(); }
    void SeekRight() override { flow_->SeekRight(); }
    void PrepareForExit() override {}
    void Shutdown() override {}
    void HaltOutput() override {}
    void Stop() override {}
    void ConductBeat() override {}
    void SetConductorMode(bool /*on*/) override {}
    void JumpToInternalCut(unsigned int tickIndex) override { flow_->Seek(tickIndex); }
    void OnNewChangeLog() override {}
    void Play() override {}

private:
    ShowControl* flow_ = nullptr;
};

/// Flow control with its protected operations open.
class BenchFlow : public ShowControl {
public:
    BenchFlow(BenchPlayer& player, const tavo_midi::ShowData& showData)
        : ShowControl(player.GetActiveSongNumberRef(), showData), howToPlay_(player.GetUserControls()) {}

    HowToPlay& GetHowToPlay() override { return howToPlay_; }
    using ShowControl::DoSkipAhead;
    using ShowControl::FindNextControlEventOnSeek;
    using ShowControl::GetLoopEvents_;
    using ShowControl::GetResult_;

private:
    HowToPlay howToPlay_;
};

/// A display feed whose passes are made by hand, from a playhead set by hand.
class BenchFeed : public gui::GuiUpdate {
public:
    explicit BenchFeed(Player& player)
        : gui::GuiUpdate(player, [this](unsigned int* tickIndex) {
              *tickIndex = playhead_;
              return true;
          }) {}
    // The playhead goes before the base, whose threads ask for it, does.
    ~BenchFeed() override { Quit(); }

    void MovePlayhead(unsigned int tickIndex) { playhead_ = tickIndex; }
    using gui::GuiUpdate::RunOnePass_;

private:
    std::atomic<unsigned int> playhead_{0};
};

/// A player, flow control and one loaded song. The process has one feed, which all stands use.
class Stand {
public:
    Stand(CL::SongLog songLog, TL::Timeline timeline, unsigned int ticksPerQuarter = 480);
    Stand(const Stand&) = delete;
    Stand& operator=(const Stand&) = delete;

    [[nodiscard]] BenchFlow& Flow() { return *flow_; }
    [[nodiscard]] BenchPlayer& GetPlayer() { return *player_; }
    [[nodiscard]] static BenchFeed& Feed();
    /// Makes this stand's edits the active ones, which a reload reads.
    void ActivateChangeLog();

private:
    tavo_midi::ShowData showData_;
    std::shared_ptr<CL::ChangeLog> changeLog_;
    std::unique_ptr<BenchPlayer> player_;
    std::unique_ptr<BenchFlow> flow_;
};

// A song of any number of event ticks, so laid out that the same ticks lie in its middle whatever its size.

inline constexpr unsigned int MiddleTick = 2100000000;
inline constexpr unsigned int TicksBetweenEvents = 4000;

/// The i-th event tick of a song with `events` of them (at most 10^6).
[[nodiscard]] unsigned int EventTick(std::size_t events, std::size_t i);
/// Loops and a few cuts, one event a tick, each shorter than the gap to the next; now and then one that covers several.
[[nodiscard]] CL::SongLog MakeSongLog(std::size_t events, bool songLongVamp);
/// Beats in bars of four, evenly over the song.
[[nodiscard]] TL::Timeline MakeTimeline(std::size_t events, std::size_t beats);
/// As many beats as events, but at least 100 and at most 10^5.
[[nodiscard]] TL::Timeline MakeTimeline(std::size_t events);

}  // namespace bench
