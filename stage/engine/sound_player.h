#pragma once

#include <array>
#include <cstdint>

#include "stage/engine/gain.h"
#include "stage/sounds/sound_library.h"

namespace stage {

/// A sound effect or an ambience of a song, as an edit asks for it.
struct PlannedSound {
    SoundPointer sound;
    const void* song = nullptr;  ///< tells those of different songs apart
    std::uint32_t start = 0;
    std::uint32_t end = 0;  ///< of an effect that rings out its start
    float gain = 1;         ///< factor on the amplitude

    [[nodiscard]] bool IsAmbience() const { return sound->GetUse() == SoundUse::Round; }
    [[nodiscard]] bool RingsOut() const { return end <= start; }
    [[nodiscard]] bool Covers(std::uint32_t tick) const { return start <= tick && tick < end; }
    /// The same edit, whatever its end and its gain are now.
    [[nodiscard]] bool IsSame(const PlannedSound& other) const;
};

/// Plays sound effects and ambiences: what begins, ends, is held and goes on does so at the frame that is mixed next.
/// Where sound is cut or taken up inside, it fades within 4 ms. What is not in memory yet begins as soon as it is, at
/// the place where it would be by then. Not thread-safe; real-time safe.
class SoundPlayer {
public:
    /// Beyond it the effect that began first makes way for the next sound.
    static constexpr std::size_t MostSounds = 64;

    explicit SoundPlayer(std::uint32_t framesPerSecond);

    /// Begins the sound, `offset` frames inside; an ambience from there round and round. One that sounds already goes
    /// on as it is.
    void Start(const PlannedSound& planned, std::uint64_t offset);
    void EndAll();
    void EndAmbiences();
    /// Playback is at `tick` by way of time: what ends at or before it ends.
    void EndBefore(std::uint32_t tick);
    /// Playback is at `tick` by way of a loop or a cut: ambiences that do not cover it end, and so do effects whose end
    /// was passed over.
    void FollowJump(std::uint32_t tick);
    /// Holds everything where it is, to be resumed at the same sample.
    void Pause();
    void Resume();
    /// The edit of what sounds was changed: its end and its gain follow.
    void Replace(const PlannedSound& planned);
    /// Ends what was begun by an edit of `song` that is none of those given to Replace since BeginReplacing.
    void BeginReplacing();
    void EndUnreplaced(const void* song);

    /// Factors on all effects and all ambiences, reached after `rampFrames`.
    void SetEffectsVolume(float volume, std::uint32_t rampFrames) { effectsVolume_.MoveTo(volume, rampFrames); }
    void SetAmbienceVolume(float volume, std::uint32_t rampFrames) { ambienceVolume_.MoveTo(volume, rampFrames); }

    /// Adds the next frames of all that sounds.
    void Mix(float* left, float* right, std::uint32_t frames);

    /// Sounds, and those that are held.
    [[nodiscard]] std::size_t CountSounds() const;
    /// Effects that sound.
    [[nodiscard]] std::size_t CountEffects() const;

private:
    static constexpr std::uint32_t ChunkFrames = 256;
    /// With those that fade away meanwhile.
    static constexpr std::size_t MostVoices = 2 * MostSounds;

    enum class State : std::uint8_t { Free, Sounding, Pausing, Paused, Ending };

    struct Voice {
        State state = State::Free;
        PlannedSound planned;
        std::uint64_t place = 0;        // of the next frame: of a sound that goes round, since it first began
        std::uint64_t pausedPlace = 0;  // where it goes on
        std::uint64_t number = 0;       // ascending in the order of beginning
        bool isWaiting = false;         // for the file
        bool isReplaced = false;
        Gain envelope;
        Gain level;

        [[nodiscard]] bool IsSteady() const {
            return !level.IsMoving() && !envelope.IsMoving() && envelope.GetTarget() == 1.0F;
        }
    };
    /// Frames of a clip that lie side by side.
    struct Piece {
        const float* left = nullptr;
        const float* right = nullptr;
        std::uint32_t frames = 0;

        explicit operator bool() const { return frames > 0; }
    };
    struct Chunk {
        std::array<float, ChunkFrames> left{};
        std::array<float, ChunkFrames> right{};
    };

    Voice* FindFree_();
    void End_(Voice& voice);
    void MakeRoom_();
    void MixKind_(bool isAmbience, Gain& volume, float* left, float* right, std::uint32_t frames);
    void MixVoice_(Voice& voice, std::uint32_t frames);
    std::uint32_t AddSteadily_(Voice& voice, const SoundClip& clip, std::uint32_t frames);
    std::uint32_t AddFading_(Voice& voice, const SoundClip& clip, std::uint32_t frames);
    /// What comes next, `frames` at most; nothing at the sound's end.
    [[nodiscard]] static Piece FindPiece_(const Voice& voice, const SoundClip& clip, std::uint32_t frames);

    const std::uint32_t fadeFrames_;
    const std::uint32_t levelFrames_;
    std::array<Voice, MostVoices> voices_;
    std::uint64_t nextNumber_ = 0;
    std::size_t busyVoices_ = 0;
    Gain effectsVolume_;
    Gain ambienceVolume_;
    Chunk voiceSound_;  // of one voice
    Chunk kindSound_;   // of all voices of a kind
};

}  // namespace stage
