#pragma once

#include <cstdint>
#include <memory>

#include "stage/show/settings.h"

namespace stage {

/// A room: what is sent into it comes back as its reverberation, without the sound itself. Eight combs and four
/// all-passes for each side (Freeverb). What comes back depends on what was sent only, not on how it was cut into
/// calls. Used by one thread; all but the constructor is real-time safe.
class Reverb {
public:
    Reverb(const Settings::Reverb& room, std::uint32_t framesPerSecond);
    ~Reverb();
    Reverb(const Reverb&) = delete;
    Reverb& operator=(const Reverb&) = delete;

    /// Replaces what is sent by what comes back.
    void Process(float* left, float* right, std::uint32_t frames);
    /// The room is silent from the next frame on.
    void Clear();
    /// Whether anything is to come back of what was sent, louder than -140 dB.
    [[nodiscard]] bool IsRinging() const { return isRinging_; }

private:
    class Room;

    const std::unique_ptr<Room> room_;
    // Constant after construction.
    double undelayed_ = 0;  // how much of both sides comes back at once
    std::uint32_t quietFramesToRest_ = 0;
    // Used by the processing thread.
    bool isRinging_ = false;
    std::uint32_t quietFrames_ = 0;
};

}  // namespace stage
