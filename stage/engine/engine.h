#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "stage/engine/frame_clock.h"
#include "stage/engine/gain.h"
#include "stage/engine/song_plan.h"
#include "stage/engine/stage_show_control.h"
#include "stage/engine/synth.h"

namespace stage {

/// What the engine asks and tells the player it plays for. Called inside Engine::Render, on the rendering thread.
class EngineHost {
public:
    /// Whether playback goes on over the caesura that it has reached. The answer uses up what made it so.
    virtual bool TakeCaesuraCancellation() = 0;
    /// Playback has stopped at a caesura; notes have been ended.
    virtual void OnCaesuraReached() = 0;
    /// Playback has reached the end of the song. The host gives the engine the next song, which then follows without a
    /// gap, or stops it.
    virtual void OnEndOfSong() = 0;
    /// A gain that MoveFade asked for has arrived.
    virtual void OnFadeDone() = 0;

protected:
    ~EngineHost() = default;
};

/// Hears what playback does, at the frame where it does it (Engine::GetFrame). Called like EngineHost; may call any
/// operation of the player. For traces and scripted operators; playback does not need one.
class EngineListener {
public:
    enum class JumpReason { Loop, Seek, Cut };

    /// Playback goes on at `toTick`. The tick that it leaves has not sounded.
    virtual void OnJump(std::uint32_t /*fromTick*/, std::uint32_t /*toTick*/, JumpReason /*reason*/) {}
    /// Playback stands at `tick` and flow control has decided what follows; nothing of the tick has sounded.
    virtual void OnArrival(std::uint32_t /*tick*/) {}
    /// Time stands still just short of a fermata's end at `tick`.
    virtual void OnHold(std::uint32_t /*tick*/) {}
    /// A held fermata was released: time goes on at `tick`.
    virtual void OnRelease(std::uint32_t /*tick*/) {}
    virtual void OnCue(const Cue& /*cue*/) {}
    /// A fade has arrived and the host has done what was to follow it.
    virtual void OnFadeEnd() {}

protected:
    ~EngineListener() = default;
};

/// What the playhead does, as far as other machines move along with it.
enum class PlayheadMove {
    Starts,
    Stops,  ///< also at a caesura and for a fermata's hold
    Loops,  ///< jumps without a stop, by a vamp, a repeat or a cut
    IsPut,  ///< somewhere else by a seek or a new song, whether it moves or not
};

/// Follows the playhead. Called under the engine's lock, by Render or by whoever moves the playhead.
class PlayheadFollower {
public:
    /// A piece begins to be rendered.
    virtual void OnPiece(std::int64_t frame) = 0;
    /// At `frame` the playhead leaves `fromTick` and is at `tick` of the song.
    virtual void OnMove(PlayheadMove move, std::int64_t frame, const SongPlan& plan, std::uint32_t fromTick,
                        std::uint32_t tick) = 0;

protected:
    ~PlayheadFollower() = default;
};

/// Plays songs: turns ticks into frames, obeys flow control, feeds the synthesizer. Every note, jump and stop lands on
/// its exact frame, whatever the sizes of the pieces that are rendered.
///
/// One thread renders; the other operations are thread-safe, take the engine's lock and wait for a piece that is being
/// rendered. That lock comes before all locks of player_core: no caller holds one of those. Whatever moves the playhead
/// does so through flow control; the engine follows at its next piece.
class Engine {
public:
    static constexpr std::uint32_t DefaultAdvanceFrames = 64;

    /// Keeps references, which outlive the object. `advanceFrames` is how far playback plans ahead at most; at least
    /// one tick.
    Engine(StageShowControl& flow, Synth& synth, EngineHost& host, UserControls& controls,
           std::uint32_t framesPerSecond, std::uint32_t advanceFrames = DefaultAdvanceFrames);

    /// Held during Render; recursive. For callers whose steps must not be interleaved with a piece.
    [[nodiscard]] std::recursive_mutex& GetMutex() { return mutex_; }
    /// Null for none. Not while another thread renders.
    void SetListener(EngineListener* listener) { listener_ = listener; }

    /// Null for none. Not while another thread renders.
    void SetFollower(PlayheadFollower* follower) { follower_ = follower; }

    /// Puts in a song at its first tick. While playing it follows at once where the last one is.
    void SetSong(std::shared_ptr<const SongPlan> plan);
    /// Puts in another plan of the song that is in, made from other edits; the place stays.
    void ReplacePlan(std::shared_ptr<const SongPlan> plan);

