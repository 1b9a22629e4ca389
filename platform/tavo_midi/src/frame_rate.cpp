#include "tavo_midi/frame_rate.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <stdexcept>

namespace tavo_midi {

// Threads may read it until the very end of the process.
const std::vector<std::string>& frameRateStrings = *new std::vector<std::string>{"24", "25", "29.97 drop", "30"};

std::string ConvertFrameRateToString(FrameRate frameRate) {
    const auto index = static_cast<std::size_t>(frameRate);
    if (index >= frameRateStrings.size())
        throw std::out_of_range(fmt::format("{} is not a frame rate: the values are 0 to 3", index));
    return frameRateStrings[index];
}

FrameRate ConvertStringToFrameRate(const std::string& text) {
    for (std::size_t index = 0; index < frameRateStrings.size(); ++index) {
        if (frameRateStrings[index] == text) return static_cast<FrameRate>(index);
    }
    throw std::out_of_range(
        fmt::format("\"{}\" is not a frame rate: choose one of {}", text, fmt::join(frameRateStrings, ", ")));
}

}  // namespace tavo_midi
