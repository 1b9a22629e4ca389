#pragma once

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "player_core/flow_state.h"
#include "player_core/future_status_flow_control_updates.h"
#include "tavo_core/gui_batch.h"
#include "tavo_core/song_log.h"
#include "tavo_core/timeline.h"
#include "tavo_midi/how_to_play.h"

class Player;

namespace gui {

/// Keeps the display in step with playback. Its update thread ("GuiUpdate") makes one pass for every signal it
/// receives: it reads the playhead and posts what changed to notify::guiDispatcher. Its generator
/// ("update_generator") signals at an interval while it is not paused. Positions are tick indices.
///
/// All public operations are thread-safe. They take the object's recursive mutex unless said otherwise; it comes after
/// the seek lock and before the mutex of the future statuses.
class GuiUpdate {
public:
    /// Starts the update thread, which waits for its first signal. `player` must outlive the object. `getPosition`
    /// writes the playhead and returns true, or returns false while there is none; it is called on the update thread
    /// and on the callers of UpdateAll, with no lock held. The generator is paused and not started.
    GuiUpdate(Player& player, std::function<bool(unsigned int*)> getPosition);
    /// Quits. If PrepareForExit was called before, the threads are still there and the process terminates.
    virtual ~GuiUpdate();
    GuiUpdate(const GuiUpdate&) = delete;
    GuiUpdate& operator=(const GuiUpdate&) = delete;

    /// Resets, moves to `tickIndex`, sends the statuses filed up to there and drops a caesura's pending zero count.
    /// Sends no signal.
    virtual void ResetAndSeekToTickIndex(unsigned int tickIndex);
    /// Forgets the position and everything about a seek.
    virtual void Reset();
    /// Moves to `tickIndex` and drops the filed statuses. Until a reported position shows that playback has followed,
    /// reported positions do not change GetTickIndex. Sends no signal.
    virtual void Seek(unsigned int tickIndex);

    /// Starts the generator. A second call while one runs terminates the process.
    void StartUpdateGenerator();
    /// Ends both threads and waits for them; the caller does not hold the object's mutex. After the first call, and
    /// after PrepareForExit, it does nothing. On the update thread itself it throws std::system_error
    /// resource_deadlock_would_occur.
    void Quit();
    /// Tells the threads to end and does not wait. For a process that exits without destroying the object.
    void PrepareForExit();

    /// Holds the generator from its next look on.
    void Pause();
    /// Lets the generator go on; without a pause it does nothing, and takes no lock.
    void Unpause();
    /// The generator's period, rounded to whole milliseconds; 33 ms at first. A negative value becomes 0, one that is
    /// too long the longest count; one that is not a number changes nothing.
    void SetInterval(double seconds);

    /// Signals the update thread. Takes no lock; a signal that finds the thread busy is lost.
    void SendGuiUpdate();
    /// Marks that the current position is wanted, and signals.
    void UpdateOnce();
    /// Whether UpdateOnce was called since the last call.
    bool UseCurrentPosition();
    /// Queues the position, and signals.
    void SendGuiUpdateWithTickIndex(unsigned int tickIndex);
    /// The same without the caesura's zero count that is filed at the position or pending.
    void SendGuiUpdateWithoutCaesura(unsigned int tickIndex);
    /// Sends the whole display on the calling thread, and the statuses that are due.
    void UpdateAll();

    /// Files a status; see FutureStatusFlowControlUpdates. Takes only the mutex of the future statuses.
    void AddFutureStatusFlowControl(const std::string& type, int count, unsigned int tickIndex);
    /// The last accepted playhead.
    [[nodiscard]] unsigned int GetTickIndex();
    /// The data of the song that is played from now on; it is copied. `ticksPerQuarter` is the song's resolution.
    void SetData(const CL::SongLog& songLog, const TL::Timeline& timeline, unsigned int ticksPerQuarter);

    /// Where the display is and what it still has to show.
    [[nodiscard]] DisplayState Snapshot();
    /// Puts the feed where `state` was taken. Posts nothing and sends no signal.
    void Restore(const DisplayState& state);

