#include "stage/engine/sound_player.h"

#include <algorithm>
#include <utility>

namespace stage {

namespace {

constexpr double CutSeconds = 0.004;
constexpr double LevelSeconds = 0.01;

}  // namespace

bool PlannedSound::IsSame(const PlannedSound& other) const {
    return song == other.song && start == other.start && sound->GetUse() == other.sound->GetUse() &&
           RingsOut() == other.RingsOut() && sound->GetName() == other.sound->GetName();
}

SoundPlayer::SoundPlayer(std::uint32_t framesPerSecond)
    : fadeFrames_(static_cast<std::uint32_t>(CutSeconds * framesPerSecond)),
      levelFrames_(static_cast<std::uint32_t>(LevelSeconds * framesPerSecond)) {}

void SoundPlayer::Start(const PlannedSound& planned, std::uint64_t offset) {
    if (planned.IsAmbience()) {
        const bool isThere = std::any_of(voices_.begin(), voices_.end(), [&](const Voice& voice) {
            return voice.state == State::Sounding && voice.planned.IsSame(planned);
        });
        if (isThere) return;
    }
    MakeRoom_();
    Voice* const voice = FindFree_();
    *voice = Voice();
    ++busyVoices_;
    voice->state = State::Sounding;
    voice->planned = planned;
    voice->place = offset;
    voice->number = nextNumber_++;
    voice->level.MoveTo(planned.gain, 0);
    voice->isWaiting = planned.sound->GetClip() == nullptr;
    if (voice->isWaiting && !planned.sound->IsRead()) planned.sound->NoteLate();
    voice->envelope.MoveTo(offset > 0 ? 0.0F : 1.0F, 0);
    if (offset > 0) voice->envelope.MoveTo(1.0F, fadeFrames_);
}

// The one that began first of those that fade away makes way where there is no other; it takes more presses within
// 4 ms than anybody makes.
SoundPlayer::Voice* SoundPlayer::FindFree_() {
    Voice* oldest = nullptr;
    for (Voice& voice : voices_) {
        if (voice.state == State::Free) return &voice;
        if (voice.state == State::Ending && (oldest == nullptr || voice.number < oldest->number)) oldest = &voice;
    }
    --busyVoices_;
    return oldest;
}

void SoundPlayer::MakeRoom_() {
    std::size_t sounding = 0;
    Voice* first = nullptr;
    for (Voice& voice : voices_) {
        if (voice.state == State::Free || voice.state == State::Ending) continue;
        ++sounding;
        // Ambiences only where there is nothing but ambiences.
        const auto rank = [](const Voice& one) { return std::pair(one.planned.IsAmbience(), one.number); };
        if (first == nullptr || rank(voice) < rank(*first)) first = &voice;
    }
    if (sounding >= MostSounds) End_(*first);
}

void SoundPlayer::End_(Voice& voice) {
    if (voice.state == State::Free || voice.state == State::Ending) return;
    voice.state = State::Ending;
    // Faded away already where it is held.
    if (voice.envelope.GetTarget() != 0.0F) voice.envelope.MoveTo(0.0F, fadeFrames_);
}

void SoundPlayer::EndAll() {
    for (Voice& voice : voices_)
        End_(voice);
}

void SoundPlayer::EndAmbiences() {
    for (Voice& voice : voices_)
        if (voice.state != State::Free && voice.planned.IsAmbience()) End_(voice);
}

void SoundPlayer::EndBefore(std::uint32_t tick) {
    for (Voice& voice : voices_)
        if (voice.state != State::Free && !voice.planned.RingsOut() && voice.planned.end <= tick) End_(voice);
}

void SoundPlayer::FollowJump(std::uint32_t tick) {
    EndBefore(tick);
    for (Voice& voice : voices_)
        if (voice.state != State::Free && voice.planned.IsAmbience() && !voice.planned.Covers(tick)) End_(voice);
}

void SoundPlayer::Pause() {
    for (Voice& voice : voices_) {
        if (voice.state != State::Sounding) continue;
        voice.state = State::Pausing;
        voice.pausedPlace = voice.place;
        voice.envelope.MoveTo(0.0F, fadeFrames_);
        if (!voice.isWaiting) continue;
        voice.state = State::Paused;
        voice.envelope.MoveTo(0.0F, 0);
    }
}

void SoundPlayer::Resume() {
    for (Voice& voice : voices_) {
        if (voice.state != State::Pausing && voice.state != State::Paused) continue;
        voice.state = State::Sounding;
        voice.place = voice.pausedPlace;
        voice.envelope.MoveTo(1.0F, voice.isWaiting ? 0 : fadeFrames_);
    }
}

void SoundPlayer::BeginReplacing() {
    for (Voice& voice : voices_)
        voice.isReplaced = false;
}

void SoundPlayer::Replace(const PlannedSound& planned) {
    for (Voice& voice : voices_) {
        if (voice.state == State::Free || !voice.planned.IsSame(planned)) continue;
        voice.isReplaced = true;
        voice.planned.end = planned.end;
        voice.planned.gain = planned.gain;
        voice.level.MoveTo(planned.gain, levelFrames_);
    }
}

void SoundPlayer::EndUnreplaced(const void* song) {
    for (Voice& voice : voices_)
        if (voice.state != State::Free && voice.planned.song == song && !voice.isReplaced) End_(voice);
}

void SoundPlayer::Mix(float* left, float* right, std::uint32_t frames) {
    if (busyVoices_ == 0 && !effectsVolume_.IsMoving() && !ambienceVolume_.IsMoving()) return;
    for (std::uint32_t done = 0; done < frames; done += ChunkFrames) {
        const std::uint32_t chunk = std::min(frames - done, ChunkFrames);
        MixKind_(false, effectsVolume_, left + done, right + done, chunk);
        MixKind_(true, ambienceVolume_, left + done, right + done, chunk);
    }
}

void SoundPlayer::MixKind_(bool isAmbience, Gain& volume, float* left, float* right, std::uint32_t frames) {
    std::fill_n(kindSound_.left.begin(), frames, 0.0F);
    std::fill_n(kindSound_.right.begin(), frames, 0.0F);
    bool isAnything = false;
    for (Voice& voice : voices_) {
        if (voice.state == State::Free || voice.planned.IsAmbience() != isAmbience) continue;
        isAnything = true;
        MixVoice_(voice, frames);
    }
    volume.Apply(kindSound_.left.data(), kindSound_.right.data(), frames);
    if (!isAnything) return;
    for (std::uint32_t i = 0; i < frames; ++i) {
        left[i] += kindSound_.left[i];
        right[i] += kindSound_.right[i];
    }
}

void SoundPlayer::MixVoice_(Voice& voice, std::uint32_t frames) {
    const SoundClip* const clip = voice.planned.sound->GetClip();
    bool isDone = clip == nullptr && voice.planned.sound->IsRead();
    if (voice.state != State::Paused) {
        if (clip == nullptr) {
            voice.place += frames;
        } else {
            // Late, and inside by now.
            if (voice.isWaiting && voice.place > 0 && voice.state == State::Sounding) {
                voice.envelope.MoveTo(0.0F, 0);
                voice.envelope.MoveTo(1.0F, fadeFrames_);
            }
            voice.isWaiting = false;
            const std::uint32_t read =
                voice.IsSteady() ? AddSteadily_(voice, *clip, frames) : AddFading_(voice, *clip, frames);
            isDone = read < frames && voice.state != State::Pausing;
        }
    }
    const bool isSilent = !voice.envelope.IsMoving() && voice.envelope.GetTarget() == 0.0F;
    if (voice.state == State::Pausing && isSilent) voice.state = State::Paused;
    if (voice.state == State::Ending && (isSilent || clip == nullptr)) isDone = true;
    if (!isDone) return;
    // The library has it still: nothing is destroyed here.
    voice.state = State::Free;
    voice.planned.sound.reset();
    --busyVoices_;
}

// Both return fewer frames than asked for where the sound ends, and both give the same samples.
std::uint32_t SoundPlayer::AddSteadily_(Voice& voice, const SoundClip& clip, std::uint32_t frames) {
    const float level = voice.level.GetTarget();
    std::uint32_t read = 0;
    while (const Piece piece = FindPiece_(voice, clip, frames - read)) {
        float* const left = kindSound_.left.data() + read;
        float* const right = kindSound_.right.data() + read;
        for (std::uint32_t i = 0; i < piece.frames; ++i) {
            left[i] += piece.left[i] * level;
            right[i] += piece.right[i] * level;
        }
        read += piece.frames;
        voice.place += piece.frames;
    }
    return read;
}

std::uint32_t SoundPlayer::AddFading_(Voice& voice, const SoundClip& clip, std::uint32_t frames) {
    std::uint32_t read = 0;
    while (const Piece piece = FindPiece_(voice, clip, frames - read)) {
        std::copy_n(piece.left, piece.frames, voiceSound_.left.begin() + read);
        std::copy_n(piece.right, piece.frames, voiceSound_.right.begin() + read);
        read += piece.frames;
        voice.place += piece.frames;
    }
    std::fill(voiceSound_.left.begin() + read, voiceSound_.left.begin() + frames, 0.0F);
    std::fill(voiceSound_.right.begin() + read, voiceSound_.right.begin() + frames, 0.0F);
    for (Gain* gain : {&voice.level, &voice.envelope})
        gain->Apply(voiceSound_.left.data(), voiceSound_.right.data(), frames);
    for (std::uint32_t i = 0; i < read; ++i) {
        kindSound_.left[i] += voiceSound_.left[i];
        kindSound_.right[i] += voiceSound_.right[i];
    }
    return read;
}

SoundPlayer::Piece SoundPlayer::FindPiece_(const Voice& voice, const SoundClip& clip, std::uint32_t frames) {
    const std::uint64_t length = clip.CountFrames();
    const std::uint64_t at = voice.planned.IsAmbience() ? voice.place % length : voice.place;
    if (at >= length) return {};
    return {clip.left.data() + at, (clip.right.empty() ? clip.left : clip.right).data() + at,
            static_cast<std::uint32_t>(std::min<std::uint64_t>(frames, length - at))};
}

std::size_t SoundPlayer::CountSounds() const {
    return static_cast<std::size_t>(std::count_if(voices_.begin(), voices_.end(), [](const Voice& voice) {
        return voice.state != State::Free && voice.state != State::Ending;
    }));
}

std::size_t SoundPlayer::CountEffects() const {
    return static_cast<std::size_t>(std::count_if(voices_.begin(), voices_.end(), [](const Voice& voice) {
        const bool isHeard = voice.state == State::Sounding || voice.state == State::Ending;
        return isHeard && !voice.planned.IsAmbience();
    }));
}

}  // namespace stage