    void Start();
    /// Ends the notes and stands still; true when it was playing.
    bool Stop();
    [[nodiscard]] bool IsRolling() const { return isRolling_; }
    /// Playback waits at the end of a fermata.
    [[nodiscard]] bool IsHolding() const { return isHolding_; }
    /// Silence at once.
    void Silence();
    /// An advance ends at this tick too, so that the listener hears of the arrival there; none by default.
    void SetWantedTick(std::optional<std::uint32_t> tick);

    /// Renders the next `frames` of both channels.
    void Render(float* left, float* right, std::uint32_t frames);
    /// The same, but the last of it may be written as late as in FinishRendering, or the next call of either; cheaper
    /// where the calls go on in one long buffer. Until then the buffers must stay.
    void RenderLater(float* left, float* right, std::uint32_t frames);
    void FinishRendering();

    /// Frames rendered since the engine began.
    [[nodiscard]] std::int64_t GetFrame() const { return frame_; }
    /// Frames that the song which is in has played, holds included.
    [[nodiscard]] std::int64_t GetPlayedFrames() const { return playedFrames_; }
    /// The last tick that playback has begun: what a display shows. On the rendering thread it is exact, on others as
    /// of the last piece.
    [[nodiscard]] std::uint32_t GetPosition() const { return position_; }

    void SetSynthVolume(float volume);
    void SetMasterVolume(float volume);
    /// Moves the fader on top of the volumes; the host hears when it has arrived, with `tell`.
    void MoveFade(float target, double seconds, bool tell);

private:
    enum class Step { Again, Arrived, Elsewhere };

    void FollowOutside_();
    void FollowTempo_();
    void DoWhatIsDue_();
    void SendEvent_();
    void SendCues_(std::uint32_t tick);
    void ArriveAt_(std::uint32_t tick);
    Step TryToAdvance_(std::uint32_t& tick);
    void TakeJump_(std::uint32_t fromTick, const StageShowControl::Arrival& jump);
    void MoveTo_(std::uint32_t tick);
    void BeginAdvance_(std::uint32_t fromTick, std::uint32_t toTick);
    void Hold_(std::uint32_t tick);
    void StopAtCaesura_(std::uint32_t tick);
    void EndSong_();
    void ApplyScale_(std::uint32_t tick, double scale);
    [[nodiscard]] std::uint32_t PlanEnd_(std::uint32_t tick, std::optional<std::uint32_t> loopEnd);
    [[nodiscard]] std::int64_t NextDueFrame_() const;
    void FindNextEventFrame_();
    void UpdatePosition_();
    void RenderSound_(std::uint32_t frames);
    void WriteSound_();
    void TellMove_(PlayheadMove move, std::int64_t frame, std::uint32_t fromTick, std::uint32_t tick);
    void TellOfSeek_();

    // Constant after construction.
    StageShowControl& flow_;
    Synth& synth_;
    EngineHost& host_;
    UserControls& controls_;
    const std::uint32_t framesPerSecond_;
    const std::uint32_t advanceFrames_;
    EngineListener* listener_ = nullptr;
    PlayheadFollower* follower_ = nullptr;

    std::recursive_mutex mutex_;

    // Guarded by mutex_, down to fadeIsToTell_.
    std::shared_ptr<const SongPlan> plan_;
    FrameClock clock_;
    FrameTime now_;           // exact moment of the arrival that is being made
    std::uint32_t from_ = 0;  // the advance: ticks [from_, to_)
    std::uint32_t to_ = 0;
    FrameTime toTime_;
    std::size_t nextEvent_ = 0;
    std::size_t nextCue_ = 0;
    std::int64_t nextEventFrame_ = 0;
    std::size_t nextStop_ = 0;
    std::optional<std::uint32_t> wantedTick_;
    int transposition_ = 0;
    double userScale_ = 1.0;
    std::optional<std::uint32_t> leftCaesura_;  // the last stop was at this caesura and playback has not moved since
    std::optional<std::int64_t> stoodSince_;    // frame at which playback stopped on its way
    bool looksOutside_ = false;                 // something may have moved the playhead
    std::vector<ChannelState> chaseStates_;
    float* left_ = nullptr;  // where the piece's next frame goes
    float* right_ = nullptr;
    std::uint32_t unwrittenFrames_ = 0;  // before there, without their gains yet
    Gain synthGain_;
    Gain masterGain_;
    Gain fadeGain_;
    std::uint32_t toldTick_ = 0;  // where the follower believes a playhead that stands to be
    bool fadeIsToTell_ = false;

    // Written under mutex_, read without: an answer one piece old is as good.
    std::atomic<bool> isRolling_{false};
    std::atomic<bool> isHolding_{false};
    std::atomic<std::int64_t> frame_{0};
    std::atomic<std::int64_t> playedFrames_{0};
    std::atomic<std::uint32_t> position_{0};
};

}  // namespace stage
