#pragma once

#include <string>
#include <vector>

/// The music of a show as MIDI: its songs and their time, what a musician must know at a place, commands from MIDI
/// ports and time code to them.
namespace tavo_midi {

/// Frames a second of MIDI time code, in the order in which the time code itself numbers them.
enum class FrameRate : unsigned char {
    Fps24 = 0,        ///< 24, film
    Fps25 = 1,        ///< 25, EBU
    Fps2997Drop = 2,  ///< 30000 / 1001, counted as 30 with addresses left out (drop frame)
    Fps30 = 3,        ///< 30 exactly; 30000 / 1001 without drop frame has no number here
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
