#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>

#include "tavo_midi/midi_ports.h"
#include "tavo_midi/time_code_generator.h"

namespace tavo_midi {

/// Sends time code to an output that cannot time it by itself: a thread with absolute deadlines, which wakes a little
/// early and spins for the rest, under SCHED_FIFO where the system permits it.
class TimeCodeThread {
public:
    /// `output` must outlive the object.
    explicit TimeCodeThread(MidiOutput& output);
    /// Sends what is due, and ends the thread.
    ~TimeCodeThread();
    TimeCodeThread(const TimeCodeThread&) = delete;
    TimeCodeThread& operator=(const TimeCodeThread&) = delete;

    void Post(const TimeCodeOrder& order);
    /// False where other threads of the machine may hold it up.
    [[nodiscard]] bool IsRealTime() const { return isRealTime_; }

private:
    void Work_();
    void SendWhenDue_(std::unique_lock<std::mutex>& lock);
    void SendWhatIsDue_(std::unique_lock<std::mutex>& lock, std::int64_t at);
    void Send_(const TimeCodeMessage& message);
    /// Waits until the moment is near enough to spin; false if orders came or the end before it. Called locked.
    bool WaitUntilNear_(std::unique_lock<std::mutex>& lock, std::int64_t at);

    MidiOutput& output_;
    std::mutex mutex_;
    std::condition_variable changed_;
    // Guarded by mutex_:
    TimeCodeGenerator generator_;
    bool isChanged_ = false;
    bool mustEnd_ = false;
    std::thread thread_;
    bool isSendProblemLogged_ = false;  ///< the thread's: not again until a message is sent
    bool isRealTime_ = false;           ///< constant after construction
};

}  // namespace tavo_midi
