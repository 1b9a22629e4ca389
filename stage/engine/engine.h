#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <vector>

#include "stage/engine/count_in.h"
#include "stage/engine/engine_event.h"
#include "stage/engine/engine_sound.h"
#include "stage/engine/frame_clock.h"
#include "stage/engine/song_plan.h"
#include "stage/engine/stage_show_control.h"

namespace stage {

/// What the engine asks the player it plays for, on the rendering thread.
class EngineHost {
public:
    /// Whether playback goes on over the caesura that it has reached. The answer uses up what made it so. Asked under
    /// the engine's lock: it calls no operation of the engine and nobody outside.
    virtual bool TakeCaesuraCancellation() = 0;
    /// Playback waits at a caesura: the host calls Engine::StopAtCaesura. Asked without a lock. False where somebody
    /// else is operating the player just now: it is asked again after the next block.
    virtual bool TryToStopAtCaesura() = 0;
    /// Playback waits at the end of its song: the host puts in the next one, which follows without a gap, or stops.
    /// Asked in the same way.
    virtual bool TryToFollowOn() = 0;

protected:
    ~EngineHost() = default;
};

/// Plays songs: turns ticks into frames, obeys flow control, feeds the synthesizer. Every note, jump and stop lands on
/// its exact frame, whatever the sizes of the blocks that are rendered.
///
/// One thread renders. The other operations are thread-safe: they hold the engine's lock for some assignments and wait
/// for a decision of flow control at most, never for sound; what sounds, and what is reported to subscribers, they
/// leave to the rendering thread as orders for its next frame. That lock is never held while somebody outside is
/// called. It comes before all locks of player_core: no caller holds one of those. Whatever moves the playhead does so
/// through flow control; the engine follows within LongestBlockFrames.
class Engine {
public:
    static constexpr std::uint32_t DefaultAdvanceFrames = 64;
    /// However many frames a caller asks for, operations of other threads take effect after so many.
    static constexpr std::uint32_t LongestBlockFrames = 256;

    /// Keeps references, which outlive the object. `advanceFrames` is how far playback plans ahead at most; at least
    /// one tick.
    Engine(StageShowControl& flow, Synth& synth, EngineHost& host, UserControls& controls,
           std::uint32_t framesPerSecond, std::uint32_t advanceFrames = DefaultAdvanceFrames);

    /// Adds one after those there are. Neither while another thread renders nor inside an event.
    void Subscribe(EngineSubscriber& subscriber);
    void Unsubscribe(EngineSubscriber& subscriber);

    /// Puts in a song at its first tick. While playing it follows at once where the last one is.
    void SetSong(std::shared_ptr<const SongPlan> plan);
    /// Puts in another plan of the song that is in, made from other edits; the place stays. One of another song is not
    /// taken.
    void ReplacePlan(std::shared_ptr<const SongPlan> plan);
    /// Plans that were put out and that rendering has done with, for the caller to destroy.
    [[nodiscard]] std::vector<std::shared_ptr<const SongPlan>> TakeOldPlans();

    /// Where a count-in is set, playback begins after it, unless it goes on from a caesura or in a fermata's hold. A
    /// start while beats are counted begins at once.
    void Start();
    /// Beats that are counted in from the next start on; 0 for none.
    void SetCountIn(unsigned int beats);
    [[nodiscard]] bool IsCountingIn() const { return beatsToCountIn_ > 0; }
    /// Beats of a count-in that are left, the one that goes on among them. Any thread.
    [[nodiscard]] unsigned int GetBeatsToCountIn() const { return beatsToCountIn_; }
    /// Ends the notes and stops; true when it was playing.
    bool Stop();
    /// Stops at the caesura that playback waits at; false where it does not wait any more.
    bool StopAtCaesura();
    [[nodiscard]] bool IsRolling() const { return isRolling_; }
    /// Playback waits at the end of a fermata.
    [[nodiscard]] bool IsHolding() const { return isHolding_; }
    /// Playback waits at its song's end for the host's answer.
    [[nodiscard]] bool IsAtSongEnd();
    /// Silence at once.
    void Silence();
    /// Effects and ambiences end, or stay where they are until playback is started again or put elsewhere. What
    /// sounds at a caesura or a song's end sounds on without either.
    void EndSounds();
    void EndAmbiences();
    void PauseSounds();
    /// Effects that ring out. For the rendering thread.
    [[nodiscard]] std::size_t CountEffects() const { return sound_.CountEffects(); }
    /// Advances end at these ticks too, so that subscribers hear of the arrival there; none by default.
    void SetWantedTicks(std::optional<std::uint32_t> tick, std::optional<std::uint32_t> another = {});

