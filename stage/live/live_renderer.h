#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "kit/spsc_queue.h"
#include "stage/engine/pair_delay.h"
#include "stage/engine/true_peak_limiter.h"
#include "stage/live/device_clock.h"
#include "stage/live/live_event.h"
#include "stage/live/output_feed.h"
#include "stage/live/rate_converter.h"
#include "stage/live/real_time.h"
#include "stage/live/test_tone.h"
#include "stage/session/show_session.h"

namespace stage {

/// Renders a session a little ahead of the device, on a thread of its own, and carries out between two blocks what was
/// posted to the session's desk. Blocks have one size and lie on one grid from the session's first frame on, whatever
/// the device asks for: so a replay of the same commands at the same frames sounds the same.
///
/// The main pair passes a limiter; what it looks ahead is part of the time until a frame is heard, for all pairs and
/// MIDI.
///
/// How far ahead is decided anew for each block. One with a seam, where a press decides how playback goes on, waits
/// until the device needs it in its next period.
class LiveRenderer final : private EngineSubscriber {
public:
    struct Options {
        /// Frames of a block; a divisor of Engine::LongestBlockFrames.
        std::uint32_t blockFrames = 64;
        /// How far ahead of the device, in its frames, also at seams; 0 is what the device asks for at
        /// once and one block, and less at seams.
        std::uint32_t leadFrames = 0;
    };

    /// Hears of each cue in the order in which they are played, on the rendering thread and before it is heard: `heard`
    /// is that moment on the steady clock, nothing while no device plays.
    using CueListener = std::function<void(const Cue& cue, std::optional<std::chrono::nanoseconds> heard)>;

    /// Starts. The references outlive the object; the session is performed by it from now on.
    LiveRenderer(ShowSession& session, OutputFeed& feed, const Options& options, CueListener onCue = {});
    /// Carries out what is still posted, and ends.
    ~LiveRenderer();
    LiveRenderer(const LiveRenderer&) = delete;
    LiveRenderer& operator=(const LiveRenderer&) = delete;

    /// Something was posted to the desk. Any thread.
    void WakeUp();

    /// The session's frame that is heard now; negative before the first is. Any thread; wait-free.
    [[nodiscard]] std::int64_t FindHeardFrame() const;
    /// When the session's frame is heard, also one that is still to come; nothing while no device plays. The thread's
    /// own; wait-free.
    [[nodiscard]] std::optional<std::chrono::nanoseconds> FindMomentHeard(std::int64_t frame) const;
    /// The playhead that is heard now. Any thread; wait-free.
    [[nodiscard]] std::uint32_t FindHeardTick() const { return history_.FindTick(FindHeardFrame()); }
    /// For one thread: the next thing that playback did, in order, whether it is heard yet or not.
    [[nodiscard]] bool TakeEvent(LiveEvent& event) { return events_.Pop(event); }
    /// Whether the thread runs before all ordinary ones. Any thread.
    [[nodiscard]] bool IsRealTime() const { return isRealTime_; }
    /// Frames that are kept ready for the device at most. Any thread.
    [[nodiscard]] std::uint32_t GetLeadFrames() const;
    /// Longest time that a block took, in nanoseconds, since the last call. Any thread.
    [[nodiscard]] std::int64_t TakeLongestBlock() { return longestBlock_.exchange(0); }
    /// Blocks, with the presses carried out before them, that took longer than the device's period by what they
    /// computed. A machine that gave the thread no processor does not count. Any thread.
    [[nodiscard]] std::uint64_t CountSlowBlocks() const { return slowBlocks_.load(std::memory_order_relaxed); }
    /// Those that took longer although they computed less, and waited for another thread meanwhile: one that another
    /// program with real-time rights held up, say. Any thread.
    [[nodiscard]] std::uint64_t CountHeldUpBlocks() const { return heldUpBlocks_.load(std::memory_order_relaxed); }

    /// Plays the tone on each pair of the output, one after the other, beside what is rendered; what is played is no
    /// part of the session, and ends when music begins. Any thread; wait-free.
    void PlayTestTone() { tone_.Begin(); }

    /// Frames of the main output that the limiter has turned down. Any thread.
    [[nodiscard]] std::uint64_t CountLimitedFrames() const { return limiter_.CountLimitedFrames(); }

private:
    /// What the limiter holds back, and with it everything else.
    static constexpr std::uint32_t DelayFrames = TruePeakLimiter::DelayFrames;

    // EngineSubscriber.
    void OnEngineEvent(const EngineEvent& event) override;

    void Run_();
    [[nodiscard]] bool IsBlockDue_();
    void RenderBlock_();
    void CountIfSlow_(std::chrono::nanoseconds begin, const ThreadUse& before);
    void SendMidi_(const MidiOutEvent& event);
    void EndLostNotes_();
    void WriteBlock_();
    void NotePlayhead_();
    void NoteLatePeriods_();
    void FollowDevice_();
    void Push_(const LiveEvent& event);
    void Wait_(std::optional<std::chrono::nanoseconds> lastPeriod);
    [[nodiscard]] std::chrono::nanoseconds Period_() const;

    // Constant after construction.
    ShowSession& session_;
    StagePlayer& player_;
    Engine& engine_;
    OutputFeed& feed_;
    const Options options_;
    const CueListener onCue_;
    const std::uint32_t framesPerSecond_;

    // Used by the thread.
    std::vector<float> samples_;       // of a block, one channel after the other
    std::vector<StereoBuffer> pairs_;  // as the ring has them
    TruePeakLimiter limiter_;
    PairDelay delay_;           // of all but the main pair
    bool hasLostMidi_ = false;  // there was no room for a message
    bool hasRolled_ = false;    // playback went in the last block
    std::unique_ptr<RateConverter> converter_;
    std::uint32_t deviceRate_ = 0;
    std::uint64_t latePeriods_ = 0;
    std::uint64_t missingFrames_ = 0;
    const tavo_midi::SongData* song_ = nullptr;

    // Synchronise themselves.
    TestTone tone_;
    PlayheadHistory history_;
    kit::SpscQueue<LiveEvent, 4096> events_;
    std::atomic<bool> isRealTime_{false};
    std::atomic<std::int64_t> longestBlock_{0};
    std::atomic<std::uint64_t> slowBlocks_{0};
    std::atomic<std::uint64_t> heldUpBlocks_{0};
    // The session's frame at a frame of the ring, for a device with another rate.
    std::atomic<std::int64_t> anchorRing_{0};
    std::atomic<std::int64_t> anchorFrame_{0};
    std::atomic<double> framesPerDeviceFrame_{1.0};

    std::mutex mutex_;
    std::condition_variable changed_;
    // Guarded by mutex_.
    bool isWoken_ = false;
    // Set under mutex_, so that the thread does not begin to wait without seeing it. Read without: no block waits for
    // it.
    std::atomic<bool> isEnding_{false};

    std::thread thread_;
};

}  // namespace stage
