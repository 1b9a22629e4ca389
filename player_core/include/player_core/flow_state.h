#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace gui {

/// What the display feed knows beyond the song: where the display is and what it still has to show. A plain value. What
/// the display was told of bar, meter, key, tempo, marker and page is no part of it: a new display is told all of that
/// anew.
struct DisplayState {
    /// A status that waits for its tick, or the one that is shown.
    struct Status {
        unsigned int tick = 0;
        std::string type;
        int count = 0;
        bool operator==(const Status&) const = default;
    };

    unsigned int tick = 0;          ///< the last accepted playhead
    unsigned int seekFromTick = 0;  ///< the playhead that the last seek left
    bool seekForward = false;
    bool seekPending = false;              ///< reported positions from the far side of the seek are still refused
    bool resetDisplay = false;             ///< the next pass sends the neutral values as well
    std::vector<Status> filed;             ///< ascending by tick, one a tick
    unsigned int sentUntilTick = 0;        ///< what is filed at or before it waits until the playhead goes back
    std::optional<unsigned int> zeroTick;  ///< where a caesura's zero count stays shown although it was displaced
    std::optional<Status> shown;           ///< what was sent last
    bool operator==(const DisplayState&) const = default;
};

}  // namespace gui

/// Everything that decides what flow control answers next, for one moment of one song: taken by ShowControl::Snapshot,
/// put back by ShowControl::Restore. A plain value; ticks are indices from the start of the song's data.
///
/// Not in it: the song and its edits, which must be loaded when it is put back; whether anything plays, the engine's
/// own position and the player's note of a cancelled caesura, which are the player's.
struct FlowState {
    /// A loop that playback is inside of. Unlike LoopEvent it is equal to another only if the passes are, too.
    struct Loop {
        unsigned char type = 0;  ///< code of the edit: vamp, repeat or fermata
        unsigned int start = 0;
        unsigned int end = 0;
        int limit = 0;  ///< number of passes; 0 is unlimited
        int pass = 1;   ///< passes begun so far
        bool canceled = false;
        bool operator==(const Loop&) const = default;
    };
    /// A caesura that was met and not finished.
    struct Caesura {
        unsigned int tick = 0;
        std::vector<unsigned int> countdown;  ///< the beats that count down to it, ascending, at most five
        bool zeroShown = false;
        bool operator==(const Caesura&) const = default;
    };
    /// A stretch of the song: from start up to, and without, end.
    struct Range {
        unsigned int start = 0;
        unsigned int end = 0;
        bool operator==(const Range&) const = default;
    };
    /// An edit without length that has had its one turn.
    struct Spent {
        unsigned char type = 0;  ///< code of the edit: vamp, repeat, cut or fermata
        unsigned int start = 0;
        unsigned int end = 0;
        int value = 0;
        bool operator==(const Spent&) const = default;
    };
    /// What the last advance search found; see FindNextControlEventResult.
    struct Result {
        bool loopStartsHere = false;
        bool stopBeforeEnd = false;
        bool caesuraHere = false;
        bool cutHere = false;
        unsigned int tick = 0;
        bool operator==(const Result&) const = default;
    };

    std::string song;              ///< number of the song
    unsigned int tick = 0;         ///< the playhead of flow control
    unsigned int trackerTick = 0;  ///< where its HowToPlay is
    bool attacca = false;

    std::vector<Loop> loops;  ///< in their order: the one that ends soonest first, canceled ones included
    /// The fermata that holds. It need not be among the loops, nor in the log: a cut may have skipped it, a reload may
    /// have taken it away, and it is released at its end all the same.
    std::optional<Range> fermata;
    bool fermataCanceledCaesura = false;
    std::vector<Spent> spent;

    std::vector<Caesura> caesuras;  ///< the current one first
    bool atCaesura = false;
    bool caesuraPost = false;  ///< the stop at the caesura has been performed
    unsigned int caesuraTick = 0;
    std::optional<unsigned int> caesuraShownTick;  ///< while the playhead is here, a seek's "Caesura" is shown

    bool jump = false;
    bool jumpForVampRepeatOrCut = false;
    unsigned int preJumpTick = 0;
    unsigned int jumpTargetTick = 0;
    unsigned int lastSeekTick = 0;
    bool seekIsOwn = false;                 ///< flow control is about to make a seek of its own
    std::optional<unsigned int> ownCutEnd;  ///< a seek to here is part of one of its own that ended in a cut
    Result result;

    double tempoScale = 1.0;  ///< what the operator has set; the edits' share follows from song and tick
    int transposition = 0;    ///< likewise, in semitones

    bool vampLamp = false;  ///< as the display was last sent
    gui::DisplayState display;

    bool operator==(const FlowState&) const = default;
};

/// One line of JSON, without a line end; it names its version. Any thread; allocates.
[[nodiscard]] std::string ToText(const FlowState& state);

/// Reads what ToText wrote, whatever the order of the fields and the space between them. Every field must be there once
/// and no other; numbers must be in their ranges. Throws std::invalid_argument, in one sentence that names place and
/// reason, for anything else, for another version and for more than 16 MiB. Any thread; allocates no more than a small
/// multiple of the text.
[[nodiscard]] FlowState FlowStateFromText(std::string_view text);
