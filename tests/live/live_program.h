#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "tests/midi_ports/jack_server.h"
#include "tests/support/sanitizers.h"

/// `stage play --headless` as a process of its own, driven as another program would.
namespace test_support {

/// Programs that these tests start look for no leaks at their end: to do it the sanitizer stops all threads, and on one
/// performance in some fifty the stop that it waits for does not come. Performances within a test do look for them.
inline const bool LooksForLeaks = [] {
    if (!IsAddressSanitized) return true;
    const char* const options = std::getenv("ASAN_OPTIONS");
    ::setenv("ASAN_OPTIONS", (std::string(options == nullptr ? "" : options) + ":detect_leaks=0").c_str(), 1);
    return false;
}();

class LiveProgram {
public:
    /// The words behind "stage play".
    explicit LiveProgram(std::vector<std::string> words) {
        std::vector<std::string> all{STAGE_BINARY, "play"};
        all.insert(all.end(), words.begin(), words.end());
        all.emplace_back("--headless");
        // Many programs run beside each other, and the usual port is one.
        if (std::find(words.begin(), words.end(), "--osc") == words.end()) all.insert(all.end(), {"--osc", "off"});
        child_ = std::make_unique<Child>(std::move(all));
        child_->CollectLines();
    }

    [[nodiscard]] pid_t GetPid() const { return child_->GetPid(); }
    void Signal(int signal) { child_->Signal(signal); }
    void Press(const std::string& line) { child_->Write(line); }
    void Kill() { child_->End(SIGKILL); }

    /// The next event of that name, which has these members; what comes before it is passed over. Null after a minute
    /// without one.
    nlohmann::json WaitFor(const std::string& event, const nlohmann::json& members = nlohmann::json::object()) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
        while (std::chrono::steady_clock::now() < end) {
            const std::optional<std::string> line = child_->NextLine(std::chrono::seconds(20));
            if (!line) break;
            nlohmann::json object = nlohmann::json::parse(*line, nullptr, false);
            if (!object.is_object()) {
                ADD_FAILURE() << "not JSON: " << *line;
                continue;
            }
            seen_.push_back(*line);
            if (object.value("event", "") == "late") lateMoments_.push_back(child_->GetMomentOfLine());
            if (object.value("event", "") != event) continue;
            bool isIt = true;
            for (const auto& [key, value] : members.items())
                isIt = isIt && object.contains(key) && object[key] == value;
            if (isIt) return object;
        }
        std::string last;
        for (std::size_t i = seen_.size() > 12 ? seen_.size() - 12 : 0; i < seen_.size(); ++i)
            last += seen_[i] + "\n";
        ADD_FAILURE() << "no event \"" << event << "\" " << members.dump() << " came; the last ones:\n" << last;
        return nullptr;
    }
    nlohmann::json Status() {
        Press("status");
        return WaitFor("state");
    }
    /// When it was told, among the events up to the one that was waited for last, that something came too late.
    [[nodiscard]] const std::vector<std::chrono::steady_clock::time_point>& GetLateMoments() const {
        return lateMoments_;
    }
    void Quit() {
        Press("quit");
        WaitFor("end");
        child_->End(SIGTERM);
    }

private:
    std::unique_ptr<Child> child_;
    std::vector<std::string> seen_;
    std::vector<std::chrono::steady_clock::time_point> lateMoments_;
};

struct StereoSound {
    std::vector<float> left;
    std::vector<float> right;

    [[nodiscard]] std::size_t FindFirstSound() const {
        std::size_t frame = 0;
        while (frame < left.size() && left[frame] == 0 && right[frame] == 0)
            ++frame;
        return frame;
    }
};

inline StereoSound ReadRecording(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    StereoSound sound;
    for (std::size_t at = 0; at + 2 * sizeof(float) <= bytes.size(); at += 2 * sizeof(float)) {
        float pair[2];
        std::memcpy(pair, bytes.data() + at, sizeof pair);
        sound.left.push_back(pair[0]);
        sound.right.push_back(pair[1]);
    }
    return sound;
}

/// Frames from the first sound on that are the same in both; all that both have where nothing differs.
inline std::size_t CountSameFrames(const StereoSound& a, const StereoSound& b) {
    std::size_t i = a.FindFirstSound();
    std::size_t j = b.FindFirstSound();
    std::size_t same = 0;
    for (; i < a.left.size() && j < b.left.size(); ++i, ++j, ++same)
        if (a.left[i] != b.left[j] || a.right[i] != b.right[j]) break;
    return same;
}

}  // namespace test_support
