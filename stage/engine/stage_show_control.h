#pragma once

#include <cstdint>
#include <list>
#include <optional>
#include <vector>

#include "player_core/show_control.h"

namespace stage {

/// Flow control as the engine uses it: the questions of one arrival answered in one turn of the seek lock. The rules of
/// ShowControl hold: thread-safe, blocking, not real-time safe.
class StageShowControl : public ShowControl {
public:
    /// Keeps references; they outlive the object.
    StageShowControl(ActiveSongNumber& activeSongNumber, const tavo_midi::ShowData& showData, UserControls& controls);

    HowToPlay& GetHowToPlay() override { return howToPlay_; }
    /// Beyond rebuilding it keeps playback in the loops, the hold and the countdown that it is in and that the new log
    /// still has, passes and releases included, and on its way to where a seek sends it: an edit elsewhere in the song
    /// must not let a vamp run out. Throws std::logic_error when no song is loaded.
    void LoadNewChangeLog() override;
    /// Beyond the seek of the stop it keeps what the operator has decided: a vamp around the caesura that was left is
    /// left, although the seek comes upon it anew. Where a cut begins at the caesura, playback goes on after it and the
    /// stop is done with, so that the next caesura stops as well.
    void OnCaesuraStop() override;

    /// What the engine finds when it arrives at a tick.
    struct Arrival {
        /// A jump was made since the last arrival, by a seek or a loop; it is taken with this answer. `tick` is its
        /// target and nothing else was done.
        bool hasJumped = false;
        bool isForLoop = false;  ///< the jump was made by a vamp or a repeat
        /// A fermata ends here and was not released: playback has to wait short of `tick`. Nothing else was done.
        bool isHeld = false;
        std::uint32_t tick = 0;
        double tempoScale = 1.0;
        int transposition = 0;
        /// First end of an active loop.
        std::optional<std::uint32_t> loopEnd;
    };

    /// Puts flow control and the tracker at `tick`, unless a jump waits or a fermata holds.
    Arrival ArriveAt(std::uint32_t tick);
    /// Searches the advance and answers a copy of the result. The advance is cut short at the first active loop's end,
    /// which the search itself passes over.
    FindNextControlEventResult Search(std::uint32_t fromTick, std::uint32_t toTick);
    /// Moves on to the end of a cut.
    void SkipTo(std::uint32_t tick);

    /// What others may have changed since the last arrival.
    struct Outside {
        std::optional<std::uint32_t> jump;  ///< where a jump that the engine has not made yet leads to
        // What sounds at the tracker's position.
        double tempoScale = 1.0;
        int transposition = 0;
    };
    /// Nothing while another thread holds the seek lock: it does not wait.
    [[nodiscard]] std::optional<Outside> TryToLook();
    /// Waits for the seek lock.
    [[nodiscard]] Outside Look();
    /// The position that a jump which the engine has not made yet leads to.
    [[nodiscard]] std::optional<std::uint32_t> GetWaitingJump();

    /// A copy of the active loops, the one that ends soonest first.
    [[nodiscard]] std::vector<LoopEvent> CopyActiveLoops();
    /// Hands the message to the OSC callback, if one is set.
    void SendOsc(const CL::Osc& message);

private:
    [[nodiscard]] Outside LookUnderLock_();
    [[nodiscard]] std::optional<unsigned int> FindLostFermata_(const FlowState& before);
    [[nodiscard]] bool CancelAgain_(const std::list<LoopEvent>& before);

    // Guarded by the seek lock.
    HowToPlay howToPlay_;
};

}  // namespace stage