    /// The object's mutex, for callers that must not interleave their reads of song data with a pass.
    [[nodiscard]] std::recursive_mutex& GetMutex() { return mutex_; }

protected:
    /// One whole pass on the calling thread. A feed without a running clock calls it instead of signalling. The caller
    /// holds no lock: the mutex is released around the target-tempo callback and the statuses.
    void RunOnePass_();
    /// Takes over the position that is reported now and returns it; without one, the last accepted playhead.
    unsigned int AdvanceToCurrentPosition();
    /// Passes a reported position through the filter of the last seek and returns the accepted playhead.
    unsigned int SetTickIndex_(unsigned int tickIndex);
    /// Whether the generator is held; true at first.
    [[nodiscard]] bool GetIsPaused();
    /// Whether the threads go on after what they are at; false for good after Quit and PrepareForExit.
    [[nodiscard]] bool GetShouldRun();
    /// Wakes neither thread: one that waits for a signal ends at the next one.
    void SetShouldRun(bool shouldRun);
    /// The generator's period in milliseconds.
    [[nodiscard]] unsigned int GetInterval();

private:
    void RunLoop();
    void UpdateGeneratorRunLoop();
    void Sleep();
    void SayFinished_(bool& finished);
    void JoinFinished_(std::thread& thread, const bool& finished, std::condition_variable& wakeUp);

    using Batch = std::optional<notify::GuiBatch>;

    // The steps of a pass, in their order; mutex_ is held once.
    void SendPlayheadMarkerAndTitle_(unsigned int tickIndex);
    void SendBarMeterAndClick_();
    void SendTranspositionAndKey_(bool resetDisplay);
    void SendTempo_(bool resetDisplay, std::unique_lock<std::recursive_mutex>& lock, Batch& batch);
    void NotifyTargetTempo_(std::unique_lock<std::recursive_mutex>& lock, Batch& batch);
    void SendMarkerAndPage_(bool resetDisplay, unsigned int tickIndex);
    void SendMarkerOrNone_(unsigned int tickIndex);
    void SendMarker_();

    // Synchronises itself.
    std::recursive_mutex mutex_;
    // Constant after construction.
    Player& player_;
    const std::function<bool(unsigned int*)> getPosition_;

    // Guarded by mutex_, down to tickIndexQueue_.
    HowToPlay howToPlay_;
    // Holds its place among the members; nothing is ever in it.
    std::map<unsigned int, unsigned int> unused_;
    // Atomic because it is read without the mutex while no position is available.
    std::atomic<unsigned int> tickIndex_{0};
    unsigned int seekFromTickIndex_ = 0;
    bool seekForward_ = false;
    bool seekPending_ = false;
    bool resetDisplay_ = false;
    bool useCurrentPosition_ = false;
    std::deque<unsigned int> tickIndexQueue_;

    // Synchronise themselves. The mutexes exist for their conditions only and guard no field.
    std::condition_variable pauseCondition_;
    std::mutex pauseMutex_;
    std::mutex updateMutex_;
    std::condition_variable updateCondition_;

    // Guarded by mutex_, down to generatorStarted_.
    unsigned int interval_ = 33;
    // Atomic because Unpause looks at it before it takes the mutex.
    std::atomic<bool> isPaused_{true};
    bool shouldRun_ = true;
    bool generatorStarted_ = false;

    // Synchronise themselves.
    FutureStatusFlowControlUpdates futureUpdates_;
    std::mutex finishedMutex_;
    std::condition_variable finishedCondition_;
    // Guarded by finishedMutex_.
    bool threadFinished_ = false;
    bool generatorFinished_ = false;
    // Set by the constructor, StartUpdateGenerator and Quit only.
    std::thread thread_;
    std::thread generatorThread_;
};

}  // namespace gui

/// The process's display feed. One must be installed.
[[nodiscard]] gui::GuiUpdate& GetGuiUpdate();
/// Installs a display feed and destroys the one that was installed before. Not thread-safe: the host calls it while
/// nothing plays. The feed installed last is never destroyed at the process's exit.
void SetGuiUpdate(std::unique_ptr<gui::GuiUpdate>&& guiUpdate);
