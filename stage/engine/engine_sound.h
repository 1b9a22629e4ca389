#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "stage/engine/gain.h"
#include "stage/engine/song_plan.h"
#include "stage/engine/synth.h"

namespace stage {

/// The two channels of a group of sounds.
struct StereoBuffer {
    float* left = nullptr;
    float* right = nullptr;
};

/// Something for the sound to do at the frame that comes next.
struct SoundOrder {
    enum class Kind : std::uint8_t {
        Play,       ///< `event` of `plan`, notes transposed by `transposition`
        EndNotes,   ///< lifts the pedals and ends every note
        Silence,    ///< at once
        Chase,      ///< the channels as playing `plan` up to `tick` leaves them
        SetSynth,   ///< the instruments' volume to `level`, in a short ramp
        SetMaster,  ///< the master volume likewise
        Fade,       ///< the fader to `level` in `frames`; FadeDone is reported with `fade` unless that is 0
    };

    Kind kind = Kind::Play;
    tavo_midi::MidiEvent event = {};
    int transposition = 0;
    std::uint32_t tick = 0;
    std::uint32_t frames = 0;
    std::uint32_t fade = 0;
    float level = 0;
    const SongPlan* plan = nullptr;
};

/// What sounds: the synthesizer and the gains behind it. Used by the rendering thread only, which needs no lock for it.
class EngineSound {
public:
    /// `synth` outlives the object.
    EngineSound(Synth& synth, std::uint32_t framesPerSecond);

    void Do(const SoundOrder& order);

    /// Where the next frames go: one buffer for each group. The instruments sound in the first; a group in which
    /// nothing sounds is silent. The buffers stay until Write or the next call.
    void SetBuffers(std::span<const StereoBuffer> groups);
    void Render(std::uint32_t frames);
    /// Writes what was rendered: until then the synthesizer may lag behind.
    void Write();

    /// The fade that has arrived since the last call; 0 for none.
    [[nodiscard]] std::uint32_t TakeFadeDone();

private:
    /// Frames over which sound that is cut off fades away: 4 ms at 48 kHz.
    static constexpr std::uint32_t CutOffFrames = 3 * Synth::FramesPerBlock;

    void Play_(const SoundOrder& order);
    void CutOff_();
    void AddCutOff_(float* left, float* right, std::uint32_t frames);
    void Chase_(const SongPlan& plan, std::uint32_t tick);

    // Constant after construction.
    Synth& synth_;
    const std::uint32_t rampFrames_;
    // Used by the rendering thread only.
    std::vector<ChannelState> chaseStates_;
    float* left_ = nullptr;  // where the instruments' next frame goes
    float* right_ = nullptr;
    std::vector<StereoBuffer> silentGroups_;        // where that of the others goes
    std::uint32_t unwrittenFrames_ = 0;             // before there, without their gains yet
    std::array<float, CutOffFrames> cutOffLeft_{};  // what fades away after a cut
    std::array<float, CutOffFrames> cutOffRight_{};
    std::uint32_t cutOffPosition_ = CutOffFrames;
    Gain synthGain_;
    Gain masterGain_;
    Gain fadeGain_;
    std::uint32_t fade_ = 0;  // to be reported when it has arrived
};

}  // namespace stage
