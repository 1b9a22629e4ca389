#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "stage/control/script.h"
#include "stage/engine/stage_player.h"
#include "stage/engine/synth.h"
#include "stage/offline/trace.h"
#include "stage/session/stepped_feed.h"

namespace stage {

struct OfflineOptions {
    std::string showDirectory;
    /// The operator starts these songs and those between them in the show's order; attaccas are followed anyway.
    std::string firstSong;
    std::string lastSong;
    /// What the operator does besides; without it an automatic operator leaves every vamp in its second pass, and
    /// every hold and caesura after two seconds.
    std::optional<std::vector<ScriptLine>> script;
    std::uint32_t framesPerSecond = 48000;
    /// Nobody presses anything between two moments that are known beforehand, so there is no need to plan for less.
    std::uint32_t advanceFrames = 512;
    double masterVolume = 1.0;
    double synthVolume = 1.0;
    bool tracesBeats = false;
};

struct OfflineResult {
    std::int64_t frames = 0;
    std::vector<std::string> songs;  ///< those that were played, in order
    float peak = 0;                  ///< highest amplitude, 1 is full scale
    /// Why it ended where it did, a sentence each; empty when everything was played.
    std::vector<std::string> remarks;
};

/// Plays songs as a theatre would, but as fast as the machine can: the player, its display feed and an operator over a
/// clock that counts frames. The result, the sound and the trace are the same in every run. Uses the process's active
/// change log, which must hold every song, and installs a display feed for as long as it lives: one at a time.
class OfflineShow : private EngineListener {
public:
    using SoundSink = std::function<void(const float* left, const float* right, std::uint32_t frames)>;

    /// Either sink may be empty. `showData` and `synth` outlive the object.
    OfflineShow(const tavo_midi::ShowData& showData, Synth& synth, OfflineOptions options, SoundSink soundSink,
                Trace::Sink traceSink);
    ~OfflineShow();
    OfflineShow(const OfflineShow&) = delete;
    OfflineShow& operator=(const OfflineShow&) = delete;

    /// Plays it all. Once only. What a sink throws ends it.
    OfflineResult Run();

    [[nodiscard]] StagePlayer& GetPlayer() { return player_; }

private:
    struct AutomaticPress {
        std::int64_t frame = 0;
        bool continues = false;  // otherwise it leaves a hold
    };

    // EngineListener.
    void OnJump(std::uint32_t fromTick, std::uint32_t toTick, JumpReason reason) override;
    void OnArrival(std::uint32_t tick) override;
    void OnHold(std::uint32_t tick) override;
    void OnRelease(std::uint32_t tick) override;
    void OnCue(const Cue& cue) override;

    // offline_show.cpp
    void NoticeSong_();
    void BeginSong_();
    void EndSong_();
    void PlayOn_();
    void RenderUntil_(std::int64_t frame);
    /// The sound rendered so far goes to the sink; returns its peak.
    float HandOverSound_();
    void RenderTail_();
    void KeepDisplayCurrent_();
    [[nodiscard]] std::int64_t NextMoment_();
    [[nodiscard]] bool IsFinished_();
    [[nodiscard]] bool HasNextSongToStart_();
    void Quit_();
    void Remark_(const std::string& sentence);
    [[nodiscard]] std::string DescribeStanding_();

    // offline_operator.cpp
    void DoWhatIsDue_();
    void DoLinesAt_(std::uint32_t tick);
    void Do_(const ScriptLine& line);
    void DoTransport_(const ScriptLine& line);
    void DoSetting_(const ScriptLine& line);
    void Pause_();
    void StopFaded_();
    void PrepareNextLine_();
    void PressAutomatically_();
    void LeaveVampAutomatically_();
    void CountPass_();
    [[nodiscard]] const ScriptLine* NextLine_() const;
    [[nodiscard]] std::int64_t LineFrame_(const ScriptLine& line) const;

    // offline_trace.cpp
    void TraceLoops_(std::uint32_t tick);
    void TraceLine_(std::uint32_t tick, const std::string& event, const std::string& details);
    [[nodiscard]] std::string DescribeLoop_(const LoopEvent& loop) const;

    // Constant after construction.
    const tavo_midi::ShowData& showData_;
    const OfflineOptions options_;
    const SoundSink soundSink_;
    StagePlayer player_;
    Engine& engine_;
    StageShowControl& flow_;
    SteppedFeed* feed_ = nullptr;  // owned by the process's holder
    std::unique_ptr<Trace> trace_;
    std::int64_t passFrames_ = 0;

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
    bool isQuitting_ = false;
    std::string endedSong_;
    std::vector<LoopEvent> tracedLoops_;
    std::vector<float> left_;
    std::vector<float> right_;
    std::uint32_t filledFrames_ = 0;  // of the two, not handed over yet
    OfflineResult result_;
};

}  // namespace stage
