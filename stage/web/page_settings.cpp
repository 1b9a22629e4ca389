#include "stage/web/page_settings.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <ranges>
#include <stdexcept>
#include <string>

#include "kit/words.h"
#include "stage/show/kept_settings.h"
#include "stage/show/show_directory.h"
#include "tavo_midi/midi_commands.h"
#include "tavo_midi/midi_message_dispatcher.h"

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

void ChooseMidiInput(ShowSession& session, const std::string& value) {
    if (value.empty()) return session.GetMidiCommands().ForgetSource();
    const std::vector<MidiEndPoint> inputs = GetNonTavoMidiSources();
    const auto found = std::ranges::find(inputs, value, &MidiEndPoint::name);
    if (found == inputs.end()) throw std::invalid_argument(fmt::format("there is no MIDI input {}", kit::Quote(value)));
    session.GetMidiCommands().ConnectSourceByIndex(found->index);
}

// What is open goes on as it was opened: a device that changes hands in the middle of a performance would be heard.
void KeepForTheNextOpening(ShowSession& session, const std::string& key, const std::string& value) {
    KeepSetting(ScanShowDirectory(session.GetShowDirectory()).SettingsPath(), key, value);
}

unsigned char FindMidiCommand(const std::string& value) {
    if (const auto command = midi_commands::FindCommand(value)) return *command;
    throw std::invalid_argument(fmt::format("there is no MIDI command {}: there are {}", kit::Quote(value),
                                            fmt::join(std::views::values(midi_commands::commandNames), ", ")));
}

void LearnMidiCommand(ShowSession& session, const std::string& value) {
    midi_commands::MidiCommands& commands = session.GetMidiCommands();
    if (value.empty()) return commands.CancelLearning();
    const unsigned char command = FindMidiCommand(value);
    if (session.GetMidiMessageDispatcher().GetPortName().empty())
        throw std::invalid_argument("no MIDI input is connected: choose one first");
    // One at a time: whoever presses a pedal means the last one that was asked for.
    commands.CancelLearning();
    commands.LearnMidiCommand(command);
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
    if (name == "outputs" || name == "groups") return KeepForTheNextOpening(session, std::string(name), value);
    if (name == "osc-targets") return KeepForTheNextOpening(session, "oscTargets", value);
    if (name == "midi-input") return ChooseMidiInput(session, value);
    if (name == "midi-learn") return LearnMidiCommand(session, value);
    if (name == "midi-forget") return session.GetMidiCommands().UnsetMidiCommand(FindMidiCommand(value));
    throw std::invalid_argument(fmt::format(
        "there is no setting {} that a page may change: press-guard, time-code, time-code-rate, "
        "time-code-output, time-code-jumps, midi-input, midi-learn, midi-forget, outputs, groups, osc-targets and "
        "test-tone are there",
        kit::Quote(name)));
}

bool StartsLearning(std::string_view words) {
    return words.starts_with("midi-learn ");
}

nlohmann::ordered_json MakePedals(const midi_commands::MidiCommands& commands) {
    const std::map<unsigned char, midi_commands::LearnedCommand> learned = commands.GetLearnedCommands();
    nlohmann::ordered_json messages = nlohmann::ordered_json::object();
    std::string learning;
    for (const auto& [command, name] : midi_commands::commandNames) {
        const auto found = learned.find(command);
        const bool isGiven = found != learned.end() && found->second.isAssigned;
        messages[name] = isGiven ? midi_commands::DescribeMessage(found->second) : "";
        if (commands.IsMidiCommandLearning(command)) learning = name;
    }
    const std::string problem = commands.GetLearnProblem();
    return {{"commands", std::move(messages)},
            {"learning", learning},
            {"problem", problem.empty() ? "" : kit::AsSentence(problem)}};
}

}  // namespace stage
