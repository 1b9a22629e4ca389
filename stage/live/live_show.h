#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "stage/live/live_renderer.h"
#include "stage/live/live_status.h"
#include "stage/live/output_feed.h"
#include "stage/live/output_keeper.h"
#include "stage/live/take_recorder.h"
#include "stage/live/wake_up.h"
#include "stage/session/show_session.h"
#include "tavo_core/bar_positions.h"
#include "tavo_core/change_log.h"
#include "tavo_core/gui_dispatcher.h"
#include "tavo_midi/how_to_play.h"

namespace stage {

/// Hears what happens in a performance, on the thread that calls LiveShow::Deliver, in order.
class LiveListener {
public:
    /// Playback did something that is heard now.
    virtual void OnLiveEvent(const LiveEvent& event) = 0;
    /// The desk has decided.
    virtual void OnRecord(const CommandRecord& record) = 0;
    /// The display was told something.
    virtual void OnNotification(const notify::GuiNotification& notification) = 0;
    /// A device was lost or is back, or something else is worth a sentence.
    virtual void OnMessage(const std::string& sentence) = 0;
    /// That was all for now; comes at every call of Deliver.
    virtual void OnDelivered() {}
    /// What the door wants shown of itself.
    virtual void AddToStatus(LiveStatus& /*status*/) {}

protected:
    ~LiveListener() = default;
};

/// A show that is performed: a session, the device that it sounds on, and the take that is made of it. The thread that
/// makes it is the host's; what comes from other doors is pressed from their threads.
class LiveShow {
public:
    struct Options {
        OutputChoice output;
        WhenLost whenLost = WhenLost::Hold;
        LiveRenderer::Options rendering;
        /// Where the take is written; empty for none.
        std::string takePath;
        /// Edits are refused.
        bool isLocked = false;
        std::string soundFont;
        std::string settingsDirectory;  ///< of the MIDI layer; empty takes the show's
        /// Hears of cues before they are heard; see LiveRenderer.
        LiveRenderer::CueListener onCue;
    };

    /// Opens the show and begins to play silence. Throws what ShowSession and OpenOutput throw, one sentence.
    LiveShow(const std::string& showPath, const Options& options);
    /// Ends the sound, the take and the session, in that order.
    ~LiveShow();
    LiveShow(const LiveShow&) = delete;
    LiveShow& operator=(const LiveShow&) = delete;

    [[nodiscard]] ShowSession& GetSession() { return *session_; }
    [[nodiscard]] LiveRenderer& GetRenderer() { return *renderer_; }
    [[nodiscard]] const OutputFeed& GetFeed() const { return *feed_; }
    [[nodiscard]] OutputKeeper::State GetOutputState() const { return keeper_->GetState(); }
    [[nodiscard]] bool IsLocked() const { return options_.isLocked; }
    [[nodiscard]] const std::string& GetTakePath() const { return takePath_; }

    /// Leaves the command for the next block. What edits is carried out at once on the calling thread, which must be
    /// the host's, and may wait for the disk. The record is delivered; that of an edit that was made only where the
    /// command has a tag, for what it changed has a record of its own.
    void Press(Command command);
    /// Tells the operator a sentence: it is delivered and stands in the take. Any thread.
    void NoteMessage(const std::string& sentence);

    /// Reads a line of a script's language without its moment: "exit", "tempo 90%". Throws std::invalid_argument with
    /// one sentence without a full stop. The host's thread.
    [[nodiscard]] Command Read(const std::string& line, const CommandSource& source);

    /// Reports what is heard by now. The host's thread; to be called every few milliseconds, and as soon as the wake-up
    /// rings. False once the show is to end. A listener that throws has missed what it was told just then; nobody else
    /// has, and it is said.
    bool Deliver(LiveListener& listener);
    /// A step of the host. What it throws, for want of memory say, is told as a sentence, a second later at the latest;
    /// the show goes on. The host's thread.
    template <class Step>
    void Attempt(Step&& step) {
        try {
            step();
        } catch (const std::exception& problem) {
            NoteTrouble_(problem);
        }
    }
    /// Hears the same, before the one that Deliver is given; outlives the object or is removed. The host's thread.
    void AddListener(LiveListener& listener) { listeners_.push_back(&listener); }
    void RemoveListener(LiveListener& listener) { std::erase(listeners_, &listener); }
    /// Rings when there is something to be delivered that cannot wait for the next few milliseconds. Others ring it to
    /// have Deliver called soon.
    [[nodiscard]] WakeUp& GetWakeUp() { return wakeUp_; }

