#pragma once

#include <functional>
#include <memory>
#include <string>

namespace notify {

/// Names of the callbacks that parts of the system raise for one another, each on the thread that raises it. The midi
/// ones carry no payload (null) and are raised when a MIDI message gives the command, on the thread that delivers it or
/// that the host performs commands on; the façade does what stands beside them. Constant, never destroyed.
namespace names {
extern const std::string& internal_cut;               ///< payload: unsigned int*, the tick where the cut ends
extern const std::string& stopped_at_end_of_song;     ///< payload: null; Player answers by putting in the next song
extern const std::string& reportTargetTempo;          ///< payload: double*, metronome clicks a minute as they sound
extern const std::string& midiCommandPlay;            ///< Play: starts, or goes on from where it stopped
extern const std::string& midiCommandPause;           ///< Pause(false): drops a pending caesura, else stops and stays
extern const std::string& midiCommandStop;            ///< Stop, as the user's: the display is notified
extern const std::string& midiCommandNextSong;        ///< NextSong: the one after stands ready
extern const std::string& midiCommandPreviousSong;    ///< PrevSong: the one before stands ready
extern const std::string& midiCommandNextMarker;      ///< SeekRight: to the next marker
extern const std::string& midiCommandPreviousMarker;  ///< SeekLeft: to the marker before
extern const std::string& midiCommandContinue;        ///< Continue: leaves a vamp, fermata or caesura, and goes on
}  // namespace names

/// A registry of named callbacks, grouped by the object they serve. Notify runs them at once, on its caller's thread,
/// in the order of adding; no lock of this class is held meanwhile, and a callback may notify, add and remove.
/// Thread-safe.
class CallbackDispatcher {
public:
    /// Is handed the payload that its name prescribes, which is good for the call only.
    using Callback = std::function<void(void*)>;

    CallbackDispatcher();
    /// No thread is inside any more; what is registered is dropped and not called.
    ~CallbackDispatcher();
    CallbackDispatcher(const CallbackDispatcher&) = delete;
    CallbackDispatcher& operator=(const CallbackDispatcher&) = delete;

    /// `target` is an identity only and never dereferenced. Waits for no callback; a Notify that is under way does
    /// not call it. A target may have several callbacks of one name.
    void AddCallback(const void* target, const std::string& name, Callback callback);
    /// After it returns no callback of `target` runs on another thread or is started again. Waits for those that run on
    /// other threads; one that runs on the calling thread finishes later. Removing twice is fine. Where callbacks on
    /// several threads would wait for one another in a ring, the call that would close the ring does not wait.
    void RemoveCallbacksForTarget(const void* target);
    /// `data` is handed on as it is. What a callback throws ends the call and reaches the caller. Blocks for as long as
    /// the callbacks run; with none registered for a moment at most.
    void Notify(const std::string& name, void* data);

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

/// The process's dispatcher; never destroyed, so that threads may notify until the very end.
extern CallbackDispatcher& callbackDispatcher;

}  // namespace notify
