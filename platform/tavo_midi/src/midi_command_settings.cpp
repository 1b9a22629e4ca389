#include "midi_command_settings.h"

#include <fmt/format.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "kit/file.h"
#include "kit/json_object.h"
#include "kit/path.h"

namespace tavo_midi::midi_commands {

namespace {

using Json = nlohmann::ordered_json;

constexpr std::uintmax_t MostCommandBytes = 1U << 20U;

unsigned char ReadByte(const kit::JsonValue& value, std::uint32_t highest) {
    return static_cast<unsigned char>(value.AsUnsigned(highest));
}

unsigned char ReadCommandName(const kit::JsonValue& value) {
    if (const auto command = FindCommand(value.AsText())) return *command;
    value.FailAs("must be the name of a command");
}

void ReadCommand(kit::JsonObject entry, CommandSettings& settings) {
    const unsigned char command = ReadCommandName(entry.Get("command"));
    LearnedCommand message{ReadByte(entry.Get("status"), 255), 0, 0};
    if (HasValue(message.status)) message.data2 = AnyValue;
    entry.Read("data1", [&](const kit::JsonValue& value) { message.data1 = ReadByte(value, 127); });
    entry.Read("data2", [&](const kit::JsonValue& value) {
        const unsigned char data2 = ReadByte(value, 127);
        if (HasValue(message.status)) message.data2 = data2;
    });
    if (settings.commands.contains(command))
        entry.Fail(fmt::format("is a second message for {}", commandNames.at(command)));
    const std::string problem = FindProblem(settings.commands, command, message);
    if (!problem.empty()) entry.Fail("cannot be used: " + problem);
    entry.WarnOfOtherKeys(settings.warnings);
    settings.commands[command] = message;
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
        return fmt::format("a message with status {} cannot give a command", message.status);
    if (message.data1 > 127) return fmt::format("{} is not a data byte of MIDI: it is above 127", message.data1);
    if (message.data2 > 127 && message.data2 != AnyValue)
        return fmt::format("{} is not a value of MIDI: it is above 127", message.data2);
    for (const auto& [other, taken] : commands) {
        const bool isSame = taken.status == message.status && (message.status >= 0xF0 || taken.data1 == message.data1);
        if (other == command || !isSame) continue;
        if (!HasAnyValue(taken) && !HasAnyValue(message) && taken.data2 != message.data2) continue;
        return fmt::format("{} cannot be given by {}, which gives {} already", commandNames.at(command),
                           DescribeMessage(message), commandNames.at(other));
    }
    return {};
}

CommandSettings ReadCommandSettings(const std::string& path) {
    CommandSettings settings;
    if (!std::filesystem::exists(path)) return settings;
    const kit::JsonText json(kit::ReadFile(path, MostCommandBytes), kit::path::basename(path));
    kit::JsonObject reader = json.Object();
    reader.Read("commands", [&](const kit::JsonValue& list) {
        for (const kit::JsonValue& entry : list.AsList())
            ReadCommand(entry.AsObject(), settings);
    });
    reader.Read("source", [&](const kit::JsonValue& value) { settings.sourceName = value.AsText(); });
    RemoteControl& remote = settings.remoteControl;
    reader.Read("showControl", [&](const kit::JsonValue& value) { remote.showControl = value.AsFlag(); });
    reader.Read("machineControl", [&](const kit::JsonValue& value) { remote.machineControl = value.AsFlag(); });
    reader.Read("deviceNumber", [&](const kit::JsonValue& value) { remote.deviceNumber = ReadByte(value, 126); });
    reader.WarnOfOtherKeys(settings.warnings);
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
