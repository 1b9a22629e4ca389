#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "stage/live/live_renderer.h"
#include "stage/live/live_status.h"
#include "stage/live/output_feed.h"
#include "stage/live/output_keeper.h"
#include "stage/live/take_recorder.h"
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
    };

    /// Opens the show and begins to play silence. Throws what ShowSession and OpenOutput throw, one sentence.
    LiveShow(const std::string& showPath, const Options& options);
    /// Ends the sound, the take and the session, in that order.
    ~LiveShow();
    LiveShow(const LiveShow&) = delete;
    LiveShow& operator=(const LiveShow&) = delete;

    [[nodiscard]] ShowSession& GetSession() { return *session_; }
    [[nodiscard]] LiveRenderer& GetRenderer() { return *renderer_; }
    [[nodiscard]] const OutputFeed& GetFeed() const { return feed_; }
    [[nodiscard]] OutputKeeper::State GetOutputState() const { return keeper_->GetState(); }
    [[nodiscard]] const std::string& GetTakePath() const { return takePath_; }

    /// Leaves the command for the next block. What edits is carried out at once on the calling thread, which must be
    /// the host's, and may wait for the disk. The record is delivered.
    void Press(Command command);

    /// Reads a line of a script's language without its moment: "exit", "tempo 90%". Throws std::invalid_argument with
    /// one sentence without a full stop. The host's thread.
    [[nodiscard]] Command Read(const std::string& line, const CommandSource& source);

    /// Reports what is heard by now. The host's thread; to be called every few milliseconds. False once the show is to
    /// end.
    bool Deliver(LiveListener& listener);

    /// What a screen shows of the moment. The host's thread.
    [[nodiscard]] LiveStatus GetStatus();

    /// Puts the show where a take was when it broke off: song, place, loops, holds, countdown, tempo, transposition and
    /// volumes. It does not move; "play" or "go" goes on. Throws std::runtime_error with one sentence where the take
    /// does not fit the show.
    void Resume(const Take& take);

private:
    void Open_(const std::string& showPath);
    void RecoverEdits_();
    void Close_();
    void PressEdit_(const Command& command);
    void Fail_(const Command& command, const std::string& sentence);
    void NoteRecord_(const CommandRecord& record);
    void NoteMessage_(const std::string& sentence);
    void ReportLateFrames_();
    void FollowNotification_(const notify::GuiNotification& notification);
    void Track_(const std::string& song);
    void FillPlace_(LiveStatus& status);
    void FillFlow_(LiveStatus& status);
    [[nodiscard]] unsigned int CountBeats_(std::uint32_t tick, std::uint32_t end) const;

    // Constant after construction.
    const Options options_;
    std::string takePath_;

    OutputFeed feed_;
    std::unique_ptr<ShowSession> session_;
    std::unique_ptr<TakeRecorder> take_;
    std::unique_ptr<LiveRenderer> renderer_;
    std::unique_ptr<OutputKeeper> keeper_;

    std::mutex mutex_;
    // Guarded by mutex_.
    std::deque<CommandRecord> records_;
    std::deque<notify::GuiNotification> notifications_;
    std::deque<std::string> messages_;

    std::atomic<bool> isEnding_{false};
    bool isRealTime_ = false;  // the host's thread

    // Used by the host's thread.
    std::deque<LiveEvent> events_;  // not heard yet
    std::uint32_t lateFrames_ = 0;  // since the last report
    LiveEvent firstLate_;           // of them
    std::chrono::steady_clock::time_point nextLateReport_;
    std::string takeProblem_;
    LiveStatus shown_;  // what changes with notifications
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
