#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <thread>

namespace stress {

/// What one thread of a stress test is doing, for the watchdog to see. Written by that thread only.
class Diary {
public:
    explicit Diary(std::string threadName) : threadName_(std::move(threadName)) {}
    /// `what` is a literal. A thread that has nothing more to do says Finish.
    void Begin(const char* what) {
        doing_ = what;
        ++steps_;
    }
    void Finish() { Begin(nullptr); }

    [[nodiscard]] std::uint64_t GetSteps() const { return steps_; }
    [[nodiscard]] const char* GetDoing() const { return doing_; }
    [[nodiscard]] const std::string& GetThreadName() const { return threadName_; }

private:
    const std::string threadName_;
    std::atomic<const char*> doing_{"starting"};
    std::atomic<std::uint64_t> steps_{0};
};

/// Ends the process, and says what each thread was doing, when one of them has not come on for 20 seconds.
class Watchdog {
public:
    Watchdog();
    ~Watchdog();
    Watchdog(const Watchdog&) = delete;
    Watchdog& operator=(const Watchdog&) = delete;

    /// The diary of a thread about to start; good for as long as the watchdog.
    Diary& Watch(const std::string& threadName);

private:
    void Run_();
    void Report_() const;

    std::mutex mutex_;
    std::condition_variable ended_;
    // Guarded by mutex_:
    std::deque<Diary> diaries_;
    bool isEnding_ = false;
    std::thread thread_;
};

/// The number that the environment gives, or `otherwise`.
std::uint64_t NumberFromEnvironment(const char* name, std::uint64_t otherwise);

}  // namespace stress
