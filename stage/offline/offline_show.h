#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "stage/control/script.h"
#include "stage/control/take.h"
#include "stage/engine/true_peak_limiter.h"
#include "stage/offline/trace.h"
#include "stage/session/show_session.h"

namespace stage {

struct OfflineOptions {
    /// The operator starts these songs and those between them in the show's order; attaccas are followed anyway.
    std::string firstSong;
    std::string lastSong;
    /// Playback begins here in the first song, as if somebody had sought the place before; empty: at its start.
    std::optional<std::uint32_t> fromTick;
    /// The performance ends when playback first arrives here in the last song: nothing of the place sounds, and what
    /// sounds then rings out. Empty: at its end.
    std::optional<std::uint32_t> toTick;
    /// What the operator does besides; without it an automatic operator leaves every vamp in its second pass, and
    /// every hold and caesura after two seconds.
    std::optional<std::vector<ScriptLine>> script;
    /// Gives the operator's commands to the show, on the rendering thread; empty: to the session's desk. For commands
    /// that are to take another way to it.
    std::function<void(const Command& command)> press;
    bool tracesBeats = false;
    /// Where nobody decides any more, because the operator is the automatic one or the script has run out: a vamp that
    /// goes round more often without being left, and a song that is played longer than it is written by more than this,
    /// end the performance with a remark.
    int mostPasses = DefaultMostPasses;
    double mostOvertimeSeconds = DefaultMostOvertimeSeconds;

    static constexpr int DefaultMostPasses = 16;
    static constexpr double DefaultMostOvertimeSeconds = 30 * 60;

    /// The click is part of the sound, as where the settings say so; otherwise it goes to `clickSink` only, if there is
    /// one.
    bool mixesClick = false;
    std::function<void(const float* left, const float* right, std::uint32_t frames)> clickSink;
    /// Hears the output groups that leave by a pair of their own, `output` being which of them, in the settings' order.
    std::function<void(std::size_t output, const float* left, const float* right, std::uint32_t frames)> groupSink;
    /// The click sounds on every beat, not only where a click is edited.
    bool clicksEverywhere = false;
    /// The script is a take: nothing is played but what it says, in blocks as they were then, from the session's first
    /// frame on. The session is opened as MakeTakeSessionOptions says, and the songs above are left empty.
    std::optional<TakeSettings> take;
};

struct OfflineResult {
    std::int64_t frames = 0;
    std::vector<std::string> songs;   ///< those that were played, in order
    float peak = 0;                   ///< highest amplitude before the limiter, 1 is full scale
    std::uint64_t limitedFrames = 0;  ///< that the limiter has turned down
    /// Why it ended where it did, a sentence each; empty when everything was played.
    std::vector<std::string> remarks;
    /// Sounds of the songs that were played which could not be played, or not whole: a sentence without a full stop
    /// each, in the order of the songs.
    std::vector<std::string> soundProblems;
};

/// How a session is opened that an OfflineShow plays: it keeps no journal, sends no time code and waits for nobody.
[[nodiscard]] ShowSession::Options MakeOfflineSessionOptions(std::uint32_t framesPerSecond = 48000);

/// How a session is opened in which a take is played again: edits are made in memory, and nothing is saved.
[[nodiscard]] ShowSession::Options MakeTakeSessionOptions(const TakeSettings& take);

/// Plays songs as a theatre would, but as fast as the machine can: an operator, the passes of the display feed and a
/// clock that counts frames, over a session like any other. The result, the sound and the trace are the same in every
/// run.
class OfflineShow : private EngineSubscriber {
public:
    using SoundSink = std::function<void(const float* left, const float* right, std::uint32_t frames)>;

    /// Either sink may be empty. `session` outlives the object, has a stepped feed, and is used by nobody else
    /// meanwhile.
    OfflineShow(ShowSession& session, OfflineOptions options, SoundSink soundSink, Trace::Sink traceSink);
    ~OfflineShow();
    OfflineShow(const OfflineShow&) = delete;
    OfflineShow& operator=(const OfflineShow&) = delete;

    /// Plays it all. Once only. What a sink throws ends it.
    OfflineResult Run();

private:
    struct AutomaticPress {
        std::int64_t frame = 0;
        bool continues = false;  // otherwise it leaves a hold
    };

    // EngineSubscriber.
    void OnEngineEvent(const EngineEvent& event) override;

