#include "midi_requests.h"

#include <algorithm>
#include <thread>

#include "kit/thread_names.h"
#include "tavo_core/tavo_log_exception.h"

namespace tavo_midi_io {

namespace {

thread_local bool isRequestThread = false;

}  // namespace

MidiRequests& MidiRequests::Get() {
    static MidiRequests& requests = *new MidiRequests;
    return requests;
}

bool MidiRequests::Make_(std::function<void()> request, bool isNeverLeftOut) {
    const auto job = std::make_shared<Job>(Job{std::move(request)});
    if (isRequestThread) {
        Carry_(*job);
        return true;
    }
    std::unique_lock lock(mutex_);
    if (!hasThread_) {
        std::thread([this] { Work_(); }).detach();
        hasThread_ = true;
    }
    // Behind one that gets no answer there is nothing to wait for.
    const bool isStuck = !jobs_.empty() && std::chrono::steady_clock::now() - begunAt_ > Patience;
    if (isStuck && !isNeverLeftOut) return false;
    if (jobs_.empty()) begunAt_ = std::chrono::steady_clock::now();
    jobs_.push_back(job);
    changed_.notify_all();
    if (isStuck || changed_.wait_for(lock, Patience, [&] { return job->isDone; })) return job->isDone;
    if (!isNeverLeftOut && jobs_.front() != job) std::erase(jobs_, job);
    return false;
}

/// On the thread of requests, which goes on whatever one throws.
void MidiRequests::Carry_(Job& job) {
    try {
        job.request();
    } catch (const std::exception& problem) {
        TavoLogException(problem.what(), __FILE__, __LINE__);
    } catch (...) {
        TavoLogException("Unknown exception.", __FILE__, __LINE__);
    }
    // What the request holds is let go on this thread.
    job.request = nullptr;
}

void MidiRequests::Work_() {
    kit::threadNames.SetNameOfCurrentThread("MIDI requests");
    isRequestThread = true;
    std::unique_lock lock(mutex_);
    while (true) {
        changed_.wait(lock, [this] { return !jobs_.empty(); });
        const std::shared_ptr<Job> job = jobs_.front();
        begunAt_ = std::chrono::steady_clock::now();
        lock.unlock();
        Carry_(*job);
        lock.lock();
        job->isDone = true;
        jobs_.pop_front();
        changed_.notify_all();
    }
}

}  // namespace tavo_midi_io
