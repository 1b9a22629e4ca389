#pragma once

#include <cstdint>

#include "stage/engine/song_plan.h"

namespace stage {

/// One thing that playback does, reported at the frame where it does it. A plain value; what it points to is good
/// during the call.
struct EngineEvent {
    enum class Kind : std::uint8_t {
        /// The caller asks for frames, the first of which is `frame`, and the playhead is at `tick`. Once in each call
        /// of Render or RenderLater, before everything else in it.
        BlockBegins,
        /// Playback was started and time goes on at `tick`. Not where it was started in a fermata's hold: there time
        /// is stopped as before.
        Started,
        /// Playback was stopped, by an operation or at the end of a song that nothing follows; `tick` is the last that
        /// has begun. Not in a fermata's hold, where time stood still already.
        Stopped,
        /// The playhead stands and was put at `tick` by a seek: playback will begin there.
        Put,
        /// Playback goes on at `tick` for `reason`, without a gap. `fromTick`, which it leaves, has not sounded; what
        /// sounded has been ended.
        Jumped,
        /// Playback is at `tick` and flow control has decided what follows; nothing of the tick has sounded. Not where
        /// playback goes on from a caesura that it stopped at.
        Arrived,
        /// Time is stopped just short of a fermata's end at `tick`; what sounds sounds on.
        Held,
        /// The fermata was released: time goes on at `tick`.
        Released,
        /// Playback has stopped at the caesura at `tick`, and notes have been ended. Arrived follows.
        StoppedAtCaesura,
        /// The song of `plan` was put in and stands, or plays on, at `tick`; `fromTick` was in the song before.
        SongPutIn,
        /// Playback has reached the end of its song, `tick`. SongPutIn follows where an attacca leads on, Stopped
        /// elsewhere.
        SongEnded,
        /// A beat is counted in; `beats` are left with it before playback begins.
        CountIn,
        /// `cue` was set off, at `tick`. An OSC message has been handed to flow control's callback.
        Cue,
        /// The gain that MoveFade asked for as `fade` has arrived: reported at the end of the stretch in which it did,
        /// a stretch being what lies between two notes or arrivals.
        FadeDone,
    };
    enum class Reason : std::uint8_t { Loop, Seek, Cut };

    Kind kind = Kind::BlockBegins;
    Reason reason = Reason::Loop;  ///< of Jumped
    bool wasHolding = false;       ///< Jumped: time stood still for a fermata and goes on with the jump
    std::int64_t frame = 0;
    std::uint32_t fromTick = 0;
    std::uint32_t tick = 0;
    std::uint32_t fade = 0;
    unsigned int beats = 0;          ///< of CountIn
    const SongPlan* plan = nullptr;  ///< of the song that is in; null before there is one
    const stage::Cue* cue = nullptr;
};

/// Hears what playback does. Called on the rendering thread, in the order of subscription, before the next frame is
/// rendered and with no lock of the engine or the player held: it may call any operation of both, of the façade and of
/// whatever stands before it. What that leads to is reported after the event at hand. An operation of another thread is
/// reported at the next frame that is rendered.
class EngineSubscriber {
public:
    virtual void OnEngineEvent(const EngineEvent& event) = 0;

protected:
    ~EngineSubscriber() = default;
};

}  // namespace stage