    /// Renders the next `frames` of each stereo pair, in the order of ListSoundOutputs. There is at least one; what
    /// leaves by a pair that is not given is not heard. There are as many in every call.
    void Render(std::span<const StereoBuffer> pairs, std::uint32_t frames);
    /// The same, but the last of it may be written as late as in FinishRendering, or the next call of either; cheaper
    /// where the calls go on in one long buffer. Until then the buffers must stay.
    void RenderLater(std::span<const StereoBuffer> pairs, std::uint32_t frames);
    /// Writes it, and carries out what was ordered since.
    void FinishRendering();
    // With the main pair only.
    void Render(float* left, float* right, std::uint32_t frames);
    void RenderLater(float* left, float* right, std::uint32_t frames);

    /// What was changed since the last block is followed at the next frame for certain, even if rendering has to wait
    /// for whoever looks at flow control just then. For the rendering thread, after it has carried out a command: a
    /// replay of the command at the same frame then sounds the same.
    void FollowForCertain() { mustFollow_ = true; }
    /// The frame of the next place at or after the playhead where a press decides how playback goes on; nothing while
    /// it is not moving. For the rendering thread.
    [[nodiscard]] std::optional<std::int64_t> FindNextSeam();

    /// Frames that the rendering thread has taken on since the engine began: it may still be at the last block of them.
    [[nodiscard]] std::int64_t GetFrame() const { return frame_; }
    /// Frames that the song which is in has played, holds included.
    [[nodiscard]] std::int64_t GetPlayedFrames() const { return playedFrames_; }
    /// The last tick that playback has begun: what a display shows. On the rendering thread it is exact, on others as
    /// of the last block.
    [[nodiscard]] std::uint32_t GetPosition() const { return position_; }

    void SetSynthVolume(float volume);
    void SetClickVolume(float volume);
    void SetMasterVolume(float volume);
    void SetEffectsVolume(float volume);
    void SetAmbienceVolume(float volume);
    /// Mixes the instruments in groups; `plan` outlives the engine. Before anything is rendered.
    void SetGroups(const GroupPlan& plan) { sound_.SetGroups(plan); }
    /// Null without groups; its meters may be read on any thread.
    [[nodiscard]] const GroupMixer* GetGroups() const { return sound_.GetGroups(); }
    /// The music leaves there as well. While nobody renders; the object outlives the engine.
    void SetMidiOut(MidiOut& midiOut) { sound_.SetMidiOut(midiOut); }
    /// Whether the meters measure; at first they do not. While nobody renders.
    void SetMetered(bool isMetered) { sound_.SetMetered(isMetered); }
    /// Of the main pair, behind all volumes. Any thread may read it.
    [[nodiscard]] const LevelMeter& GetMainMeter() const { return sound_.GetMainMeter(); }
    /// The level of a strip of the group mixer, in a short ramp.
    void SetGroupLevel(std::size_t strip, float level);
    /// Whether the click sounds on every beat; at first only where a click is edited. While nobody renders.
    void SetClickEverywhere(bool isEverywhere) { clicksEverywhere_ = isEverywhere; }
    /// The click is part of the first group, too, where a second one is rendered. While nobody renders.
    void SetClickInMain(bool isInMain) { sound_.SetClickInMain(isInMain); }
    /// Moves the fader on top of the volumes. Its arrival is reported with `fade`, unless that is 0 or it is moved
    /// again before.
    void MoveFade(float target, double seconds, std::uint32_t fade);

private:
    using Lock = std::unique_lock<std::mutex>;
    enum class Step : std::uint8_t { Again, Arrived, Elsewhere };
    enum class Wait : std::uint8_t { None, AtCaesura, AtSongEnd };

    // engine.cpp
    void MakeProgress_(Lock& lock, std::int64_t end);
    void AskHost_(Lock& lock);
    void CarryOut_(Lock& lock);
    void DoOrders_(Lock& lock);
    void Deliver_(const EngineEvent& event);
    void DoWhatIsDue_(Lock& lock);
    void SendEvent_();
    void FindNextEventFrame_();
    [[nodiscard]] std::int64_t NextDueFrame_() const;
    void RenderSound_(Lock& lock, std::int64_t end);
    void UpdatePosition_();
    [[nodiscard]] std::optional<StageShowControl::Outside> LookOutside_();
    void TellStart_();
    void TellOfSeek_();
    void Tell_(EngineEvent event);
    void TellMove_(EngineEvent::Kind kind, std::int64_t frame, std::uint32_t fromTick, std::uint32_t tick);
    void Order_(const SoundOrder& order);
    void StartHere_();
    [[nodiscard]] bool BeginCountIn_();
    void EndCountIn_();
    void CountBeatIn_();
    void PutOut_(std::shared_ptr<const SongPlan> plan);
    void EndWhatIsNotHeldAnyMore_(const SongPlan& before);
    void StopHere_();

