#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>
#include <sstream>
#include <string>

#include "kit/file.h"
#include "stage/control/script.h"
#include "stage/control/take.h"
#include "stage/offline/offline_show.h"
#include "tests/live/live_program.h"

namespace test_support {

/// A virtual machine can stand still for longer than all that is kept ready.
inline constexpr int MostTries = 4;

/// The take without the lines that say how things stood.
inline std::string ReadTakeWithoutStates(const std::string& takePath) {
    std::istringstream text(kit::ReadFile(takePath, 1U << 26U));
    std::string told;
    for (std::string line; std::getline(text, line);)
        if (line.find(" state ") == std::string::npos) told += "\n" + line;
    return told;
}

using JackServer = std::unique_ptr<Child>;
/// Plays and records a performance; false where a period came too late.
using TryToPerform = std::function<bool(JackServer& server)>;

/// Performs again and again until nothing came too late, each time with a server of its own. Skips the test where none
/// can be started.
inline void Perform(
    const std::string& takePath, const TryToPerform& tryToPerform,
    const std::function<JackServer()>& startServer = [] { return StartJackServer(); }) {
    for (int times = 1;; ++times) {
        JackServer server = startServer();
        if (server == nullptr) GTEST_SKIP() << "No JACK server with the dummy driver can be started here.";
        if (tryToPerform(server)) return;
        ASSERT_LT(times, MostTries) << ReadTakeWithoutStates(takePath);
        std::filesystem::remove(takePath);
    }
}

/// Rendered ahead and not played yet when the show is ended, with periods of up to 2048 frames.
inline constexpr std::size_t NotPlayedFrames = 8192;

inline StereoSound RenderTake(const std::string& showPath, const std::string& takePath) {
    const std::string text = kit::ReadFile(takePath, 1U << 26U);
    stage::OfflineOptions options;
    options.take = stage::ReadTakeSettings(text.substr(0, text.find('\n')));
    stage::ShowSession session(showPath, showPath, stage::MakeTakeSessionOptions(*options.take));
    options.script = stage::ParseShowScript(text, takePath, session.GetShow(), "1");
    StereoSound sound;
    stage::OfflineShow show(session, options,
                            [&sound](const float* left, const float* right, std::uint32_t frames) {
                                sound.left.insert(sound.left.end(), left, left + frames);
                                sound.right.insert(sound.right.end(), right, right + frames);
                            },
                            {});
    const stage::OfflineResult result = show.Run();
    EXPECT_TRUE(result.remarks.empty()) << result.remarks.front();
    return sound;
}

/// A JACK client that records a stereo pair of a performance, from its construction on.
class PairRecorder {
public:
    explicit PairRecorder(const std::string& recordingPath, const std::string& pair = "main")
        : child_({SOUND_PEER, pair + "-recorder", recordingPath, "tavo-sound:" + pair + "_left",
                  "tavo-sound:" + pair + "_right"}) {
        EXPECT_EQ("recording", child_.ReadLine());
    }
    /// Completes the file; whether everything is in it.
    [[nodiscard]] bool End() { return child_.End(SIGTERM) == 0; }

private:
    Child child_;
};

/// From the first sound on, what was played for certain before "quit" was pressed.
inline std::size_t CountPlayedFrames(const StereoSound& rendered, const std::string& takePath,
                                     std::size_t notPlayed = NotPlayedFrames) {
    const auto quit = static_cast<std::size_t>(stage::ReadTake(takePath).lines.back().frame);
    return quit - rendered.FindFirstSound() - notPlayed;
}

}  // namespace test_support
