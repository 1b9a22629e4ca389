#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace notify {

/// What a display is sent.
enum class GuiNotificationType : std::uint8_t {
    Playhead,               ///< number: tick index
    Marker,                 ///< tick, text; an empty text clears the marker
    SongTitle,              ///< text
    BarBeat,                ///< text
    Meter,                  ///< text
    StatusClickResolution,  ///< number: thirty-second notes per click
    Transposition,          ///< number: semitones
    Key,                    ///< text
    Tempo,                  ///< text
    TempoScale,             ///< text
    StatusTargetTempo,      ///< number: metronome clicks a minute, whole
    PageNum,                ///< number
    StatusFlowControl,      ///< text: the status word, number: its count
    VampOn,
    VampOff,
    Caesura,  ///< tick: where playback stopped
    PlaybackStarted,
    PlaybackStopped,
    NoNextSong,
};

/// "Playhead", "BarBeat", ... as the enumerators are spelt.
[[nodiscard]] const char* GuiNotificationName(GuiNotificationType type);

/// One thing that a display is told. Which of the values mean something depends on the type.
struct GuiNotification {
    GuiNotificationType type = GuiNotificationType::Playhead;
    int number = 0;
    unsigned int tick = 0;
    std::string text;

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
    using Handler = std::function<void(const GuiNotification&)>;
    using HandlerId = std::uint64_t;

    GuiDispatcher();
    /// Ends the thread; what still waits is dropped.
    ~GuiDispatcher();
    GuiDispatcher(const GuiDispatcher&) = delete;
    GuiDispatcher& operator=(const GuiDispatcher&) = delete;

    /// The handler hears everything sent from now on. The first one starts the thread: std::system_error where the
    /// system has none to give.
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
    void SendPlayhead(int tickIndex);
    void SendMarker(unsigned int tickIndex, const std::string& text);
    void SendSongTitle(const std::string& title);
    void SendBarBeat(const std::string& text);
    void SendMeter(const std::string& text);
    void SendStatusClickResolution(int thirtySecondsPerClick);
    void SendTransposition(int semitones);
    void SendKey(const std::string& text);
    void SendTempo(const std::string& text);
    void SendTempoScale(const std::string& text);
    void SendStatusTargetTempo(int clicksPerMinute);
    void SendPageNum(int page);
    void SendStatusFlowControl(const std::string& type, int count);
    void SendVampOn();
    void SendVampOff();
    void SendCaesura(unsigned int tickIndex);
    void SendPlaybackStarted();
    void SendPlaybackStopped();
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
