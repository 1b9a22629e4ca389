#pragma once

namespace tavo_audio {

/// What the audio engine asks of, and reports to, the transport it plays for. All operations may be called on the
/// engine's thread; they take locks, so they are thread-safe but not real-time safe. Nobody owns or destroys an object
/// through this class.
class PlayerOutputInterface {
public:
    /// Playback stands at a caesura whose stop has not been performed yet.
    virtual bool HasPendingCaesura() = 0;
    /// The song played now runs on into the next one without a stop.
    virtual bool CurrentSongIsAttacca() = 0;
    /// Playback has stopped at a caesura: notify the display.
    virtual void GUINotifyCaesura() = 0;
    /// The change log was replaced while playback goes on.
    virtual void OnNewChangeLog() = 0;
    /// A jump was made since ClearJump was last called.
    virtual bool GetJump() = 0;
    /// The jump has been followed.
    virtual void ClearJump() = 0;
    /// The last jump was made by a vamp or a repeat, and not by a seek. A cut that is met on the way marks no jump.
    virtual bool GetJumpForVampRepeatOrCut() = 0;
    /// Releasing a fermata also dropped a caesura that stood pending.
    virtual bool GetFermataCanceledCaesura() = 0;
    /// Starts or resumes playback.
    virtual void Play() = 0;

protected:
    ~PlayerOutputInterface() = default;
};

}  // namespace tavo_audio
