#include "tests/stress/watchdog.h"

#include <chrono>
#include <cstdlib>
#include <iostream>
#include <vector>

namespace stress {
namespace {

constexpr int SecondsWithoutProgress = 20;

}  // namespace

Watchdog::Watchdog() : thread_([this] { Run_(); }) {}

Watchdog::~Watchdog() {
    {
        const std::lock_guard lock(mutex_);
        isEnding_ = true;
    }
    ended_.notify_one();
    thread_.join();
}

Diary& Watchdog::Watch(const std::string& threadName) {
    const std::lock_guard lock(mutex_);
    return diaries_.emplace_back(threadName);
}

void Watchdog::Run_() {
    std::vector<std::uint64_t> seen;
    std::vector<int> idleSeconds;
    std::unique_lock lock(mutex_);
    while (!ended_.wait_for(lock, std::chrono::seconds(1), [this] { return isEnding_; })) {
        seen.resize(diaries_.size());
        idleSeconds.resize(diaries_.size());
        for (std::size_t i = 0; i < diaries_.size(); ++i) {
            const std::uint64_t steps = diaries_[i].GetSteps();
            const bool isIdle = steps == seen[i] && diaries_[i].GetDoing() != nullptr;
            idleSeconds[i] = isIdle ? idleSeconds[i] + 1 : 0;
            seen[i] = steps;
            if (idleSeconds[i] >= SecondsWithoutProgress) Report_();
        }
    }
}

void Watchdog::Report_() const {
    std::cerr << "A thread has made no progress for " << SecondsWithoutProgress << " seconds.\n";
    for (const Diary& diary : diaries_) {
        const char* doing = diary.GetDoing();
        std::cerr << "  " << diary.GetThreadName() << ": " << (doing != nullptr ? doing : "finished") << ", step "
                  << diary.GetSteps() << "\n";
    }
    std::cerr << std::flush;
    std::abort();
}

std::uint64_t NumberFromEnvironment(const char* name, std::uint64_t otherwise) {
    const char* text = std::getenv(name);
    return text != nullptr && *text != '\0' ? std::strtoull(text, nullptr, 10) : otherwise;
}

}  // namespace stress
