#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "stage/engine/click.h"
#include "stage/engine/cut_off_tail.h"
#include "stage/engine/gain.h"
#include "stage/engine/group_mixer.h"
#include "stage/engine/level_meter.h"
#include "stage/engine/midi_out.h"
#include "stage/engine/song_plan.h"
#include "stage/engine/sound_player.h"
#include "stage/engine/stereo_buffer.h"
#include "stage/engine/synth.h"

namespace stage {

/// Something for the sound to do at the frame that comes next.
struct SoundOrder {
    enum class Kind : std::uint8_t {
        Play,         ///< `event` of `plan`, notes transposed by `transposition`
        EndNotes,     ///< lifts the pedals and ends every note
        Silence,      ///< at once
        Chase,        ///< the channels as playing `plan` up to `tick` leaves them
        Click,        ///< a click sounds
        SetSynth,     ///< the instruments' volume to `level`, in a short ramp
        SetClick,     ///< the click's volume likewise
        SetMaster,    ///< the master volume likewise
        SetEffects,   ///< the sound effects' volume likewise
        SetAmbience,  ///< the ambiences' volume likewise
        SetGroup,     ///< the level of the group mixer's strip `strip` likewise
        StartSound,   ///< `sound` begins, `offset` frames inside
        EndSounds,    ///< of all kinds
        EndAmbiences,
        EndSoundsBefore,  ///< whose end `tick` is, or that end before it
        FollowJump,       ///< of a loop or a cut to `tick`: sounds go on as far as they reach there
        PauseSounds,
        ResumeSounds,
        FollowEdits,  ///< what sounds, of the song of `plan`, follows its edits
        Fade,         ///< the fader to `level` in `frames`; FadeDone is reported with `fade` unless that is 0
    };

    Kind kind = Kind::Play;
    tavo_midi::MidiEvent event = {};
    bool isAccent = false;  ///< of Click
    int transposition = 0;
    std::uint32_t tick = 0;
    std::uint32_t frames = 0;
    std::uint32_t fade = 0;
    std::uint32_t strip = 0;
    float level = 0;
    const SongPlan* plan = nullptr;
    const PlannedSound* sound = nullptr;  ///< of `plan`
    std::uint64_t offset = 0;
};

/// What sounds: the synthesizer, effects and ambiences, the click and the gains behind them. Used by the rendering
/// thread only, which needs no lock for it.
class EngineSound {
public:
    /// `synth` outlives the object.
    EngineSound(Synth& synth, std::uint32_t framesPerSecond);

    /// Mixes the instruments in groups from now on; `plan` outlives the object. Before anything is rendered, and where
    /// the synthesizer was made for groups.
    void SetGroups(const GroupPlan& plan);
    /// Null without groups.
    [[nodiscard]] const GroupMixer* GetGroups() const { return groups_.get(); }

    /// The music leaves there as well. While nobody renders; the object outlives this one.
    void SetMidiOut(MidiOut& midiOut) {
        midiOut_ = &midiOut;
        synth_.SetListener(&midiOut);
    }
    /// Whether levels are measured, which nobody needs in a render. While nobody renders.
    void SetMetered(bool isMetered);
    [[nodiscard]] const LevelMeter& GetMainMeter() const { return mainMeter_; }

    void Do(const SoundOrder& order);

    /// Where the next frames go, in the order of ListSoundOutputs: the instruments sound in the first, the click in the
    /// second, the groups that have a pair of their own in the following ones, as far as there are any. One in which
    /// nothing sounds is silent. The buffers stay until Write or the next call.
    void SetBuffers(std::span<const StereoBuffer> pairs);
    void Render(std::uint32_t frames);
    /// Writes what was rendered: until then the synthesizer may lag behind.
    void Write();

    /// Whether the click sounds in the first group, too.
    void SetClickInMain(bool isInMain) { clickInMain_ = isInMain; }

    /// The fade that has arrived since the last call; 0 for none.
    [[nodiscard]] std::uint32_t TakeFadeDone();
    /// Effects that sound.
    [[nodiscard]] std::size_t CountEffects() const { return sounds_.CountEffects(); }

private:
    void Play_(const SoundOrder& order);
    void DoSound_(const SoundOrder& order);
    void FollowEdits_(const SongPlan& plan);
    void MoveVolume_(Gain& gain, float level);
    void RenderClick_(std::uint32_t frames);
    void AddClick_(float* left, float* right);
    void CutOff_();
    void WriteGroups_(const StereoBuffer& main);
    void Chase_(const SongPlan& plan, std::uint32_t tick);

    // Constant after construction.
    Synth& synth_;
    const std::uint32_t framesPerSecond_;
    const std::uint32_t rampFrames_;
    // Used by the rendering thread only.
    std::vector<ChannelState> chaseStates_;
    float* left_ = nullptr;  // where the instruments' next frame goes
    float* right_ = nullptr;
    StereoBuffer clickGroup_;               // where the click's goes, if anywhere
    std::unique_ptr<GroupMixer> groups_;    // null without groups
    std::vector<StereoBuffer> ownOutputs_;  // where the next frame of those with a pair of their own goes
    std::vector<StereoBuffer> silentPairs_;
    std::uint32_t unwrittenFrames_ = 0;  // before there, without their gains yet
    CutOffTail cutOff_;                  // without groups
    MidiOut* midiOut_ = nullptr;
    bool isMetered_ = false;
    LevelMeter mainMeter_;
    Gain synthGain_;
    Gain masterGain_;
    Gain fadeGain_;
    SoundPlayer sounds_;
    ClickVoice click_;
    Gain clickGain_;
    Gain clickMasterGain_;  // the master's, as it applies to the click
    bool clickInMain_ = false;
    bool hasRendered_ = false;  // something: before, a volume is there at once
    std::uint32_t fade_ = 0;    // to be reported when it has arrived
};

}  // namespace stage
