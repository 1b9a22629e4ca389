#pragma once

#include <functional>
#include <memory>
#include <string>

namespace notify {

/// Names of the callbacks that parts of the system raise for one another.
namespace names {
extern const std::string& internal_cut;            ///< payload: unsigned int*, the tick where the cut ends
extern const std::string& stopped_at_end_of_song;  ///< payload: null
extern const std::string& reportTargetTempo;       ///< payload: double*, metronome clicks a minute
extern const std::string& midiCommandPlay;
extern const std::string& midiCommandPause;
extern const std::string& midiCommandStop;
extern const std::string& midiCommandNextSong;
extern const std::string& midiCommandPreviousSong;
extern const std::string& midiCommandNextMarker;
extern const std::string& midiCommandPreviousMarker;
extern const std::string& midiCommandContinue;
}  // namespace names

/// A registry of named callbacks, grouped by the object they serve. Notify runs them at once, on its caller's thread,
/// in the order of adding; no lock of this class is held meanwhile, and a callback may notify, add and remove.
/// Thread-safe.
class CallbackDispatcher {
public:
    using Callback = std::function<void(void*)>;

    CallbackDispatcher();
    ~CallbackDispatcher();
    CallbackDispatcher(const CallbackDispatcher&) = delete;
    CallbackDispatcher& operator=(const CallbackDispatcher&) = delete;

    /// `target` is an identity only and never dereferenced. Waits for no callback.
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
