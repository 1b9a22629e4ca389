#include "stage/live/screen_control.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <utility>

#include "stage/live/describe_press.h"
#include "tavo_midi/user_controls.h"

namespace stage {

namespace {

constexpr std::chrono::seconds PanicTime{2};
constexpr std::chrono::seconds NoticeTime{8};
constexpr std::chrono::milliseconds SettlingTime{500};
constexpr std::size_t LongestEntry = 16;
constexpr int VolumeStep = 5;
constexpr std::size_t MasterVolume = 0;
constexpr std::size_t MusicVolume = 1;
constexpr std::size_t KeptOnScreen = 60;

using Kind = ScreenKey::Kind;
using Mode = ScreenState::Mode;

ScreenAction PressLine(std::string line) {
    return {ScreenAction::Kind::Press, std::move(line)};
}

bool IsMoving(LiveStatus::Motion motion) {
    using enum LiveStatus::Motion;
    return motion == Playing || motion == Fading || motion == Holding;
}

bool IsDigit(char32_t character) {
    return character >= U'0' && character <= U'9';
}

/// What a place is written with.
bool IsPlaceCharacter(char32_t character) {
    return character > U' ' && character < 0x7F;
}

char32_t Lower(char32_t character) {
    return character >= U'A' && character <= U'Z' ? character + (U'a' - U'A') : character;
}

}  // namespace

ScreenAction ScreenControl::Press(const ScreenKey& key, const LiveStatus& status, Moment now) {
    switch (state_.mode) {
        case Mode::Place:
            return PressInPlace_(key, now);
        case Mode::Songs:
            return PressInSongs_(key, now);
        case Mode::AskQuit:
        case Mode::AskResume:
            return PressInQuestion_(key);
        case Mode::Keys:
            // The keys mean what they mean; two of them leave the list.
            if (key.kind == Kind::Escape || (key.kind == Kind::Character && key.character == U'?')) {
                state_.mode = Mode::Show;
                return {};
            }
            return PressInShow_(key, status, now);
        default:
            return PressInShow_(key, status, now);
    }
}

ScreenAction ScreenControl::PressInShow_(const ScreenKey& key, const LiveStatus& status, Moment now) {
    switch (key.kind) {
        case Kind::Enter:
            return PressLine("play");
        case Kind::Escape:
            return Stop_(status, now);
        case Kind::Left:
            return PressLine("previous-marker");
        case Kind::Right:
            return PressLine("next-marker");
        case Kind::Up:
            return Choose_(-1, status);
        case Kind::Down:
            return Choose_(1, status);
        case Kind::Character:
            return PressCharacter_(key.character, status, now);
        default:
            NoteRefusal("This key has no meaning here: ? shows all keys.", now);
            return {};
    }
}

ScreenAction ScreenControl::PressCharacter_(char32_t character, const LiveStatus& status, Moment now) {
    if (IsDigit(character) || Lower(character) == U'g') {
        state_.mode = Mode::Place;
        state_.entry = IsDigit(character) ? std::string(1, static_cast<char>(character)) : "";
        return {};
    }
    switch (Lower(character)) {
        case U' ':
            return PressLine("go");
        case U'p':
            return PressLine("pause");
        case U'f':
            Notice_("Fades out in 3 seconds: C cancels it.", false, now);
            return PressLine("fade 3");
        case U'c':
            return PressLine("cancel-fade");
        case U'+':
        case U'=':
            return ChangeTempo_(1, status, now);
        case U'-':
            return ChangeTempo_(-1, status, now);
        case U'[':
            return ChangeVolume_(MasterVolume, -VolumeStep, status, now);
        case U']':
            return ChangeVolume_(MasterVolume, VolumeStep, status, now);
        case U'{':
            return ChangeVolume_(MusicVolume, -VolumeStep, status, now);
        case U'}':
            return ChangeVolume_(MusicVolume, VolumeStep, status, now);
        case U'u':
            return PressLine("undo");
        case U'r':
            return PressLine("redo");
        case U's':
            return PressLine("save");
        case U'?':
            state_.mode = Mode::Keys;
            return {};
        case U'q':
            return Quit_(status);
        default:
            NoteRefusal("This key has no meaning here: ? shows all keys.", now);
            return {};
    }
}

ScreenAction ScreenControl::PressInPlace_(const ScreenKey& key, Moment now) {
    switch (key.kind) {
        case Kind::Enter: {
            state_.mode = Mode::Show;
            const std::string place = std::exchange(state_.entry, "");
            return place.empty() ? ScreenAction{} : PressLine("seek " + place);
        }
        case Kind::Backspace:
            if (!state_.entry.empty()) state_.entry.pop_back();
            return {};
        case Kind::Character:
            if (key.character == U' ') {
                // Whatever is open, this key takes the show on.
                state_.mode = Mode::Show;
                return PressLine("go");
            }
            if (IsPlaceCharacter(key.character) && state_.entry.size() < LongestEntry) {
                state_.entry += static_cast<char>(key.character);
            } else {
                NoteRefusal("A place is a bar such as 12, or a beat such as 12:3.", now);
            }
            return {};
        default:
            state_.mode = Mode::Show;
            return {};
    }
}

ScreenAction ScreenControl::PressInSongs_(const ScreenKey& key, Moment now) {
    switch (key.kind) {
        case Kind::Up:
            if (state_.chosen > 0) --state_.chosen;
            return {};
        case Kind::Down:
            if (state_.chosen + 1 < state_.songs.size()) ++state_.chosen;
            return {};
        case Kind::Enter:
            state_.mode = Mode::Show;
            return PressLine("load " + state_.songs.at(state_.chosen).number);
        case Kind::Escape:
            state_.mode = Mode::Show;
            return {};
        default:
            // Going on here could start another song than the one that is being looked at.
            NoteRefusal("Enter loads the song, Esc leaves the list; then the other keys have their meaning.", now);
            return {};
    }
}

ScreenAction ScreenControl::PressInQuestion_(const ScreenKey& key) {
    const bool isAboutQuitting = state_.mode == Mode::AskQuit;
    const char32_t character = key.kind == Kind::Character ? Lower(key.character) : 0;
    if (character == U'y') {
        state_.mode = Mode::Show;
        return isAboutQuitting ? PressLine("quit") : ScreenAction{ScreenAction::Kind::Resume, ""};
    }
    if (character == U'n' || key.kind == Kind::Escape) {
        state_.mode = Mode::Show;
        return {};
    }
    if (character == U' ' && isAboutQuitting) {
        state_.mode = Mode::Show;
        return PressLine("go");
    }
    // The question stays.
    return {};
}

ScreenAction ScreenControl::Stop_(const LiveStatus& status, Moment now) {
    const bool isSecond = lastEscape_ && now - *lastEscape_ <= PanicTime;
    lastEscape_ = now;
    return PressLine(isSecond || !IsMoving(status.motion) ? "panic" : "stop");
}

ScreenAction ScreenControl::Choose_(int step, const LiveStatus& status) {
    if (IsMoving(status.motion) || state_.songs.empty()) return PressLine(step < 0 ? "previous" : "next");
    const auto loaded = std::find_if(state_.songs.begin(), state_.songs.end(),
                                     [&](const ScreenSong& song) { return song.number == status.song; });
    const auto last = static_cast<long>(state_.songs.size()) - 1;
    const long current = loaded == state_.songs.end() ? 0 : loaded - state_.songs.begin();
    state_.chosen = static_cast<std::size_t>(std::clamp(current + step, 0L, last));
    state_.mode = Mode::Songs;
    return {};
}

int ScreenControl::FindBase_(const std::optional<Wanted>& wanted, double current, Moment now) {
    if (wanted && now - wanted->since < SettlingTime) return wanted->percent;
    return static_cast<int>(std::lround(current * 100));
}

ScreenAction ScreenControl::ChangeTempo_(int percent, const LiveStatus& status, Moment now) {
    const int lowest = static_cast<int>(std::lround(UserControls::LowestTempoScale * 100));
    const int highest = static_cast<int>(std::lround(UserControls::HighestTempoScale * 100));
    const int wanted = std::clamp(FindBase_(wantedTempo_, status.tempoScale, now) + percent, lowest, highest);
    wantedTempo_ = {wanted, now};
    return PressLine(fmt::format("tempo {}%", wanted));
}

ScreenAction ScreenControl::ChangeVolume_(std::size_t which, int percent, const LiveStatus& status, Moment now) {
    const double shown = which < status.volumes.size() ? status.volumes[which].factor : 1;
    std::optional<Wanted>& last = wantedVolumes_.at(which);
    const int wanted = std::clamp(FindBase_(last, shown, now) + percent, 0, 100);
    last = {wanted, now};
    return PressLine(fmt::format("volume {}%{}", wanted, which == MusicVolume ? " music" : ""));
}

ScreenAction ScreenControl::Quit_(const LiveStatus& status) {
    if (!status.isLocked && !IsMoving(status.motion)) return PressLine("quit");
    state_.mode = Mode::AskQuit;
    state_.question = IsMoving(status.motion) ? "Quit while the show is playing? Y quits, N goes on."
                                              : "The show is locked. Quit all the same? Y quits, N stays.";
    return {};
}

void ScreenControl::AskToResume(const std::string& question) {
    state_.mode = Mode::AskResume;
    state_.question = question;
}

void ScreenControl::NoteRecord(const CommandRecord& record, const std::string& press, Moment now) {
    const std::string refusal = DescribeRefusal(record, press);
    state_.presses.push_front({record.IsTaken() ? press : refusal, record.IsTaken()});
    if (state_.presses.size() > KeptOnScreen) state_.presses.pop_back();
    if (!record.IsTaken()) {
        NoteRefusal(refusal, now);
    } else if (state_.isRefusal && record.command.source.door == Door::Terminal) {
        // The operator has pressed on.
        state_.notice.clear();
        state_.isRefusal = false;
    }
}

void ScreenControl::Notice_(const std::string& sentence, bool isRefusal, Moment now) {
    state_.notice = sentence;
    state_.isRefusal = isRefusal;
    noticeEnd_ = now + NoticeTime;
}

void ScreenControl::Follow(const LiveStatus& status, Moment now) {
    if (state_.mode == Mode::AskResume && IsMoving(status.motion)) state_.mode = Mode::Show;
    if (state_.notice.empty() || now < noticeEnd_) return;
    state_.notice.clear();
    state_.isRefusal = false;
}

}  // namespace stage
