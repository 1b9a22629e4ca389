#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

namespace test_support {

inline constexpr std::chrono::seconds Patience{10};

/// Collects what happens on other threads as lines.
class LogOfLines {
public:
    void Add(const std::string& line) {
        const std::lock_guard lock(mutex_);
        lines_.push_back(line);
        changed_.notify_all();
    }
    /// Waits for the line; a line counts once.
    bool WaitFor(const std::string& line) {
        std::unique_lock lock(mutex_);
        const auto find = [&] { return std::find(lines_.begin(), lines_.end(), line); };
        if (!changed_.wait_for(lock, Patience, [&] { return find() != lines_.end(); })) return false;
        lines_.erase(find());
        return true;
    }
    std::vector<std::string> GetLines() {
        const std::lock_guard lock(mutex_);
        return lines_;
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::string> lines_;
};

}  // namespace test_support
