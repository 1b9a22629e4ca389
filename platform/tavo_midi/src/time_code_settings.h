#pragma once

#include <map>
#include <string>
#include <vector>

#include "tavo_midi/midi_time_code_controller.h"

namespace tavo_midi {

/// What midiTimeCodeSettings holds.
struct TimeCodeSettings {
    bool isActive = false;
    FrameRate frameRate = FrameRate::Fps30;
    std::string outputName;
    MidiTimeCodeController::JumpRule jumpRule = MidiTimeCodeController::JumpRule::Locate;
    bool hoursAreSongNumbers = false;
    std::map<std::string, TimeCode> songOffsets;
    /// A sentence for each key of the file that is not known; they are ignored, and lost when the file is written.
    std::vector<std::string> warnings;
};

/// A missing file gives the defaults. Throws std::runtime_error with one sentence that names the file.
[[nodiscard]] TimeCodeSettings ReadTimeCodeSettings(const std::string& path);
void WriteTimeCodeSettings(const std::string& path, const TimeCodeSettings& settings);

/// The frame of the day where the song begins.
[[nodiscard]] std::int64_t GetSongStartFrame(const TimeCodeSettings& settings, const std::string& songNumber);

}  // namespace tavo_midi
