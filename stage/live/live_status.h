#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "stage/engine/level_meter.h"
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
        std::uint32_t startTick = 0;
        std::uint32_t endTick = 0;  ///< the first after it
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
    double ticksPerSecond = 0;  ///< while playback moves
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

    struct Volume {
        std::string_view name;  ///< the word of the verb: "music"
        double factor = 1;
    };
    /// In the order of the verb's words, the master's first.
    std::vector<Volume> volumes;

    struct Group {
        std::string name;
        double volume = 1;
        bool isMuted = false;
        bool isSolo = false;
        SoundLevel level;  ///< behind its volume and trim, before the volumes of everything
    };
    /// The output groups, in the settings' order.
    std::vector<Group> groups;
    SoundLevel mainLevel;             ///< of the main output, before the limiter
    std::uint64_t limitedFrames = 0;  ///< that the limiter has turned down since the beginning

    OutputKeeper::State output;
    bool isRealTime = false;
    std::uint32_t leadFrames = 0;
    std::uint64_t latePeriods = 0;
    double longestBlockMs = 0;  ///< since the status before
    std::uint64_t slowBlocks = 0;
    std::uint64_t heldUpBlocks = 0;
    std::string midiInput;  ///< the port's name; empty without one
    std::string takeProblem;

    /// What other machines follow.
    struct TimeCode {
        bool isActive = false;
        std::string frameRate;  ///< "29.97 drop"
        std::string output;     ///< the port's name, there or not; empty while none is chosen
        bool runsOn = false;    ///< over jumps of the music, which it follows otherwise
        bool isRolling = false;
    };
    TimeCode timeCode;
    int pressGuardMs = 0;

    /// Where presses are taken from as OSC.
    struct Osc {
        std::string address;  ///< "127.0.0.1:7770"; empty where it does not listen
        std::string problem;  ///< why it does not although it should, one sentence
        std::size_t subscribers = 0;
        std::uint64_t refused = 0;  ///< messages
    };
    /// To where cues go.
    struct OscTarget {
        std::string name;
        std::string problem;     ///< why nothing gets there, one sentence; empty where nothing is known to be wrong
        std::uint64_t sent = 0;  ///< cues
        std::uint64_t lost = 0;
    };
    Osc osc;
    std::vector<OscTarget> oscTargets;

    std::deque<std::string> messages;  ///< the last ones that the listener heard, the newest last; it fills them in
};

}  // namespace stage
