#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

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

/// Has MIDI time code follow the playhead. A frame is taken to sound when it is rendered. While the playhead moves a
/// changed tempo scale of the user leaves time code alone: it is where the music is again at the next full frame.
class TimeCodeFollower final : public EngineSubscriber {
public:
    /// The references outlive the object.
    TimeCodeFollower(MidiTimeCodeController& controller, const UserControls& controls, std::uint32_t framesPerSecond)
        : controller_(controller), controls_(controls), framesPerSecond_(framesPerSecond) {}

    void OnEngineEvent(const EngineEvent& event) override;

private:
    void OnBlock_(std::int64_t frame);
    [[nodiscard]] std::chrono::nanoseconds TimeOf_(std::int64_t frame) const;

    MidiTimeCodeController& controller_;
    const UserControls& controls_;
    const std::uint32_t framesPerSecond_;
    // Used by the rendering thread only.
    std::string songNumber_;
    std::int64_t anchorFrame_ = 0;
    std::optional<std::chrono::nanoseconds> anchorTime_;
};

}  // namespace stage
