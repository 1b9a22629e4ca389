#include "stage/engine/engine_sound.h"

#include <algorithm>
#include <utility>

namespace stage {

namespace {

constexpr double VolumeRampSeconds = 0.01;

}  // namespace

EngineSound::EngineSound(Synth& synth, std::uint32_t framesPerSecond)
    : synth_(synth),
      rampFrames_(static_cast<std::uint32_t>(VolumeRampSeconds * framesPerSecond)),
      chaseStates_(synth.CountChannels()) {}

void EngineSound::Do(const SoundOrder& order) {
    switch (order.kind) {
        case SoundOrder::Kind::Play:
            return Play_(order);
        case SoundOrder::Kind::EndNotes:
            return synth_.EndAllNotes();
        case SoundOrder::Kind::Silence:
            return CutOff_();
        case SoundOrder::Kind::Chase:
            return Chase_(*order.plan, order.tick);
        case SoundOrder::Kind::SetSynth:
            Write();
            return synthGain_.MoveTo(order.level, rampFrames_);
        case SoundOrder::Kind::SetMaster:
            Write();
            return masterGain_.MoveTo(order.level, rampFrames_);
        case SoundOrder::Kind::Fade:
            Write();
            fade_ = order.fade;
            return fadeGain_.MoveTo(order.level, order.frames);
    }
}

void EngineSound::CutOff_() {
    Write();
    // What is left of an earlier cut fades on below this one.
    const std::uint32_t left = CutOffFrames - cutOffPosition_;
    std::array<float, CutOffFrames> earlierLeft{};
    std::array<float, CutOffFrames> earlierRight{};
    std::copy_n(cutOffLeft_.begin() + cutOffPosition_, left, earlierLeft.begin());
    std::copy_n(cutOffRight_.begin() + cutOffPosition_, left, earlierRight.begin());
    synth_.SilenceAll(cutOffLeft_.data(), cutOffRight_.data(), CutOffFrames);
    for (std::uint32_t i = 0; i < CutOffFrames; ++i) {
        const float gain = 1.0F - static_cast<float>(i + 1) / CutOffFrames;
        cutOffLeft_[i] = cutOffLeft_[i] * gain + earlierLeft[i];
        cutOffRight_[i] = cutOffRight_[i] * gain + earlierRight[i];
    }
    cutOffPosition_ = 0;
}

void EngineSound::AddCutOff_(float* left, float* right, std::uint32_t frames) {
    for (std::uint32_t i = 0; i < frames && cutOffPosition_ < CutOffFrames; ++i, ++cutOffPosition_) {
        left[i] += cutOffLeft_[cutOffPosition_];
        right[i] += cutOffRight_[cutOffPosition_];
    }
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
    synth_.ApplyStates(chaseStates_);
}

void EngineSound::SetBuffers(std::span<const StereoBuffer> groups) {
    if (groups.front().left != left_ || groups.front().right != right_) Write();
    left_ = groups.front().left;
    right_ = groups.front().right;
    silentGroups_.assign(groups.begin() + 1, groups.end());
}

void EngineSound::Render(std::uint32_t frames) {
    synth_.Render(left_, right_, frames);
    left_ += frames;
    right_ += frames;
    unwrittenFrames_ += frames;
    for (StereoBuffer& group : silentGroups_) {
        group.left = std::fill_n(group.left, frames, 0.0F);
        group.right = std::fill_n(group.right, frames, 0.0F);
    }
    if (fadeGain_.IsMoving()) Write();
}

void EngineSound::Write() {
    synth_.FinishRendering();
    if (unwrittenFrames_ == 0) return;
    float* const left = left_ - unwrittenFrames_;
    float* const right = right_ - unwrittenFrames_;
    AddCutOff_(left, right, unwrittenFrames_);
    for (Gain* gain : {&synthGain_, &masterGain_, &fadeGain_})
        gain->Apply(left, right, unwrittenFrames_);
    unwrittenFrames_ = 0;
}

std::uint32_t EngineSound::TakeFadeDone() {
    return fadeGain_.IsMoving() ? 0 : std::exchange(fade_, 0U);
}

}  // namespace stage
