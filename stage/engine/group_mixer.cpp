#include "stage/engine/group_mixer.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace stage {

namespace {

/// Adds samples times a factor. In stretches of a fixed length: the compiler then does several at once.
void AddTo(float* __restrict sum, const float* __restrict samples, std::uint32_t frames, float factor = 1.0F) {
    constexpr std::uint32_t Stretch = 16;
    std::uint32_t i = 0;
    for (; i + Stretch <= frames; i += Stretch)
        for (std::uint32_t k = 0; k < Stretch; ++k)
            sum[i + k] += factor * samples[i + k];
    for (; i < frames; ++i)
        sum[i] += factor * samples[i];
}

}  // namespace

GroupMixer::GroupMixer(Synth& synth, const GroupPlan& plan, std::uint32_t framesPerSecond)
    : synth_(synth), plan_(plan) {
    for (std::size_t i = 0; i < plan.CountStrips(); ++i) {
        Strip& strip = *strips_.emplace_back(std::make_unique<Strip>(framesPerSecond));
        strip.hasOwnOutput = i > 0 && plan.groups[i - 1].output == Settings::Group::Output::Own;
        if (strip.hasOwnOutput) ++ownOutputCount_;
        const std::optional<double> reverbDb = i > 0 ? plan.groups[i - 1].reverbDb : std::nullopt;
        if (reverbDb) {
            strip.reverbSend = static_cast<float>(std::pow(10.0, *reverbDb / 20));
            if (reverb_ == nullptr) reverb_ = std::make_unique<ReverbBus>(plan.reverb, framesPerSecond);
        }
        buffers_.push_back({strip.left.data(), strip.right.data()});
    }
}

void GroupMixer::FollowSong(const tavo_midi::SongData& song) {
    if (&song == std::exchange(song_, &song)) return;
    const auto found = plan_.stripsOfSongs.find(&song);
    if (found != plan_.stripsOfSongs.end()) synth_.AssignChannels(found->second);
}

void GroupMixer::SetLevel(std::size_t strip, float level, std::uint32_t rampFrames) {
    strips_.at(strip)->gain.MoveTo(level, rampFrames);
}

void GroupMixer::CutOff() {
    // Nothing waits to be written when this is called, so the strips are free.
    synth_.SilenceAll(buffers_, CutOffTail::Frames);
    for (const auto& strip : strips_)
        strip->tail.Begin(strip->left.data(), strip->right.data());
    if (reverb_ == nullptr) return;
    reverb_->left.fill(0);
    reverb_->right.fill(0);
    reverb_->room.Process(reverb_->left.data(), reverb_->right.data(), CutOffTail::Frames);
    reverb_->tail.Begin(reverb_->left.data(), reverb_->right.data());
    reverb_->room.Clear();
    // The synthesizer still puts out the rest of its last block.
    reverb_->unsentFrames = Synth::FramesPerBlock;
}

void GroupMixer::Render(std::uint32_t frames) {
    std::array<StereoBuffer, 256> places;
    const std::size_t count = std::min(buffers_.size(), places.size());
    for (std::size_t i = 0; i < count; ++i)
        places.at(i) = {buffers_[i].left + frames_, buffers_[i].right + frames_};
    synth_.RenderGroups({places.data(), count}, frames);
    frames_ += frames;
}

void GroupMixer::Write(const StereoBuffer& main, std::span<const StereoBuffer> outputs, std::span<const Gain> gains) {
    synth_.FinishRendering();
    const std::uint32_t frames = std::exchange(frames_, 0);
    std::fill_n(main.left, frames, 0.0F);
    std::fill_n(main.right, frames, 0.0F);
    if (reverb_ != nullptr) {
        std::fill_n(reverb_->left.data(), frames, 0.0F);
        std::fill_n(reverb_->right.data(), frames, 0.0F);
    }
    std::size_t output = 0;
    for (const auto& strip : strips_) {
        float* const left = strip->left.data();
        float* const right = strip->right.data();
        if (strip->reverbSend > 0) SendToReverb_(*strip, frames);
        strip->tail.AddTo(left, right, frames);
        strip->gain.Apply(left, right, frames);
        if (isMetered_) strip->meter.Measure(left, right, frames);
        if (!strip->hasOwnOutput) {
            AddTo(main.left, left, frames);
            AddTo(main.right, right, frames);
        } else if (output < outputs.size()) {
            for (Gain gain : gains)
                gain.Apply(left, right, frames);
            std::copy_n(left, frames, outputs[output].left);
            std::copy_n(right, frames, outputs[output].right);
            ++output;
        }
    }
    if (reverb_ != nullptr) ReturnFromReverb_(main, frames);
}

// Without what was cut off: that would ring on in the room.
void GroupMixer::SendToReverb_(const Strip& strip, std::uint32_t frames) {
    const float* left = strip.left.data();
    const float* right = strip.right.data();
    if (!strip.gain.IsOne()) {
        std::copy_n(left, frames, reverb_->stripLeft.data());
        std::copy_n(right, frames, reverb_->stripRight.data());
        left = reverb_->stripLeft.data();
        right = reverb_->stripRight.data();
        Gain gain = strip.gain;
        gain.Apply(reverb_->stripLeft.data(), reverb_->stripRight.data(), frames);
    }
    const std::uint32_t unsent = std::min(reverb_->unsentFrames, frames);
    AddTo(reverb_->left.data() + unsent, left + unsent, frames - unsent, strip.reverbSend);
    AddTo(reverb_->right.data() + unsent, right + unsent, frames - unsent, strip.reverbSend);
}

void GroupMixer::ReturnFromReverb_(const StereoBuffer& main, std::uint32_t frames) {
    float* const left = reverb_->left.data();
    float* const right = reverb_->right.data();
    reverb_->unsentFrames -= std::min(reverb_->unsentFrames, frames);
    reverb_->room.Process(left, right, frames);
    reverb_->tail.AddTo(left, right, frames);
    AddTo(main.left, left, frames);
    AddTo(main.right, right, frames);
}

}  // namespace stage
