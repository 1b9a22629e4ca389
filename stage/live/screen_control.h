#pragma once

#include <array>
#include <chrono>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "stage/control/command_desk.h"
#include "stage/live/live_status.h"
#include "stage/live/screen_layout.h"

namespace stage {

struct ScreenKey {
    enum class Kind : std::uint8_t { Character, Enter, Escape, Backspace, Left, Right, Up, Down, Unknown };

    Kind kind = Kind::Character;
    char32_t character = 0;  ///< of Character
};

/// What a key asks for besides what it changes on the screen.
struct ScreenAction {
    enum class Kind : std::uint8_t { None, Press, Resume };

    Kind kind = Kind::None;
    std::string line;  ///< of Press: in the language of scripts
};

/// What the operator's keys mean: the presses of one key after another, with what they open on the screen. Not
/// thread-safe.
class ScreenControl {
public:
    /// On the steady clock.
    using Moment = std::chrono::steady_clock::time_point;

    explicit ScreenControl(std::vector<ScreenSong> songs) { state_.songs = std::move(songs); }

    [[nodiscard]] const ScreenState& GetState() const { return state_; }

    /// The key was pressed while the show stood so.
    [[nodiscard]] ScreenAction Press(const ScreenKey& key, const LiveStatus& status, Moment now);
    void AskToResume(const std::string& question);

    /// The desk has decided of a press, which reads so; what it refused is brought before the operator's eyes.
    void NoteRecord(const CommandRecord& record, const std::string& press, Moment now);
    /// What was pressed could not be read; one sentence.
    void NoteRefusal(const std::string& sentence, Moment now) { Notice_(sentence, true, now); }
    /// Takes off what has been shown for long enough, and a question that the show has answered by going on.
    void Follow(const LiveStatus& status, Moment now);

private:
    [[nodiscard]] ScreenAction PressInShow_(const ScreenKey& key, const LiveStatus& status, Moment now);
    [[nodiscard]] ScreenAction PressCharacter_(char32_t character, const LiveStatus& status, Moment now);
    [[nodiscard]] ScreenAction PressInPlace_(const ScreenKey& key, Moment now);
    [[nodiscard]] ScreenAction PressInSongs_(const ScreenKey& key, Moment now);
    [[nodiscard]] ScreenAction PressInQuestion_(const ScreenKey& key);
    [[nodiscard]] ScreenAction Stop_(const LiveStatus& status, Moment now);
    [[nodiscard]] ScreenAction Choose_(int step, const LiveStatus& status);
    [[nodiscard]] ScreenAction ChangeTempo_(int percent, const LiveStatus& status, Moment now);
    [[nodiscard]] ScreenAction ChangeVolume_(std::size_t which, int percent, const LiveStatus& status, Moment now);
    [[nodiscard]] ScreenAction Quit_(const LiveStatus& status);
    void Notice_(const std::string& sentence, bool isRefusal, Moment now);

    /// A value that was asked for: presses that follow one another count from it, for the status comes later.
    struct Wanted {
        int percent = 0;
        Moment since;
    };
    [[nodiscard]] static int FindBase_(const std::optional<Wanted>& wanted, double current, Moment now);

    ScreenState state_;
    std::optional<Moment> lastEscape_;
    std::optional<Wanted> wantedTempo_;
    std::array<std::optional<Wanted>, 2> wantedVolumes_;  ///< master, music
    Moment noticeEnd_;
};

}  // namespace stage
