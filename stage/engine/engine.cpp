// The rendering of a piece: what is due when, and the sound in between.

#include "stage/engine/engine.h"

#include <algorithm>
#include <cmath>

namespace stage {

namespace {

constexpr double VolumeRampSeconds = 0.01;

}  // namespace

Engine::Engine(StageShowControl& flow, Synth& synth, EngineHost& host, UserControls& controls,
               std::uint32_t framesPerSecond, std::uint32_t advanceFrames)
    : flow_(flow),
      synth_(synth),
      host_(host),
      controls_(controls),
      framesPerSecond_(framesPerSecond),
      advanceFrames_(advanceFrames),
      clock_(framesPerSecond),
      chaseStates_(synth.CountChannels()) {}

void Engine::SetSong(std::shared_ptr<const SongPlan> plan) {
    const std::lock_guard lock(mutex_);
    plan_ = std::move(plan);
    clock_.SetTempoMap(plan_->GetTempoMap());
    isHolding_ = false;
    leftCaesura_.reset();
    stoodSince_.reset();
    // While it rolls, the last song has just ended, at an exact moment.
    if (!isRolling_) {
        now_ = {frame_, 0};
        stoodSince_ = frame_;
    }
    playedFrames_ = 0;
    synth_.EndAllNotes();
    const std::uint32_t fromTick = position_;
    MoveTo_(plan_->GetStartTick());
    TellMove_(PlayheadMove::IsPut, now_.Rounded(), fromTick, position_);
}

void Engine::ReplacePlan(std::shared_ptr<const SongPlan> plan) {
    const std::lock_guard lock(mutex_);
    // The song's music and tempos are the same; only what lies on top of them is looked up anew.
    plan_ = std::move(plan);
    clock_.SetTempoMap(plan_->GetTempoMap());
    // The cues of the tick that an advance began at have been set off.
    nextCue_ = plan_->FindCue(from_ == to_ ? to_ : from_ + 1);
    nextStop_ = 0;
    looksOutside_ = true;
}

void Engine::Start() {
    const std::lock_guard lock(mutex_);
    if (isRolling_ || plan_ == nullptr) return;
    isRolling_ = true;
    looksOutside_ = true;
    if (stoodSince_) {
        clock_.StandStill(*stoodSince_, frame_);
        toTime_ = clock_.TimeOfTick(to_);
        FindNextEventFrame_();
        stoodSince_.reset();
    }
    TellOfSeek_();
    if (!isHolding_) TellMove_(PlayheadMove::Starts, frame_, toldTick_, toldTick_);
}

bool Engine::Stop() {
    const std::lock_guard lock(mutex_);
    if (!isRolling_) return false;
    isRolling_ = false;
    stoodSince_ = frame_;
    synth_.EndAllNotes();
    if (!isHolding_) TellMove_(PlayheadMove::Stops, frame_, position_, position_);
    return true;
}

void Engine::Silence() {
    const std::lock_guard lock(mutex_);
    synth_.SilenceAll();
}

void Engine::SetWantedTick(std::optional<std::uint32_t> tick) {
    const std::lock_guard lock(mutex_);
    wantedTick_ = tick;
    // The advance under way was planned without it. Its search told more than is used, which does no harm.
    if (!tick || !isRolling_ || isHolding_ || *tick <= from_ || *tick >= to_) return;
    const std::int64_t frame = clock_.TimeOfTick(*tick).Rounded();
    if (frame < frame_) return;
    to_ = *tick;
    toTime_ = clock_.TimeOfTick(to_);
    FindNextEventFrame_();
}

void Engine::Render(float* left, float* right, std::uint32_t frames) {
    const std::lock_guard lock(mutex_);
    RenderLater(left, right, frames);
    WriteSound_();
}

void Engine::FinishRendering() {
    const std::lock_guard lock(mutex_);
    WriteSound_();
}

void Engine::RenderLater(float* left, float* right, std::uint32_t frames) {
    const std::lock_guard lock(mutex_);
    if (left != left_ || right != right_) WriteSound_();
    left_ = left;
    right_ = right;
    const std::int64_t end = frame_ + frames;
    looksOutside_ = true;
    if (follower_ != nullptr) follower_->OnPiece(frame_);
    if (!isRolling_) TellOfSeek_();
    while (frame_ < end) {
        if (looksOutside_ && isRolling_) FollowOutside_();
        const std::int64_t due = isRolling_ && !isHolding_ ? NextDueFrame_() : end;
        if (due > frame_) {
            RenderSound_(static_cast<std::uint32_t>(std::min(due, end) - frame_));
        } else {
            DoWhatIsDue_();
        }
    }
    UpdatePosition_();
}

std::int64_t Engine::NextDueFrame_() const {
    return std::min(nextEventFrame_, toTime_.Rounded());
}

void Engine::DoWhatIsDue_() {
    // Notes and cues lie before the advance's end, where the next arrival is.
    if (nextEvent_ < plan_->GetEvents().size() && plan_->GetEvents()[nextEvent_].tick < to_) {
        SendEvent_();
    } else {
        now_ = toTime_;
        ArriveAt_(to_);
    }
}

void Engine::SendEvent_() {
    const tavo_midi::MidiEvent& event = plan_->GetEvents()[nextEvent_];
    ++nextEvent_;
    const std::uint8_t kind = event.status & 0xF0U;
    if (kind == 0x90 && event.data2 > 0) {
        synth_.PlayNote(ChannelOf(event), event.data1, event.data2, transposition_);
    } else if (kind == 0x90 || kind == 0x80) {
        synth_.EndNote(ChannelOf(event), event.data1);
    } else if (event.status == 0xF0) {
        synth_.PlaySysex(plan_->GetSong().GetSysex(event));
    } else {
        synth_.PlayMessage(event);
    }
    const auto& events = plan_->GetEvents();
    // Within a chord the moment stays the same.
    if (nextEvent_ < events.size() && events[nextEvent_].tick == event.tick) return;
    FindNextEventFrame_();
}

void Engine::FindNextEventFrame_() {
    const auto& events = plan_->GetEvents();
    const bool isInAdvance = nextEvent_ < events.size() && events[nextEvent_].tick < to_;
    nextEventFrame_ = isInAdvance ? clock_.TimeOfTick(events[nextEvent_].tick).Rounded() : toTime_.Rounded();
}

void Engine::RenderSound_(std::uint32_t frames) {
    synth_.Render(left_, right_, frames);
    left_ += frames;
    right_ += frames;
    unwrittenFrames_ += frames;
    frame_ += frames;
    if (fadeGain_.IsMoving()) WriteSound_();
    if (isRolling_) playedFrames_ += frames;
    if (fadeIsToTell_ && !fadeGain_.IsMoving()) {
        fadeIsToTell_ = false;
        host_.OnFadeDone();
        if (listener_ != nullptr) listener_->OnFadeEnd();
        looksOutside_ = true;
    }
}

void Engine::WriteSound_() {
    synth_.FinishRendering();
    if (unwrittenFrames_ == 0) return;
    float* const left = left_ - unwrittenFrames_;
    float* const right = right_ - unwrittenFrames_;
    for (Gain* gain : {&synthGain_, &masterGain_, &fadeGain_})
        gain->Apply(left, right, unwrittenFrames_);
    unwrittenFrames_ = 0;
}

void Engine::UpdatePosition_() {
    if (plan_ == nullptr || !isRolling_) return;
    if (isHolding_) {
        position_ = to_ > 0 ? to_ - 1 : 0;
    } else if (to_ > from_) {
        position_ = std::clamp(clock_.TickOfFrame(frame_), from_, to_ - 1);
    } else {
        position_ = to_;
    }
}

void Engine::TellMove_(PlayheadMove move, std::int64_t frame, std::uint32_t fromTick, std::uint32_t tick) {
    toldTick_ = tick;
    if (follower_ != nullptr) follower_->OnMove(move, frame, *plan_, fromTick, tick);
}

// A playhead that stands has been put somewhere else, where playback will begin.
void Engine::TellOfSeek_() {
    if (follower_ == nullptr || plan_ == nullptr) return;
    const std::optional<std::uint32_t> tick = flow_.GetWaitingJump();
    if (tick && *tick != toldTick_) TellMove_(PlayheadMove::IsPut, frame_, toldTick_, *tick);
}

void Engine::SetSynthVolume(float volume) {
    const std::lock_guard lock(mutex_);
    WriteSound_();
    synthGain_.MoveTo(volume, static_cast<std::uint32_t>(VolumeRampSeconds * framesPerSecond_));
}

void Engine::SetMasterVolume(float volume) {
    const std::lock_guard lock(mutex_);
    WriteSound_();
    masterGain_.MoveTo(volume, static_cast<std::uint32_t>(VolumeRampSeconds * framesPerSecond_));
}

void Engine::MoveFade(float target, double seconds, bool tell) {
    const std::lock_guard lock(mutex_);
    const double frames = std::clamp(std::round(seconds * framesPerSecond_), 0.0, 4e9);
    WriteSound_();
    fadeGain_.MoveTo(target, static_cast<std::uint32_t>(frames));
    fadeIsToTell_ = tell;
}

}  // namespace stage
