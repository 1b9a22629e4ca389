#pragma once

#include "tavo_core/change_log_events.h"

namespace tavo {

/// Hears the OSC messages that playback reaches. Called on the engine's thread: it must not block.
class PlayerOscCallback {
public:
    virtual ~PlayerOscCallback() = default;
    virtual void OnOsc(const CL::Osc& message) = 0;
};

/// Hears the sound effects that playback reaches. Called on the engine's thread: it must not block.
class SfxCallback {
public:
    virtual ~SfxCallback() = default;
    virtual void OnSfx(const CL::Sfx& effect) = 0;
};

}  // namespace tavo
