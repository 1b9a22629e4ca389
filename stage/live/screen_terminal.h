#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "stage/live/screen_control.h"
#include "stage/live/screen_picture.h"

namespace stage {

/// The terminal as a screen, from construction to destruction; one at a time. Whatever way the program goes out, an
/// uncaught exception and a crash among them, the terminal is as it was before; only SIGKILL leaves it behind. What the
/// program's libraries print meanwhile does not disturb the screen: TakeOutput has it. The host's thread.
class ScreenTerminal {
public:
    /// Whether standard input and output are a terminal that can be drawn on.
    [[nodiscard]] static bool IsAvailable();

    /// Throws std::runtime_error with one sentence where the terminal cannot be drawn on. SIGTERM and SIGINT are
    /// counted: the second one ends the program at once.
    ScreenTerminal();
    ~ScreenTerminal();
    ScreenTerminal(const ScreenTerminal&) = delete;
    ScreenTerminal& operator=(const ScreenTerminal&) = delete;

    [[nodiscard]] ScreenSize GetSize() const;
    /// Draws what is different from the picture before.
    void Draw(const ScreenPicture& picture);
    /// Waits for a key, until the time is over, or until the descriptor `wakeUp` has something to read.
    void Wait(std::chrono::milliseconds time, int wakeUp);
    /// The next key, if one was pressed. Does not block longer than it takes to tell Esc from a key that begins with
    /// it.
    [[nodiscard]] std::optional<ScreenKey> ReadKey();
    /// Whether SIGTERM or SIGINT came.
    [[nodiscard]] static bool IsAskedToEnd();
    /// Lines that were printed since.
    [[nodiscard]] std::vector<std::string> TakeOutput();

private:
    class Printed;

    [[nodiscard]] int AttributesOf_(ScreenStyle style) const;
    void ChooseColours_();
    [[nodiscard]] ScreenKey ReadEscape_();

    std::unique_ptr<Printed> printed_;
    bool isUtf8_ = true;
    bool hasColours_ = false;
    bool hasInput_ = true;
    std::optional<ScreenPicture> drawn_;
    std::vector<ScreenKey> pending_;  // keys that were read with the one before, the last one first
};

}  // namespace stage
