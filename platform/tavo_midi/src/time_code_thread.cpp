#include "time_code_thread.h"

#include <sys/prctl.h>

#include <chrono>
#include <exception>
#include <utility>

#include "kit/real_time.h"
#include "kit/thread_names.h"
#include "tavo_core/tavo_log_exception.h"
#include "wide_arithmetic.h"

namespace tavo_midi {

namespace {

using SteadyTime = std::chrono::steady_clock::time_point;

/// A waking thread is late by less than this nearly always; the rest of the time it spins.
constexpr std::int64_t SpinNs = 200'000;
/// Above ordinary threads, below those of JACK, which are at 5 and above.
constexpr int TimeCodePriority = 4;

std::int64_t NowNs() {
    return std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
}

}  // namespace

TimeCodeThread::TimeCodeThread(MidiOutput& output) : output_(output), generator_(NanosecondsPerSecond) {
    thread_ = std::thread([this] { Work_(); });
    isRealTime_ = kit::MakeRealTime(thread_, TimeCodePriority);
}

TimeCodeThread::~TimeCodeThread() {
    {
        const std::lock_guard lock(mutex_);
        mustEnd_ = true;
    }
    changed_.notify_all();
    thread_.join();
}

void TimeCodeThread::Post(const TimeCodeOrder& order) {
    {
        const std::lock_guard lock(mutex_);
        generator_.Post({order.when.time.count(), order.frameRate, order.positionNs, order.rolls});
        isChanged_ = true;
    }
    changed_.notify_all();
}

void TimeCodeThread::Work_() {
    kit::threadNames.SetNameOfCurrentThread("MIDI time code");
    // Ordinary threads are woken 50 us late otherwise, so that the system can do several at a time.
    ::prctl(PR_SET_TIMERSLACK, 1);
    std::unique_lock lock(mutex_);
    while (!mustEnd_)
        SendWhenDue_(lock);
    // A last order is still obeyed.
    SendWhatIsDue_(lock, NowNs());
}

/// One wait, and what is due at its end. Called locked; lets the lock go while it spins and sends, when orders may
/// come.
void TimeCodeThread::SendWhenDue_(std::unique_lock<std::mutex>& lock) {
    const std::int64_t at = generator_.GetNextAt();
    if (!WaitUntilNear_(lock, at)) return;
    lock.unlock();
    while (NowNs() < at) {
    }
    lock.lock();
    SendWhatIsDue_(lock, at);
}

/// Everything up to that moment. Called locked; lets the lock go while it sends: whoever posts does not wait for the
/// device.
void TimeCodeThread::SendWhatIsDue_(std::unique_lock<std::mutex>& lock, std::int64_t at) {
    for (TimeCodeMessage message; generator_.Next(NowNs(), at + 1, message);) {
        lock.unlock();
        Send_(message);
        lock.lock();
    }
}

/// A message that a host's output throws at is lost, and the next one is sent.
void TimeCodeThread::Send_(const TimeCodeMessage& message) {
    const auto log = [this](const char* problem) {
        if (!std::exchange(isSendProblemLogged_, true)) TavoLogException(problem, __FILE__, __LINE__);
    };
    try {
        output_.Send({message.bytes.data(), message.size});
        isSendProblemLogged_ = false;
    } catch (const std::exception& problem) {
        log(problem.what());
    } catch (...) {
        log("Unknown exception.");
    }
}

bool TimeCodeThread::WaitUntilNear_(std::unique_lock<std::mutex>& lock, std::int64_t at) {
    const auto isDisturbed = [this] { return isChanged_ || mustEnd_; };
    bool disturbed = true;
    if (at == TimeCodeGenerator::Never)
        changed_.wait(lock, isDisturbed);
    else
        disturbed = changed_.wait_until(lock, SteadyTime(std::chrono::nanoseconds(at - SpinNs)), isDisturbed);
    isChanged_ = false;
    return !disturbed;
}

}  // namespace tavo_midi
