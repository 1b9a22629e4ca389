#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace notify {

/// What a display is sent: states, each as it changes, and all of them when a host asks for a refresh. After a seek the
/// feed also sends an empty Marker, Transposition 0 and TempoScale "100%" where the value is the one it sent before;
/// what is in force there follows with the next change or refresh.
enum class GuiNotificationType : std::uint8_t {
    Playhead,   ///< number: tick index of what is heard, some thirty times a second while it plays
    Marker,     ///< tick and text of the marker in force; an empty text clears it, tick is the playhead then
    SongTitle,  ///< text; sent when a song was put in, and when its edits changed
    BarBeat,    ///< text: "12:3", beats as they are clicked; empty before the first beat
    Meter,      ///< text: "6/8"
    StatusClickResolution,  ///< number: thirty-second notes per click
    Transposition,          ///< number: semitones, the operator's and the edits' together
    Key,                    ///< text: "Eb major", the key that sounds; empty where the song has none
    Tempo,                  ///< text: "104", metronome clicks a minute that sound
    TempoScale,             ///< text: "90%", the operator's scale times the edits'
    StatusTargetTempo,      ///< number: metronome clicks a minute, whole; with a refresh only
    PageNum,                ///< number: of the score's page; 0 before the first
    /// text: the status word, number: its count. "Vamp" and "Repeat": the pass, from 1. "Skip" (in a fermata): 0.
    /// "Caesura": beats left. "EndOfSong" and "AdvanceAttacca": clicks left. Empty: none, 0.
    StatusFlowControl,
    VampOn,           ///< the lamp: playback is in a vamp or a fermata, which the operator's press leaves
    VampOff,          ///< it is in none, or the press was made
    Caesura,          ///< tick: where playback stopped; PlaybackStopped follows
    PlaybackStarted,  ///< may be sent twice, and while playback runs
    PlaybackStopped,  ///< at a stop, a pause, a caesura or a song's end, or for a load; not at an attacca
    NoNextSong,       ///< the last song has ended, after PlaybackStopped
};

/// "Playhead", "BarBeat", ... as the enumerators are spelt; "" for a number that is none of them. Static text.
[[nodiscard]] const char* GuiNotificationName(GuiNotificationType type);

/// One thing that is sent to a display. Which of the values mean something depends on the type; the others are 0 or
/// empty.
struct GuiNotification {
    GuiNotificationType type = GuiNotificationType::Playhead;  ///< says what the three below are
    int number = 0;                                            ///< ticks, semitones, counts
    unsigned int tick = 0;                                     ///< index from the start of the song's data
    std::string text;                                          ///< UTF-8

    /// Compares all four, those without meaning for the type as well.
    bool operator==(const GuiNotification&) const = default;
};

/// Carries display notifications to the host's handlers, in the order of sending, on a thread of its own named
/// "GuiDispatcher". The Send operations are thread-safe, never wait for a handler and never run one on the caller's
/// thread; with no handler registered they do next to nothing. Nothing is lost, with two exceptions that lose no
/// state: a playhead that still waits to be delivered is dropped when a newer one is sent, which takes its own place
/// at the end (so a status may be heard before the playhead it followed, never after a later one); and a handler that
/// already heard of the vamp lamp's state is not sent it again. What a handler throws is logged and the handler kept.
/// Not real-time safe.
class GuiDispatcher {
public:
    /// Runs on the dispatcher's thread with no lock of the dispatcher's held; may call anything but the destructor.
    using Handler = std::function<void(const GuiNotification&)>;
    /// Above 0; never given twice by one dispatcher.
    using HandlerId = std::uint64_t;

    /// Starts no thread: the first handler does.
    GuiDispatcher();
    /// Ends the thread; what still waits is dropped. Blocks for a handler that runs; not to be called from one.
    ~GuiDispatcher();
    GuiDispatcher(const GuiDispatcher&) = delete;
    GuiDispatcher& operator=(const GuiDispatcher&) = delete;

    /// The handler hears everything sent from now on, after those that were added before it. The first one starts the
    /// thread: std::system_error where the system has none to give.
    HandlerId AddHandler(Handler handler);
    /// After it returns the handler does not run and never runs again, so it blocks while the handler runs; called from
    /// the handler itself it returns at once. Removing twice is fine.
    void RemoveHandler(HandlerId id);
    /// Waits until every handler has heard all that was sent before the call. Returns at once when nothing waits, when
    /// called from a handler, and after PrepareForExit. Blocks for as long as handlers do.
    void Drain();
    /// Handlers are not called any more: waits for one that runs (never for its own thread) and drops what is sent from
    /// then on. For a process that is about to exit; there is no way back.
    void PrepareForExit();

    // One for each kind; GuiNotificationType says what the arguments mean.
    /// Drops one that still waits to be delivered.
    void SendPlayhead(int tickIndex);
    /// An empty `text` is for "no marker"; `tickIndex` is then the playhead.
    void SendMarker(unsigned int tickIndex, const std::string& text);
    /// UTF-8, copied.
    void SendSongTitle(const std::string& title);
    /// Label and beat, "12:3".
    void SendBarBeat(const std::string& text);
    /// "6/8".
    void SendMeter(const std::string& text);
    /// 8 is a click every quarter note.
    void SendStatusClickResolution(int thirtySecondsPerClick);
    /// Up when positive; 0 is as written.
    void SendTransposition(int semitones);
    /// The key as it sounds, "Eb major".
    void SendKey(const std::string& text);
    /// Metronome clicks a minute, "104" or "92.5".
    void SendTempo(const std::string& text);
    /// With its sign, "90%".
    void SendTempoScale(const std::string& text);
    /// Rounded by the caller.
    void SendStatusTargetTempo(int clicksPerMinute);
    /// 0 for "before the first page".
    void SendPageNum(int page);
    /// An empty `type` clears the status.
    void SendStatusFlowControl(const std::string& type, int count);
    /// A handler that was sent VampOn last is not sent it again; the first lamp of all is sent.
    void SendVampOn();
    /// Likewise for VampOff.
    void SendVampOff();
    /// `tickIndex` of the caesura itself.
    void SendCaesura(unsigned int tickIndex);
    /// Not merged with an earlier one: each is delivered.
    void SendPlaybackStarted();
    /// Likewise.
    void SendPlaybackStopped();
    /// Likewise.
    void SendNoNextSong();

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

/// The process's dispatcher; never destroyed, so that threads may send until the very end.
extern GuiDispatcher& guiDispatcher;

/// guiDispatcher.PrepareForExit().
void GuiDispatcherPrepareForExit();

}  // namespace notify
