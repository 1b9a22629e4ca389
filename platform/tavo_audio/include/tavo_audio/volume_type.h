#pragma once

/// The line between the transport and the audio engine that plays for it.
namespace tavo_audio {

/// Which volume is meant. The single-argument volume operations mean Master.
enum VolumeType : int {
    Synth = 0,     ///< the instruments
    Master = 1,    ///< everything
    Click = 2,     ///< the metronome
    Effects = 3,   ///< sound effects
    Ambience = 4,  ///< ambient sounds, which lie under a range
};

}  // namespace tavo_audio
