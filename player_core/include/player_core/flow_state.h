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
        unsigned int tick = 0;  ///< where it is due, or was when it was sent
        std::string type;       ///< the word, as StatusFlowControl has it
        int count = 0;          ///< what goes with the word, likewise
        /// The same word and count at the same tick.
        bool operator==(const Status&) const = default;
    };

    unsigned int tick = 0;                 ///< the last accepted playhead
    unsigned int seekFromTick = 0;         ///< the playhead that the last seek left
    bool seekForward = false;              ///< that seek went to a later tick
    bool seekPending = false;              ///< reported positions from the far side of the seek are still refused
    bool resetDisplay = false;             ///< the next pass sends the neutral values as well
    std::vector<Status> filed;             ///< ascending by tick, one a tick
    unsigned int sentUntilTick = 0;        ///< what is filed at or before it waits until the playhead goes back
    std::optional<unsigned int> zeroTick;  ///< where a caesura's zero count stays shown although it was displaced
    std::optional<Status> shown;           ///< what was sent last
    /// All fields count.
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
        unsigned int start = 0;  ///< first tick of the loop, to which a pass jumps back
        unsigned int end = 0;    ///< first tick after it, at which it is decided what follows
        int limit = 0;           ///< number of passes; 0 is unlimited
        int pass = 1;            ///< passes begun so far
        bool canceled = false;   ///< it does not jump back any more and waits to be swept out
        /// All fields count, the passes included.
        bool operator==(const Loop&) const = default;
    };
    /// A caesura that was met and not finished.
    struct Caesura {
        unsigned int tick = 0;                ///< where it stands
        std::vector<unsigned int> countdown;  ///< the beats that count down to it, ascending, at most five
        bool zeroShown = false;               ///< its count 0 was filed for the display, which happens once
        /// All fields count.
        bool operator==(const Caesura&) const = default;
    };
    /// A stretch of the song: from start up to, and without, end.
    struct Range {
        unsigned int start = 0;  ///< its first tick
        unsigned int end = 0;    ///< the first tick after it
        /// The same ticks.
        bool operator==(const Range&) const = default;
    };
    /// An edit without length that has had its one turn.
    struct Spent {
        unsigned char type = 0;  ///< code of the edit: vamp, repeat, cut or fermata
        unsigned int start = 0;  ///< where it is met
        unsigned int end = 0;    ///< at start or before it
        int value = 0;           ///< number of passes of a vamp or a repeat; 0 for the others
        /// All fields count.
        bool operator==(const Spent&) const = default;
    };
    /// What the last advance search found; see FindNextControlEventResult.
    struct Result {
        bool loopStartsHere = false;  ///< loops were registered at the searched tick
        bool stopBeforeEnd = false;   ///< the advance must stop early, at tick
        bool caesuraHere = false;     ///< playback had just reached a caesura; tick says nothing
        bool cutHere = false;         ///< a cut begins at the searched tick; tick is its end
        unsigned int tick = 0;        ///< where the advance ends, or where it goes on
        /// All fields count.
        bool operator==(const Result&) const = default;
    };

    std::string song;              ///< number of the song
    unsigned int tick = 0;         ///< the playhead of flow control
    unsigned int trackerTick = 0;  ///< where its HowToPlay is
    bool attacca = false;          ///< the song was attacca when it was loaded, or has been made so since

    std::vector<Loop> loops;  ///< in their order: the one that ends soonest first, canceled ones included
    /// The fermata that holds. It need not be among the loops, nor in the log: a cut may have skipped it, a reload may
    /// have taken it away, and it is released at its end all the same.
    std::optional<Range> fermata;
    bool fermataCanceledCaesura = false;  ///< the release of a fermata has dropped a pending caesura
    std::vector<Spent> spent;             ///< since the operator's last seek, a reset or a reload, in that order

    std::vector<Caesura> caesuras;                 ///< the current one first
    bool atCaesura = false;                        ///< playback has reached a caesura and not gone on
    bool caesuraPost = false;                      ///< the stop at the caesura has been performed
    unsigned int caesuraTick = 0;                  ///< the caesura that was reached last; 0 for none
    std::optional<unsigned int> caesuraShownTick;  ///< while the playhead is here, a seek's "Caesura" is shown

    bool jump = false;                      ///< a jump was made that the engine has not followed yet
    bool jumpForVampRepeatOrCut = false;    ///< the last jump was made for a loop, and not by a seek
    unsigned int preJumpTick = 0;           ///< the playhead before the last jump
    unsigned int jumpTargetTick = 0;        ///< where the last jump went
    unsigned int lastSeekTick = 0;          ///< where the last seek was sent
    bool seekIsOwn = false;                 ///< flow control is about to make a seek of its own
    std::optional<unsigned int> ownCutEnd;  ///< a seek to here is part of one of its own that ended in a cut
    Result result;                          ///< of the last advance search

    double tempoScale = 1.0;  ///< what the operator has set; the edits' share follows from song and tick
    int transposition = 0;    ///< likewise, in semitones

    bool vampLamp = false;      ///< as the display was last sent
    gui::DisplayState display;  ///< of the display feed that was installed

    /// All fields count.
    bool operator==(const FlowState&) const = default;
};

/// One line of JSON, without a line end; it names its version. Any thread; allocates.
[[nodiscard]] std::string ToText(const FlowState& state);

/// Reads what ToText wrote, whatever the order of the fields and the space between them. Every field must be there once
/// and no other; numbers must be in their ranges. Throws std::invalid_argument, in one sentence that names place and
/// reason, for anything else, for another version and for more than 16 MiB. Any thread; allocates no more than a small
/// multiple of the text.
[[nodiscard]] FlowState FlowStateFromText(std::string_view text);