    // engine_flow.cpp
    void FollowOutside_(Lock& lock);
    void FollowTempo_(const StageShowControl::Outside& outside);
    void ArriveAt_(Lock& lock, std::uint32_t tick);
    Step TryToAdvance_(Lock& lock, std::uint32_t& tick);
    [[nodiscard]] bool ProcessLoops_(Lock& lock);
    void TakeJump_(std::uint32_t fromTick, const StageShowControl::Arrival& jump);
    void TellJump_(EngineEvent::Reason reason, std::uint32_t fromTick, std::uint32_t toTick, bool wasHolding);
    void MoveTo_(std::uint32_t tick);
    void BeginAdvance_(std::uint32_t fromTick, std::uint32_t toTick);
    void SendCues_(std::uint32_t tick);
    void TakeSoundsAlong_(std::uint32_t tick, bool isSeek);
    void TakeUpAmbiences_(std::uint32_t tick, bool isCuePassed);
    void SendClick_(std::uint32_t tick);
    void Hold_(std::uint32_t tick);
    void WaitAtCaesura_(std::uint32_t tick);
    void WaitAtSongEnd_();
    void ApplyScale_(std::uint32_t tick, double scale);
    [[nodiscard]] std::uint32_t PlanEnd_(std::uint32_t tick, std::optional<std::uint32_t> loopEnd);

    // Constant after construction; the objects behind the references synchronise themselves.
    StageShowControl& flow_;
    EngineHost& host_;
    UserControls& controls_;
    const std::uint32_t framesPerSecond_;
    const std::uint32_t advanceFrames_;
    // Changed while nobody renders only.
    std::vector<EngineSubscriber*> subscribers_;
    bool clicksEverywhere_ = false;

    // Used by the rendering thread only.
    EngineSound sound_;
    std::vector<SoundOrder> ordersAtHand_;
    std::vector<EngineEvent> eventsAtHand_;
    bool mustFollow_ = false;

    std::mutex mutex_;

    // Guarded by mutex_, down to isTelling_.
    std::shared_ptr<const SongPlan> plan_;
    std::vector<std::shared_ptr<const SongPlan>> plansInUse_;  // put out, but orders and events may point into them
    std::vector<std::shared_ptr<const SongPlan>> oldPlans_;
    std::vector<SoundOrder> orders_;
    std::vector<EngineEvent> events_;
    FrameClock clock_;
    FrameTime now_;           // exact moment of the arrival that is being made
    std::uint32_t from_ = 0;  // the advance: ticks [from_, to_)
    std::uint32_t to_ = 0;
    FrameTime toTime_;
    std::size_t nextEvent_ = 0;
    std::uint32_t nextEventTick_ = 0;  // what stands before it has been played, or left out by a jump
    std::size_t nextCue_ = 0;
    std::int64_t nextEventFrame_ = 0;
    std::size_t nextStop_ = 0;
    std::array<std::optional<std::uint32_t>, 2> wantedTicks_;
    int transposition_ = 0;
    double userScale_ = 1.0;
    std::optional<std::uint32_t> leftCaesura_;  // the last stop was at this caesura and playback has not moved since
    std::optional<std::int64_t> stoodSince_;    // frame at which playback stopped on its way
    unsigned int countInBeats_ = 0;
    std::optional<CountIn> countIn_;   // under way: playback has not begun
    bool hasEnded_ = false;            // playback has stopped because its song was over
    Wait wait_ = Wait::None;           // for the host's answer
    bool isToAsk_ = false;             // the host, once more
    std::uint64_t interruptions_ = 0;  // times that playback was stopped or given a song
    bool looksOutside_ = false;        // something may have moved the playhead
    bool lookedInVain_ = false;        // flow control was busy: look again after the block
    std::uint32_t toldTick_ = 0;       // where subscribers believe a playhead that stands to be
    bool startIsToTell_ = false;
    bool isTelling_ = false;  // an event is being reported

    // Written under mutex_, read without: an answer one block old is as good.
    std::atomic<bool> isRolling_{false};
    std::atomic<bool> isHolding_{false};
    std::atomic<unsigned int> beatsToCountIn_{0};
    std::atomic<std::int64_t> frame_{0};
    std::atomic<std::int64_t> playedFrames_{0};
    std::atomic<std::uint32_t> position_{0};
};

}  // namespace stage
