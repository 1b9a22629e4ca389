#pragma once

#include <string>
#include <vector>

namespace tavo_midi {

/// Frames a second of MIDI time code, in the order in which the time code itself numbers them.
enum class FrameRate : unsigned char {
    Fps24 = 0,
    Fps25 = 1,
    Fps2997Drop = 2,
    Fps30 = 3,
};

/// The display names of the frame rates, in the order of their values. Never destroyed.
extern const std::vector<std::string>& frameRateStrings;

/// The display name. Any thread. A value that is not a frame rate throws std::out_of_range with a sentence.
[[nodiscard]] std::string ConvertFrameRateToString(FrameRate frameRate);
/// The frame rate of a display name. Any thread. A text that is none throws std::out_of_range with a sentence.
[[nodiscard]] FrameRate ConvertStringToFrameRate(const std::string& text);

}  // namespace tavo_midi

using tavo_midi::ConvertFrameRateToString;
using tavo_midi::ConvertStringToFrameRate;
using tavo_midi::FrameRate;
using tavo_midi::frameRateStrings;
