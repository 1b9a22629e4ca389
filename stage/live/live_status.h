#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "stage/live/output_keeper.h"

namespace stage {

/// What a person who runs the show wants to see of one moment. A plain value; the place is the one that is heard.
struct LiveStatus {
    enum class Motion : std::uint8_t { NoSong, Stopped, Playing, Paused, Fading, Holding };

    struct Loop {
        std::string kind;   ///< "vamp", "repeat" or "fermata"
        std::string place;  ///< "bars 12 to 15"
        int pass = 1;
        int limit = 0;        ///< 0 without one
        bool isLeft = false;  ///< it was released: its end is played over
    };

    std::string showTitle;
    bool isLocked = false;
    Motion motion = Motion::NoSong;

    std::string song;  ///< empty before one is loaded
    std::string title;
    std::uint32_t tick = 0;
    std::string bar;
    std::string beat;  ///< "3"
    std::string meter;
    std::string key;
    std::string page;
    std::string marker;
    std::string nextMarker;

    double beatsPerMinute = 0;  ///< as it is heard
    double tempoScale = 1;      ///< the operator's
    std::string scale;          ///< "90%": that of the edits as well
    int transposition = 0;      ///< in force, in semitones

    bool vampLamp = false;
    std::string status;  ///< "Caesura"; empty for none
    int statusCount = 0;
    std::vector<Loop> loops;
    /// Beats until playback leaves the loop that was released.
    std::optional<unsigned int> leavesInBeats;
    double elapsedSeconds = 0;

    double masterVolume = 1;
    double musicVolume = 1;

    OutputKeeper::State output;
    bool isRealTime = false;
    std::uint32_t leadFrames = 0;
    std::uint64_t latePeriods = 0;
    double longestBlockMs = 0;  ///< since the status before
    std::string midiInput;      ///< the port's name; empty without one
    std::string takeProblem;

    std::deque<std::string> messages;  ///< the last ones that the listener heard, the newest last; it fills them in
};

}  // namespace stage
