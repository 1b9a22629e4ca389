#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "stage/live/live_status.h"
#include "stage/show/settings.h"
#include "tavo_core/change_log_events.h"

namespace stage {

/// The way of cues to a MIDI port by name, on a thread of its own: sending waits until the message has left.
/// Thread-safe.
class MidiCues {
public:
    explicit MidiCues(const Settings::OscTarget& target);
    /// What has not left is not sent any more.
    ~MidiCues();
    MidiCues(const MidiCues&) = delete;
    MidiCues& operator=(const MidiCues&) = delete;

    [[nodiscard]] const std::string& GetName() const { return name_; }
    /// "The OSC target "desk" (MIDI port "Light:in")".
    [[nodiscard]] std::string Describe() const;
    /// Leaves the message that the edit stands for; does not block.
    void Send(const CL::Osc& edit);
    [[nodiscard]] LiveStatus::OscTarget GetState() const;

private:
    void Run_();

    const std::string name_;
    const std::string port_;

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    // Guarded by mutex_.
    std::deque<std::vector<unsigned char>> waiting_;
    LiveStatus::OscTarget state_;
    bool isEnding_ = false;

    std::thread thread_;
};

}  // namespace stage
