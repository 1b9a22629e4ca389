#pragma once

#include "tavo_core/change_log_events.h"

/// What playback hands on to a host that listens.
namespace tavo {

/// Hears the OSC messages that playback reaches, where the host's flow control hands them on
/// (ShowControl::SetOscCallback). Called on the engine's thread: it must not block.
class PlayerOscCallback {
public:
    virtual ~PlayerOscCallback() = default;
    /// `message` is good for the call only: copy what is needed later.
    virtual void OnOsc(const CL::Osc& message) = 0;
};

/// Hears the sound effects that playback reaches, where a host's engine hands them on: the core itself calls it
/// nowhere. Called on the engine's thread: it must not block.
class SfxCallback {
public:
    virtual ~SfxCallback() = default;
    /// `effect` is good for the call only: copy what is needed later.
    virtual void OnSfx(const CL::Sfx& effect) = 0;
};

}  // namespace tavo
