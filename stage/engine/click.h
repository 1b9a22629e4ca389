#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "tavo_core/song_log.h"
#include "tavo_midi/song_data.h"

namespace stage {

/// A beat at which the click may sound. A plain value.
struct ClickBeat {
    std::uint32_t tick = 0;
    bool isAccent = false;  ///< the first of its bar
    bool isEdited = false;  ///< a click edit covers it

    bool operator==(const ClickBeat&) const = default;
};

/// The song's beats before its end with the click edits applied, ascending by tick.
[[nodiscard]] std::vector<ClickBeat> CollectClickBeats(const tavo_midi::SongData& song, const CL::SongLog& songLog);

/// The click: two short sounds, a higher one for the accents. One sounds at a time. Not thread-safe; real-time safe
/// after construction.
class ClickVoice {
public:
    explicit ClickVoice(std::uint32_t framesPerSecond);

    void Strike(bool isAccent);
    /// What sounds fades away within 4 ms.
    void Silence();
    /// Writes the next `frames`; silence where nothing sounds.
    void Render(float* left, float* right, std::uint32_t frames);

private:
    [[nodiscard]] float Next_();

    const std::vector<float> accent_;
    const std::vector<float> plain_;
    const std::uint32_t fadeFrames_;
    const std::vector<float>* sound_ = nullptr;  // what sounds
    std::size_t place_ = 0;
    std::uint32_t fadeLeft_ = 0;  // while it fades away
};

}  // namespace stage
