#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "stage/engine/song_plan.h"
#include "stage/live/live_status.h"
#include "stage/osc/midi_cues.h"
#include "stage/osc/osc_message.h"
#include "stage/osc/osc_target.h"
#include "stage/show/settings.h"
#include "tavo_core/change_log_events.h"

namespace stage {

/// Sends the cues of a performance to the targets of its settings, each at the moment at which it is heard, on a thread
/// of its own: a target that cannot be reached delays neither playback nor another target. One whose settings say so
/// gets its messages when they are rendered, in bundles whose time tags say when they are heard.
class OscCues {
public:
    /// Opens the ways to the targets.
    explicit OscCues(const std::vector<Settings::OscTarget>& targets);
    /// What is not heard yet is not sent any more.
    ~OscCues();
    OscCues(const OscCues&) = delete;
    OscCues& operator=(const OscCues&) = delete;

    /// Takes the cue where it is a message; `heard` is when, on the steady clock, nothing for at once. Any one thread;
    /// waits for no target. In the order of the calls.
    void Take(const Cue& cue, std::optional<std::chrono::nanoseconds> heard);

    /// How the targets are. Any thread.
    [[nodiscard]] std::vector<LiveStatus::OscTarget> GetState() const;
    /// Sentences for the operator: a target cannot be reached or is reached again. Any thread.
    [[nodiscard]] std::vector<std::string> TakeReports();

private:
    using Clock = std::chrono::steady_clock;

    struct Waiting {
        CL::Osc message;
        Clock::time_point heard;
    };
    /// A target of either kind; `last` is the problem that was reported.
    struct Way {
        std::unique_ptr<OscTarget> osc;
        std::unique_ptr<MidiCues> midi;
        std::deque<Waiting> waiting{};
        std::string last{};
    };

    void Run_();
    void TakeNew_();
    void SendDue_(Way& way, Clock::time_point now);
    void Send_(Way& way, std::vector<Waiting> cues, Clock::time_point now);
    [[nodiscard]] Clock::time_point Work_(Clock::time_point now);
    void Wait_(Clock::time_point until);
    void Report_();

    const std::shared_ptr<WakeUp> wakeUp_ = std::make_shared<WakeUp>();

    // Used by the thread.
    std::vector<Way> ways_;
    std::vector<short> events_;  // of the ways, since the last time

    mutable std::mutex mutex_;
    // Guarded by mutex_.
    std::deque<Waiting> new_;
    std::vector<LiveStatus::OscTarget> state_;
    std::vector<std::string> reports_;
    std::uint64_t overflown_ = 0;  // cues that nobody took in time
    bool isEnding_ = false;

    std::thread thread_;
};

}  // namespace stage