    void OnJump_(std::uint32_t fromTick, std::uint32_t toTick, EngineEvent::Reason reason);
    void OnArrival_(std::uint32_t tick);
    void OnHold_(std::uint32_t tick);
    void OnRelease_(std::uint32_t tick);
    void OnCue_(const Cue& cue);

    // offline_show.cpp
    void NoticeSong_();
    void BeginSong_();
    void EndSong_();
    void PlayOn_();
    void RenderUntil_(std::int64_t frame);
    [[nodiscard]] bool HearsClick_() const { return mixesClick_ || options_.clickSink; }
    [[nodiscard]] std::size_t CountOwnOutputs_() const;
    /// The sound rendered so far goes to the sink; returns its peak.
    float HandOverSound_();
    /// The main sound passes the limiter, whose delay is left out at the beginning and made up for at the end.
    void PutOutSound_(float* left, float* right, std::uint32_t frames);
    void RenderTail_();
    void RenderRinging_();
    void KeepDisplayCurrent_();
    [[nodiscard]] std::int64_t NextMoment_();
    [[nodiscard]] bool IsFinished_();
    [[nodiscard]] bool HasNextSongToStart_();
    void Quit_();
    void Remark_(const std::string& sentence);
    void NoteSoundProblems_();
    [[nodiscard]] std::string DescribeStanding_();

    // offline_operator.cpp
    void DoWhatIsDue_();
    void DoLinesAt_(std::uint32_t tick);
    void Do_(const ScriptLine& line);
    void DoCommand_(const ScriptLine& line);
    /// Gives a command of the automatic operator to the desk.
    void Press_(Verb verb, std::vector<CommandArgument> arguments = {});
    [[nodiscard]] std::chrono::nanoseconds Moment_() const;
    void PrepareNextLine_();
    void PressAutomatically_();
    void LeaveVampAutomatically_();
    void CountPass_(std::uint32_t fromTick, std::uint32_t toTick);
    void ForgetPassesOutside_(std::uint32_t tick);
    void EndOvertime_();
    [[nodiscard]] bool IsUnattended_() const { return NextLine_() == nullptr; }
    [[nodiscard]] double WrittenSeconds_() const;
    [[nodiscard]] const ScriptLine* NextLine_() const;
    [[nodiscard]] std::int64_t LineFrame_(const ScriptLine& line) const;

    // offline_trace.cpp
    void TraceLoops_(std::uint32_t tick);
    void TraceLine_(std::uint32_t tick, const std::string& event, const std::string& details);
    [[nodiscard]] std::string DescribeLoop_(const LoopEvent& loop) const;

    // Constant after construction.
    ShowSession& session_;
    const tavo_midi::ShowData& showData_;
    const OfflineOptions options_;
    const bool mixesClick_;
    const SoundSink soundSink_;
    StagePlayer& player_;
    Engine& engine_;
    StageShowControl& flow_;
    SteppedFeed& feed_;
    const std::uint32_t framesPerSecond_;
    std::unique_ptr<Trace> trace_;
    const std::int64_t passFrames_;

    // Used on the rendering thread only.
    std::string song_;
    bool isListed_ = false;  // the song is in the result's list
    std::int64_t nextPassFrame_ = 0;
    std::size_t nextLine_ = 0;
    unsigned int arrivals_ = 0;  // at the place that the next line waits for
    std::int64_t lastPressFrame_ = 0;
    std::optional<AutomaticPress> automaticPress_;
    std::int64_t nextStartFrame_ = 0;  // of the song that stands ready
    int jumpsSincePress_ = 0;
    struct VampPasses {
        std::uint32_t start = 0;
        std::uint32_t end = 0;
        int begun = 1;
    };
    std::vector<VampPasses> vampPasses_;  // since playback was last outside each
    std::int64_t unattendedSince_ = 0;    // frame: the song began, or the last line was carried out
    bool isQuitting_ = false;
    std::string endedSong_;
    std::vector<LoopEvent> tracedLoops_;
    std::vector<float> left_;
    std::vector<float> right_;
    std::vector<float> clickLeft_;  // empty where nobody hears the click
    std::vector<float> clickRight_;
    std::vector<float> ownOutputs_;  // of the groups, one channel after the other; empty where nobody hears them
    std::vector<StereoBuffer> pairs_;
    TruePeakLimiter limiter_;
    std::uint32_t delayFrames_ = TruePeakLimiter::DelayFrames;  // still to be left out
    std::uint32_t filledFrames_ = 0;                            // of them, not handed over yet
    OfflineResult result_;
};

}  // namespace stage