    /// What a screen shows of the moment. The host's thread.
    [[nodiscard]] LiveStatus GetStatus();
    /// The same for another onlooker: the longest block stays the longest for GetStatus.
    [[nodiscard]] LiveStatus PeekStatus();

    /// Puts the show where a take was when it broke off: song, place, loops, holds, countdown, tempo, transposition and
    /// volumes. It does not move; "play" or "go" goes on. Throws std::runtime_error with one sentence where the take
    /// does not fit the show.
    void Resume(const Take& take);

private:
    void Open_(const std::string& showPath);
    void RecoverEdits_();
    void Close_();
    void PressEdit_(const Command& command);
    void NoteMade_(const Command& command);
    void Fail_(const Command& command, const std::string& sentence);
    void NoteRecord_(const CommandRecord& record);
    void NoteNotification_(const notify::GuiNotification& notification);
    void NoteTrouble_(const std::exception& problem) noexcept;
    void SayTrouble_();
    void TakeNews_();
    void TellNews_(LiveListener& listener);
    void FollowEvent_(const LiveEvent& event);
    void ReportLateFrames_();
    void ReportMissingPrograms_(const tavo_midi::SongData& song);
    void FollowNotification_(const notify::GuiNotification& notification);
    void Track_(const std::string& song);
    void FillLevels_(LiveStatus& status);
    void FillSetUp_(LiveStatus& status);
    void FillPlace_(LiveStatus& status);
    void NoteStanding_(const LiveEvent& event);
    [[nodiscard]] std::uint32_t FindStandingTick_() const;
    void FillFlow_(LiveStatus& status);
    [[nodiscard]] unsigned int CountBeats_(std::uint32_t tick, std::uint32_t end) const;

    // Constant after construction.
    const Options options_;
    std::string takePath_;

    std::unique_ptr<OutputFeed> feed_;
    std::unique_ptr<ShowSession> session_;
    std::unique_ptr<TakeRecorder> take_;
    std::unique_ptr<LiveRenderer> renderer_;
    std::unique_ptr<OutputKeeper> keeper_;

    /// What other threads have to say.
    struct News {
        std::vector<CommandRecord> records;
        std::vector<notify::GuiNotification> notifications;
        std::vector<std::string> messages;
    };
    std::mutex mutex_;
    News news_;  // guarded by mutex_

    WakeUp wakeUp_;
    std::atomic<bool> isEnding_{false};
    std::atomic<bool> isMemoryShort_{false};  // and nobody was told yet
    bool isRealTime_ = false;                 // the host's thread

    // Used by the host's thread.
    std::vector<LiveListener*> listeners_;
    std::vector<LiveListener*> hearing_;  // while they are told
    News told_;
    std::string trouble_;  // to be said
    std::chrono::steady_clock::time_point nextTrouble_;
    std::deque<LiveEvent> events_;  // not heard yet
    std::uint32_t lateFrames_ = 0;  // since the last report
    LiveEvent firstLate_;           // of them
    std::chrono::steady_clock::time_point nextLateReport_;
    std::string takeProblem_;
    std::set<std::string> checkedSongs_;  // what they miss in it was reported
    double longestBlockMs_ = 0;           // since GetStatus
    LiveStatus shown_;                    // what changes with notifications
    /// Where a playhead that is not moving was put, and what the display feed said then.
    struct Standing {
        std::uint32_t tick = 0;
        std::uint32_t shownTick = 0;
    };
    std::optional<Standing> standing_;
    // Of the song and the edits that are shown. The display feed's tracker posts neutral values after holds, caesuras
    // and seeks; this one tells what is in force.
    std::unique_ptr<HowToPlay> tracker_;
    std::shared_ptr<const CL::ChangeLog> trackedLog_;
    std::string trackedSong_;
    std::optional<TL::BarPositions> positions_;
    std::vector<unsigned int> beatTicks_;

    notify::GuiDispatcher::HandlerId handler_ = 0;
};

}  // namespace stage
