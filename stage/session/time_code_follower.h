#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>

#include "stage/engine/engine_event.h"
#include "tavo_midi/midi_time_code_controller.h"
#include "tavo_midi/user_controls.h"

namespace stage {

/// Time from the song's beginning to `tick`, as it is heard at the user's tempo scale; negative before the beginning.
[[nodiscard]] std::chrono::nanoseconds FindTimeInSong(const tavo_midi::TempoMap& heard, std::uint32_t startTick,
                                                      std::uint32_t tick, double userScale);
/// The last tick whose time in the song is not after `time`, which is not negative.
[[nodiscard]] std::uint32_t FindTickInSong(const tavo_midi::TempoMap& heard, std::uint32_t startTick,
                                           std::chrono::nanoseconds time, double userScale);

/// The moment at which a session's frame is heard, on the steady clock; nothing while no device plays.
using FindMomentHeard = std::function<std::optional<std::chrono::nanoseconds>(std::int64_t frame)>;

/// Has MIDI time code follow the playhead as it is heard: each frame at the moment that the device's clock tells, or
/// where there is none, at the moment that it is rendered. When the user changes the tempo scale while the playhead
/// moves, time code goes on from where the music then is.
class TimeCodeFollower final : public EngineSubscriber {
public:
    /// The references outlive the object.
    TimeCodeFollower(MidiTimeCodeController& controller, const UserControls& controls, std::uint32_t framesPerSecond)
        : controller_(controller), controls_(controls), framesPerSecond_(framesPerSecond) {}

    /// Where frames are heard later than they are rendered; an empty function takes it away. While nobody renders.
    void SetMomentHeard(FindMomentHeard findMomentHeard) { findMomentHeard_ = std::move(findMomentHeard); }

    void OnEngineEvent(const EngineEvent& event) override;

private:
    void OnBlock_(const EngineEvent& event);
    void FollowScale_(const EngineEvent& event);
    [[nodiscard]] std::chrono::nanoseconds TimeOf_(std::int64_t frame) const;

    MidiTimeCodeController& controller_;
    const UserControls& controls_;
    const std::uint32_t framesPerSecond_;
    // Used by the rendering thread only.
    FindMomentHeard findMomentHeard_;
    std::string songNumber_;
    double scale_ = 1;
    bool rolls_ = false;
    std::int64_t anchorFrame_ = 0;
    std::optional<std::chrono::nanoseconds> anchorTime_;
    bool isAnchorHeard_ = false;  ///< by the device's clock
};

}  // namespace stage
