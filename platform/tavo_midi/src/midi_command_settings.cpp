#include "midi_command_settings.h"

#include <fmt/format.h>

#include <filesystem>
#include <stdexcept>

#include "json_reader.h"
#include "kit/file.h"
#include "kit/path.h"

namespace tavo_midi::midi_commands {

namespace {

constexpr std::uintmax_t kMostBytes = 1U << 20U;

unsigned char Byte(const JsonReader& reader, const char* key, std::uint64_t highest) {
    return static_cast<unsigned char>(reader.Number(key, highest));
}

void ReadCommand(const JsonReader& entry, CommandSettings& settings) {
    const std::string name = entry.Text("command");
    for (const auto& [command, commandName] : commandNames) {
        if (commandName != name) continue;
        LearnedCommand message{Byte(entry, "status", 255), 0, 0};
        if (entry.Has("data1")) message.data1 = Byte(entry, "data1", 127);
        if (HasValue(message.status)) message.data2 = entry.Has("data2") ? Byte(entry, "data2", 127) : AnyValue;
        if (settings.commands.contains(command)) entry.Fail(fmt::format("\"{}\" has a message already", name));
        const std::string problem = FindProblem(settings.commands, command, message);
        if (!problem.empty()) entry.Fail(problem.substr(0, problem.size() - 1));
        settings.commands[command] = message;
        return;
    }
    entry.Fail(fmt::format("\"{}\" is not a command", name));
}

}  // namespace

bool HasValue(unsigned char status) {
    const unsigned int kind = status & 0xF0U;
    return kind == 0x90 || kind == 0xB0;
}

bool HasAnyValue(const LearnedCommand& message) {
    const bool isNote = (message.status & 0xF0U) == 0x90;
    return !HasValue(message.status) || message.data2 == AnyValue || (isNote && message.data2 == 0);
}

std::string FindProblem(const std::map<unsigned char, LearnedCommand>& commands, unsigned char command,
                        const LearnedCommand& message) {
    if (!allowedStatuses.contains(message.status))
        return fmt::format("A message with status {} cannot give a command.", message.status);
    if (message.data1 > 127) return fmt::format("{} is not a data byte of MIDI: it is above 127.", message.data1);
    if (message.data2 > 127 && message.data2 != AnyValue)
        return fmt::format("{} is not a value of MIDI: it is above 127.", message.data2);
    for (const auto& [other, taken] : commands) {
        const bool isSame = taken.status == message.status && (message.status >= 0xF0 || taken.data1 == message.data1);
        if (other == command || !isSame) continue;
        if (!HasAnyValue(taken) && !HasAnyValue(message) && taken.data2 != message.data2) continue;
        return fmt::format("{} cannot be given by {}: it gives {} already.", commandNames.at(command),
                           DescribeMessage(message), commandNames.at(other));
    }
    return {};
}

CommandSettings ReadCommandSettings(const std::string& path) {
    CommandSettings settings;
    if (!std::filesystem::exists(path)) return settings;
    try {
        const Json json = ParseJson(kit::ReadFile(path, kMostBytes), kit::path::basename(path));
        const JsonReader reader(json, kit::path::basename(path));
        reader.ForEach("commands", [&](const JsonReader& entry) { ReadCommand(entry, settings); });
        if (reader.Has("source")) settings.sourceName = reader.Text("source");
        RemoteControl& remote = settings.remoteControl;
        if (reader.Has("showControl")) remote.showControl = reader.Flag("showControl");
        if (reader.Has("machineControl")) remote.machineControl = reader.Flag("machineControl");
        if (reader.Has("deviceNumber")) remote.deviceNumber = Byte(reader, "deviceNumber", 126);
    } catch (const std::runtime_error& problem) {
        throw std::runtime_error(fmt::format("The MIDI commands cannot be read: {}.", problem.what()));
    }
    return settings;
}

void WriteCommandSettings(const std::string& path, const CommandSettings& settings) {
    Json json;
    json["source"] = settings.sourceName;
    json["showControl"] = settings.remoteControl.showControl;
    json["machineControl"] = settings.remoteControl.machineControl;
    json["deviceNumber"] = settings.remoteControl.deviceNumber;
    json["commands"] = Json::array();
    for (const auto& [command, message] : settings.commands) {
        Json entry{{"command", commandNames.at(command)}, {"status", message.status}};
        if (message.status < 0xF0) entry["data1"] = message.data1;
        if (!HasAnyValue(message)) entry["data2"] = message.data2;
        json["commands"].push_back(std::move(entry));
    }
    kit::ReplaceFileDurably(path, json.dump(1, ' ', false, Json::error_handler_t::replace) + "\n");
}

}  // namespace tavo_midi::midi_commands
