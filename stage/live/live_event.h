#pragma once

#include <cstdint>

#include "stage/engine/engine_event.h"

namespace tavo_midi {
class SongData;
}

namespace stage {

/// Something that playback did, to be reported when its frame is heard. A plain value.
struct LiveEvent {
    enum class Kind : std::uint8_t {
        Song,       ///< `song` was put in and stands, or plays on, at `tick`
        Started,    ///< time goes on at `tick`
        Stopped,    ///< playback was stopped at `tick`
        Put,        ///< the playhead, which is not moving, was put at `tick`
        Jumped,     ///< from `fromTick` to `tick`, for `reason`
        Held,       ///< a fermata holds at `tick`
        Released,   ///< it was released
        Caesura,    ///< playback has stopped at the caesura at `tick`
        SongEnded,  ///< the song has ended at `tick`
        Late,       ///< the device found frames missing; `tick` was due
        Bar,        ///< a bar has begun at `tick`; LiveJson tells which beats do
        Beat,       ///< a beat has begun, or something else that an edit makes happen at `tick`
    };

    Kind kind = Kind::Started;
    EngineEvent::Reason reason = EngineEvent::Reason::Loop;  ///< of Jumped
    std::int64_t frame = 0;                                  ///< since the session began
    std::uint32_t fromTick = 0;
    std::uint32_t tick = 0;
    std::uint32_t missingFrames = 0;            ///< of Late
    const tavo_midi::SongData* song = nullptr;  ///< the one that is in; lives as long as the session
};

}  // namespace stage
