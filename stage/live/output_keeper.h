#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "stage/live/audio_output.h"
#include "stage/live/output_feed.h"

namespace stage {

/// What becomes of the show while no device takes its sound.
enum class WhenLost : std::uint8_t {
    Hold,  ///< it waits where the sound stopped
    Run,   ///< it keeps time
};

/// Keeps an output open: watches it on a thread of its own, opens it anew when it was lost, and says so.
class OutputKeeper {
public:
    struct State {
        bool isPlaying = false;
        std::string name;     ///< of the output, also while it is lost
        std::string problem;  ///< why it does not play, one sentence; empty while it does
        OutputFormat format;
        std::uint64_t deviceOverruns = 0;
        unsigned int timesLost = 0;
    };

    /// Opens the output. Throws as OpenOutput does; where the machine has an output of that kind, but not just now, it
    /// is waited for instead if `waits`. `onChange` is called on the keeper's thread with a sentence whenever the
    /// output is lost or back, or has something to say. `feed` outlives the object.
    OutputKeeper(const OutputChoice& choice, OutputFeed& feed, WhenLost whenLost, bool waits,
                 std::function<void(const std::string& sentence)> onChange);
    ~OutputKeeper();
    OutputKeeper(const OutputKeeper&) = delete;
    OutputKeeper& operator=(const OutputKeeper&) = delete;

    [[nodiscard]] State GetState() const;

private:
    void Run_();
    void Watch_();
    void Lose_(const std::string& problem);
    void StandIn_();
    [[nodiscard]] bool WaitUntilItPlays_();
    void TryToReturn_();
    [[nodiscard]] std::string FindProblem_();
    void WatchPace_();
    void Publish_();
    void Wait_(std::chrono::milliseconds time);

    const WhenLost whenLost_;
    const std::function<void(const std::string&)> onChange_;
    OutputFeed& feed_;

    // Used by the thread, and before it begins.
    OutputChoice choice_;
    std::unique_ptr<AudioOutput> output_;
    std::unique_ptr<AudioOutput> standIn_;  // takes the frames while the device is away and the show runs on
    std::uint64_t lastPeriods_ = 0;
    std::uint64_t lostOverruns_ = 0;  // of devices that were lost
    std::chrono::steady_clock::time_point lastMove_;
    // The frames that were asked for since then, as far as it was looked at without a break.
    std::chrono::steady_clock::time_point paceSince_;
    std::chrono::steady_clock::time_point paceLookedAt_;
    std::uint64_t paceFrames_ = 0;
    bool isSlow_ = false;

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    // Guarded by mutex_.
    State state_;
    bool isEnding_ = false;

    std::thread thread_;
};

}  // namespace stage
