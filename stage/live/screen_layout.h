#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "stage/live/live_status.h"
#include "stage/live/screen_picture.h"

namespace stage {

struct ScreenSong {
    std::string number;
    std::string title;
};

/// A press that was decided.
struct ScreenPress {
    std::string text;
    bool isTaken = true;  ///< else the text says why it was not
};

/// What the operator's keys have opened on the screen, and what they did. A plain value.
struct ScreenState {
    enum class Mode : std::uint8_t {
        Show,
        Place,  ///< a place to go to is being typed
        Songs,  ///< one is being chosen
        Keys,   ///< all keys are shown
        AskQuit,
        AskResume,
    };

    Mode mode = Mode::Show;
    std::string entry;                ///< of Place
    std::vector<ScreenSong> songs;    ///< of the show
    std::size_t chosen = 0;           ///< of Songs
    std::string question;             ///< of AskQuit and AskResume
    std::string notice;               ///< one sentence; empty for none
    bool isRefusal = false;           ///< the notice says why something was not done
    std::deque<ScreenPress> presses;  ///< the last ones, the newest first
};

/// The screen of `stage play`. At 80x24 all of it has room; a larger one has larger digits and more lines, a smaller
/// one loses lines from its end on. Thread-safe; does not block.
[[nodiscard]] ScreenPicture LayOutScreen(const LiveStatus& status, const ScreenState& state, const ScreenSize& size);

/// What a person reads of a status of the display: "EndOfSong" is "End of song".
[[nodiscard]] std::string DescribeStatusName(const std::string& status);
/// "PLAYING".
[[nodiscard]] std::string DescribeMotion(LiveStatus::Motion motion);

}  // namespace stage
