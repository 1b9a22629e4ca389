#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "tavo/tavo.h"
#include "tests/support/show_builder.h"
#include "tests/support/temporary_directory.h"

namespace c_api_test {

/// Text of the library's, freed.
inline std::string TakeText(char* text) {
    std::string taken = text == nullptr ? "(null)" : text;
    tavo_free(text);
    return taken;
}

/// "bad argument: path is a null pointer" of a call that failed just now; "ok" for one that did not.
inline std::string Say(tavo_result result) {
    if (result == TAVO_OK) return "ok";
    return std::string(tavo_result_name(result)) + (result == TAVO_END ? "" : std::string(": ") + tavo_last_error());
}

/// "jump 3840 -> 1920": an event of playback without its frame.
inline std::string Describe(const tavo_event& event) {
    std::string text = tavo_event_name(event.kind);
    if (event.kind == TAVO_EVENT_JUMP) text += " " + std::to_string(event.from_tick) + " ->";
    text += " " + std::to_string(event.tick);
    if (event.kind == TAVO_EVENT_STATUS || event.kind == TAVO_EVENT_VAMP_LAMP)
        text += " " + std::to_string(event.number);
    return event.text[0] == '\0' ? text : text + " " + event.text;
}

/// A player that the test closes, with what it has rendered and reported.
class OpenPlayer {
public:
    explicit OpenPlayer(const std::string& path, tavo_player_options options = {}) {
        options.size = sizeof options;
        EXPECT_EQ("ok", Say(tavo_player_open(path.c_str(), &options, &handle)));
    }
    ~OpenPlayer() {
        if (handle == nullptr) return;
        EXPECT_EQ("ok", Say(tavo_player_close(handle)));
    }
    OpenPlayer(const OpenPlayer&) = delete;
    OpenPlayer& operator=(const OpenPlayer&) = delete;

    std::string Do(const std::string& line) const { return Say(tavo_player_command(handle, line.c_str())); }

    void Render(std::size_t frames, std::uint32_t block = 512) {
        const std::size_t begin = left.size();
        left.resize(begin + frames);
        right.resize(begin + frames);
        for (std::size_t done = 0; done < frames; done += block) {
            const auto piece = static_cast<std::uint32_t>(std::min<std::size_t>(block, frames - done));
            ASSERT_EQ("ok",
                      Say(tavo_player_render(handle, left.data() + begin + done, right.data() + begin + done, piece)));
        }
    }

    /// The events up to now of these kinds; empty for all.
    std::vector<std::string> Events(const std::set<std::uint32_t>& kinds = {}) const {
        std::vector<std::string> described;
        for (tavo_event event; tavo_player_next_event(handle, &event) == TAVO_OK;)
            if (kinds.empty() || kinds.contains(event.kind)) described.push_back(Describe(event));
        return described;
    }

    tavo_status Status() const {
        tavo_status status{};
        EXPECT_EQ("ok", Say(tavo_player_status(handle, &status)));
        return status;
    }

    tavo_player* handle = nullptr;
    std::vector<float> left;
    std::vector<float> right;
};

/// A show directory made for a test.
class MadeShow {
public:
    explicit MadeShow(const test_support::TestShow& show) { show.WriteTo(directory_); }
    [[nodiscard]] std::string Path() const { return directory_.Path(); }

private:
    test_support::TemporaryDirectory directory_;
};

}  // namespace c_api_test
