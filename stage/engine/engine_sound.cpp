#include "stage/engine/engine_sound.h"

#include <algorithm>
#include <array>
#include <utility>

namespace stage {

namespace {

constexpr double VolumeRampSeconds = 0.01;
constexpr std::size_t MaxOwnOutputs = 64;

}  // namespace

EngineSound::EngineSound(Synth& synth, std::uint32_t framesPerSecond)
    : synth_(synth),
      framesPerSecond_(framesPerSecond),
      rampFrames_(static_cast<std::uint32_t>(VolumeRampSeconds * framesPerSecond)),
      chaseStates_(synth.CountChannels()),
      mainMeter_(framesPerSecond),
      sounds_(framesPerSecond),
      click_(framesPerSecond) {}

void EngineSound::SetGroups(const GroupPlan& plan) {
    if (!plan.groups.empty()) groups_ = std::make_unique<GroupMixer>(synth_, plan, framesPerSecond_);
}

void EngineSound::SetMetered(bool isMetered) {
    isMetered_ = isMetered;
    if (groups_ != nullptr) groups_->SetMetered(isMetered);
}

void EngineSound::Do(const SoundOrder& order) {
    switch (order.kind) {
        case SoundOrder::Kind::Play:
            return Play_(order);
        case SoundOrder::Kind::EndNotes:
            return synth_.EndAllNotes();
        case SoundOrder::Kind::Silence:
            click_.Silence();
            CutOff_();
            return sounds_.EndAll();
        case SoundOrder::Kind::Chase:
            return Chase_(*order.plan, order.tick);
        case SoundOrder::Kind::Click:
            return click_.Strike(order.isAccent);
        case SoundOrder::Kind::SetSynth:
            return MoveVolume_(synthGain_, order.level);
        case SoundOrder::Kind::SetClick:
            return MoveVolume_(clickGain_, order.level);
        case SoundOrder::Kind::SetMaster:
            MoveVolume_(clickMasterGain_, order.level);
            return MoveVolume_(masterGain_, order.level);
        case SoundOrder::Kind::SetEffects:
        case SoundOrder::Kind::SetAmbience:
        case SoundOrder::Kind::StartSound:
        case SoundOrder::Kind::EndSounds:
        case SoundOrder::Kind::EndAmbiences:
        case SoundOrder::Kind::EndSoundsBefore:
        case SoundOrder::Kind::FollowJump:
        case SoundOrder::Kind::PauseSounds:
        case SoundOrder::Kind::ResumeSounds:
        case SoundOrder::Kind::FollowEdits:
            return DoSound_(order);
        case SoundOrder::Kind::SetGroup:
            Write();
            if (groups_ != nullptr) groups_->SetLevel(order.strip, order.level, hasRendered_ ? rampFrames_ : 0);
            return;
        case SoundOrder::Kind::Fade:
            Write();
            fade_ = order.fade;
            return fadeGain_.MoveTo(order.level, order.frames);
    }
}

void EngineSound::DoSound_(const SoundOrder& order) {
    Write();
    switch (order.kind) {
        case SoundOrder::Kind::SetEffects:
            return sounds_.SetEffectsVolume(order.level, hasRendered_ ? rampFrames_ : 0);
        case SoundOrder::Kind::SetAmbience:
            return sounds_.SetAmbienceVolume(order.level, hasRendered_ ? rampFrames_ : 0);
        case SoundOrder::Kind::StartSound:
            return sounds_.Start(*order.sound, order.offset);
        case SoundOrder::Kind::EndSounds:
            return sounds_.EndAll();
        case SoundOrder::Kind::EndAmbiences:
            return sounds_.EndAmbiences();
        case SoundOrder::Kind::EndSoundsBefore:
            return sounds_.EndBefore(order.tick);
        case SoundOrder::Kind::FollowJump:
            return sounds_.FollowJump(order.tick);
        case SoundOrder::Kind::PauseSounds:
            return sounds_.Pause();
        case SoundOrder::Kind::ResumeSounds:
            return sounds_.Resume();
        default:
            return FollowEdits_(*order.plan);
    }
}

void EngineSound::FollowEdits_(const SongPlan& plan) {
    sounds_.BeginReplacing();
    for (const Cue& cue : plan.GetCues())
        if (cue.sound.sound != nullptr) sounds_.Replace(cue.sound);
    sounds_.EndUnreplaced(&plan.GetSong());
}

// What is asked for before the first frame holds from the first frame on.
void EngineSound::MoveVolume_(Gain& gain, float level) {
    Write();
    gain.MoveTo(level, hasRendered_ ? rampFrames_ : 0);
}

void EngineSound::CutOff_() {
    Write();
    if (midiOut_ != nullptr) midiOut_->Silence(synth_.CountRenderedFrames());
    if (groups_ != nullptr) return groups_->CutOff();
    std::array<float, CutOffTail::Frames> left{};
    std::array<float, CutOffTail::Frames> right{};
    synth_.SilenceAll(left.data(), right.data(), CutOffTail::Frames);
    cutOff_.Begin(left.data(), right.data());
}

void EngineSound::Play_(const SoundOrder& order) {
    const tavo_midi::MidiEvent& event = order.event;
    const std::uint8_t kind = event.status & 0xF0U;
    if (kind == 0x90 && event.data2 > 0) {
        synth_.PlayNote(ChannelOf(event), event.data1, event.data2, order.transposition);
    } else if (kind == 0x90 || kind == 0x80) {
        synth_.EndNote(ChannelOf(event), event.data1);
    } else if (event.status == 0xF0) {
        synth_.PlaySysex(order.plan->GetSong().GetSysex(event));
    } else {
        synth_.PlayMessage(event);
    }
}

void EngineSound::Chase_(const SongPlan& plan, std::uint32_t tick) {
    plan.GetChannelHistory().FindStateBefore(tick, chaseStates_);
    if (groups_ != nullptr) groups_->FollowSong(plan.GetSong());
    if (midiOut_ != nullptr) midiOut_->FollowSong(plan.GetSong(), chaseStates_, synth_.CountRenderedFrames());
    synth_.ApplyStates(chaseStates_);
}

void EngineSound::SetBuffers(std::span<const StereoBuffer> pairs) {
    const bool goesOn = pairs.front().left == left_ && pairs.front().right == right_ &&
                        (pairs.size() < 2 || pairs[1].left == clickGroup_.left);
    if (!goesOn) Write();
    left_ = pairs.front().left;
    right_ = pairs.front().right;
    clickGroup_ = pairs.size() > 1 ? pairs[1] : StereoBuffer();
    const std::span<const StereoBuffer> others = pairs.subspan(std::min<std::size_t>(pairs.size(), 2));
    const std::size_t own = std::min(others.size(), groups_ != nullptr ? groups_->CountOwnOutputs() : 0);
    ownOutputs_.assign(others.begin(), others.begin() + static_cast<std::ptrdiff_t>(own));
    silentPairs_.assign(others.begin() + static_cast<std::ptrdiff_t>(own), others.end());
}

void EngineSound::Render(std::uint32_t frames) {
    hasRendered_ = true;
    if (groups_ == nullptr) {
        synth_.Render(left_, right_, frames);
    } else {
        if (unwrittenFrames_ + frames > GroupMixer::MaxFrames) Write();
        groups_->Render(frames);
    }
    left_ += frames;
    right_ += frames;
    unwrittenFrames_ += frames;
    RenderClick_(frames);
    for (StereoBuffer& pair : ownOutputs_)
        pair = {pair.left + frames, pair.right + frames};
    for (StereoBuffer& pair : silentPairs_) {
        pair.left = std::fill_n(pair.left, frames, 0.0F);
        pair.right = std::fill_n(pair.right, frames, 0.0F);
    }
    if (fadeGain_.IsMoving()) Write();
}

void EngineSound::RenderClick_(std::uint32_t frames) {
    if (clickGroup_.left == nullptr) return;
    click_.Render(clickGroup_.left, clickGroup_.right, frames);
    for (Gain* gain : {&clickGain_, &clickMasterGain_})
        gain->Apply(clickGroup_.left, clickGroup_.right, frames);
    clickGroup_.left += frames;
    clickGroup_.right += frames;
}

void EngineSound::Write() {
    synth_.FinishRendering();
    if (unwrittenFrames_ == 0) return;
    float* const left = left_ - unwrittenFrames_;
    float* const right = right_ - unwrittenFrames_;
    if (groups_ == nullptr) {
        cutOff_.AddTo(left, right, unwrittenFrames_);
    } else {
        WriteGroups_({left, right});
    }
    synthGain_.Apply(left, right, unwrittenFrames_);
    sounds_.Mix(left, right, unwrittenFrames_);
    for (Gain* gain : {&masterGain_, &fadeGain_})
        gain->Apply(left, right, unwrittenFrames_);
    if (clickInMain_ && clickGroup_.left != nullptr) AddClick_(left, right);
    if (isMetered_) mainMeter_.Measure(left, right, unwrittenFrames_);
    unwrittenFrames_ = 0;
}

// Of the frames that are written: no fade of the music's is heard in it.
void EngineSound::AddClick_(float* left, float* right) {
    for (std::uint32_t i = 0; i < unwrittenFrames_; ++i) {
        left[i] += (clickGroup_.left - unwrittenFrames_)[i];
        right[i] += (clickGroup_.right - unwrittenFrames_)[i];
    }
}

// What leaves by a pair of its own has the same volumes and fades as the rest.
void EngineSound::WriteGroups_(const StereoBuffer& main) {
    std::array<StereoBuffer, MaxOwnOutputs> outputs;
    const std::size_t count = std::min(ownOutputs_.size(), outputs.size());
    for (std::size_t i = 0; i < count; ++i)
        outputs.at(i) = {ownOutputs_[i].left - unwrittenFrames_, ownOutputs_[i].right - unwrittenFrames_};
    const std::array<Gain, 3> gains{synthGain_, masterGain_, fadeGain_};
    groups_->Write(main, {outputs.data(), count}, gains);
}

std::uint32_t EngineSound::TakeFadeDone() {
    return fadeGain_.IsMoving() ? 0 : std::exchange(fade_, 0U);
}

}  // namespace stage
