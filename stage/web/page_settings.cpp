#include "stage/web/page_settings.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <stdexcept>
#include <string>

#include "kit/words.h"
#include "stage/show/press_guard.h"
#include "stage/show/show_directory.h"

namespace stage {

namespace {

using JumpRule = MidiTimeCodeController::JumpRule;

void SetPressGuard(ShowSession& session, const std::string& value) {
    int milliseconds = 0;
    const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), milliseconds);
    if (error != std::errc() || end != value.data() + value.size())
        throw std::invalid_argument(
            fmt::format("the press guard must be a whole number of milliseconds, not {}", kit::Quote(value)));
    KeepPressGuard(ScanShowDirectory(session.GetShowDirectory()).SettingsPath(), milliseconds);
    session.GetDesk().SetPressGuard(std::chrono::milliseconds(milliseconds));
}

void SwitchTimeCode(ShowSession& session, const std::string& value) {
    if (value == "on") return session.ActivateMidiTimeCode();
    if (value == "off") return session.CancelMidiTimeCode();
    throw std::invalid_argument(fmt::format("time code must be on or off, not {}", kit::Quote(value)));
}

void SetFrameRate(ShowSession& session, const std::string& value) {
    const std::vector<std::string> rates = session.GetFrameRateStrings();
    if (std::ranges::find(rates, value) == rates.end())
        throw std::invalid_argument(
            fmt::format("the frame rate must be one of {}, not {}", fmt::join(rates, ", "), kit::Quote(value)));
    session.SetFrameRateFromString(value);
}

void SetJumps(ShowSession& session, const std::string& value) {
    if (value != "locate" && value != "runOn")
        throw std::invalid_argument(
            fmt::format("what time code does at a jump must be locate or runOn, not {}", kit::Quote(value)));
    session.GetMidiTimeCodeController().SetJumpRule(value == "runOn" ? JumpRule::RunOn : JumpRule::Locate);
}

}  // namespace

void ChangeSetting(ShowSession& session, std::string_view words) {
    const std::size_t blank = std::min(words.find(' '), words.size());
    const std::string_view name = words.substr(0, blank);
    // Whole, because the names of ports have blanks.
    const std::string value(words.substr(std::min(blank + 1, words.size())));
    if (name == "press-guard") return SetPressGuard(session, value);
    if (name == "time-code") return SwitchTimeCode(session, value);
    if (name == "time-code-rate") return SetFrameRate(session, value);
    if (name == "time-code-output") return session.GetMidiTimeCodeController().SetOutputPortName(value);
    if (name == "time-code-jumps") return SetJumps(session, value);
    throw std::invalid_argument(
        fmt::format("there is no setting {} that a page may change: press-guard, time-code, time-code-rate, "
                    "time-code-output and time-code-jumps are there",
                    kit::Quote(name)));
}

}  // namespace stage
