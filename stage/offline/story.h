#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "stage/offline/trace.h"

namespace stage {

/// Tells a trace as a person would tell the evening: minute and second, the bar, and what happened in words. What the
/// display shows anew at one place is one line; bars are told as the place of what happens, countdowns when they begin.
class Story {
public:
    /// `sink` hears each line of the story, line end included.
    Story(Trace::Sink sink, std::uint32_t framesPerSecond);

    /// The next line of an exact trace, as a Trace writes it.
    void Hear(std::string_view line);

private:
    void HearValue_(std::string_view event, std::int64_t frame, const std::string& details);
    void HearStatus_(const std::string& details);
    void Tell_(const std::string& sentence);
    void TellValues_();

    // Constant after construction.
    const Trace::Sink sink_;
    const double framesPerSecond_;

    std::int64_t frame_ = 0;
    std::string bar_;
    std::string status_;               // the word that was told last
    std::vector<std::string> values_;  // of the display, not told yet
    std::int64_t valuesFrame_ = 0;     // of the first of them
    bool isSongNew_ = false;           // nothing that it begins with has been told
    bool isLampOn_ = false;
};

}  // namespace stage
