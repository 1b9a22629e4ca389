#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tavo_core/gui_dispatcher.h"
#include "tavo_midi/show_data.h"
#include "tests/player_core/support/test_player.h"

namespace test_support {

/// A one-song show of twenty bars in 4/4 (song "1", 480 ticks a quarter, 1920 a bar, the first bar at `startTick`), and
/// a performance of it. Edits are told in text, separated by ';':
///   vamp 960..1920 [max 3]   repeat 0..960 x2   cut 0..960   fermata 0..960   caesura 4800 [target 7]
///   marker 960 Verse   sfx 960 [..1920]   ambient 960..1920   osc 960 /light/go   click 0..960 4   attacca   skip
class FlowShow {
public:
    explicit FlowShow(const std::string& edits = "", unsigned int startTick = 0);
    ~FlowShow();
    FlowShow(const FlowShow&) = delete;
    FlowShow& operator=(const FlowShow&) = delete;

    /// Plays from where the playhead is until it arrives at `tick`, as an engine does, event by event. Ends early at a
    /// caesura.
    void PlayTo(unsigned int tick);
    /// Arrives at `tick`: sets it and lets the loops that end there decide.
    void ArriveAt(unsigned int tick);
    /// One search from the playhead: "to 1920", "stop at 960", "loop at 0", "cut to 1920", "caesura".
    std::string Search(unsigned int from, unsigned int to);
    void Exit() { Control().FlowControlExit(); }
    bool Seek(unsigned int tick) { return Control().Seek(tick); }
    /// Replaces the edits and tells flow control, as after an edit in the pit.
    void ChangeEdits(const std::string& edits);

    /// What happened since the last call, separated by "; ": "loop 0..960", "jump 0", "cut 1920", "caesura 4800",
    /// "lamp on", "lamp off", "in cut 1920" (internal_cut was raised).
    std::string Log();
    /// The statuses filed since the last call, in order of their ticks, which are told in whole beats and from 480 on:
    /// "Vamp 1 @960", "'' 0 @480".
    std::string Statuses();
    /// The active loops, first to end first: "@960..1920 1/0".
    std::string Loops();
    unsigned int Tick() { return Control().GetTickIndex(); }
    /// Where the display stands, which is the position that marker and measure steps start from.
    void ShowPosition(unsigned int tick);

    TestShowControl& Control() { return player_.GetShowControl(); }
    TestPlayer& GetPlayer() { return player_; }
    CL::SongLog& Edits();

private:
    void Hear_(const notify::GuiNotification& notification);
    void Note_(const std::string& line);
    void NoteCuts_();

    std::shared_ptr<CL::ChangeLog> MakeLog_(const std::string& edits) const;

    tavo_midi::ShowData showData_;
    TestPlayer player_{showData_};
    std::shared_ptr<CL::ChangeLog> log_;
    notify::GuiDispatcher::HandlerId handler_ = 0;
    std::vector<std::string> lines_;
    std::vector<std::string> statuses_;
    unsigned int statusTick_ = 0;
};

}  // namespace test_support
