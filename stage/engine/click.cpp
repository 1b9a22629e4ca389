#include "stage/engine/click.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "tavo_core/beat_ticks.h"

namespace stage {

namespace {

constexpr double AccentHertz = 1760;
constexpr double PlainHertz = 1320;
constexpr double ClickSeconds = 0.04;
constexpr double DecaySeconds = 0.008;
constexpr double ClickAmplitude = 0.5;
constexpr double SilenceSeconds = 0.004;

// A sine that decays, and is drawn down to nothing at its end.
std::vector<float> MakeClick(double hertz, double amplitude, std::uint32_t framesPerSecond) {
    std::vector<float> sound(static_cast<std::size_t>(ClickSeconds * framesPerSecond));
    for (std::size_t i = 0; i < sound.size(); ++i) {
        const double seconds = static_cast<double>(i) / framesPerSecond;
        const double left = 1 - static_cast<double>(i) / static_cast<double>(sound.size());
        sound[i] = static_cast<float>(amplitude * left * std::exp(-seconds / DecaySeconds) *
                                      std::sin(2 * std::numbers::pi * hertz * seconds));
    }
    return sound;
}

}  // namespace

std::vector<ClickBeat> CollectClickBeats(const tavo_midi::SongData& song, const CL::SongLog& songLog) {
    const TL::Timeline& timeline = song.GetTimeline();
    const auto& clicks = songLog.GetClicks();
    std::vector<ClickBeat> beats;
    auto click = clicks.begin();
    for (const TL::BarsBeats& beat :
         CollectBeats(timeline.GetBarsBeats(), clicks, timeline.GetMeters(), song.GetTicksPerQuarter())) {
        const std::uint32_t tick = beat.abs_time();
        if (tick >= timeline.GetEndTickIndex()) break;
        while (click != clicks.end() && click->end() <= tick)
            ++click;
        beats.push_back({tick, beat.beat() == 1, click != clicks.end() && click->start() <= tick});
    }
    return beats;
}

ClickVoice::ClickVoice(std::uint32_t framesPerSecond)
    : accent_(MakeClick(AccentHertz, ClickAmplitude, framesPerSecond)),
      plain_(MakeClick(PlainHertz, ClickAmplitude / 2, framesPerSecond)),
      fadeFrames_(static_cast<std::uint32_t>(SilenceSeconds * framesPerSecond)) {}

void ClickVoice::Strike(bool isAccent) {
    sound_ = isAccent ? &accent_ : &plain_;
    place_ = 0;
    fadeLeft_ = 0;
}

void ClickVoice::Silence() {
    if (sound_ != nullptr && fadeLeft_ == 0) fadeLeft_ = fadeFrames_;
}

void ClickVoice::Render(float* left, float* right, std::uint32_t frames) {
    std::uint32_t i = 0;
    for (; i < frames && sound_ != nullptr; ++i)
        left[i] = right[i] = Next_();
    std::fill_n(left + i, frames - i, 0.0F);
    std::fill_n(right + i, frames - i, 0.0F);
}

float ClickVoice::Next_() {
    float value = (*sound_)[place_];
    bool isDone = ++place_ == sound_->size();
    if (fadeLeft_ > 0) {
        --fadeLeft_;
        value *= static_cast<float>(fadeLeft_) / static_cast<float>(fadeFrames_);
        isDone = isDone || fadeLeft_ == 0;
    }
    if (isDone) sound_ = nullptr;
    return value;
}

}  // namespace stage
