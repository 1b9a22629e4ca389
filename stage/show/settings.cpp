#include "stage/show/settings.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <set>
#include <string_view>
#include <utility>

#include "kit/file.h"
#include "kit/json_object.h"
#include "kit/path.h"

namespace stage {

namespace {

using Json = nlohmann::ordered_json;
using kit::JsonValue;

constexpr std::size_t MaxFileBytes = 1U << 20U;
constexpr std::size_t MaxListed = 1000;
constexpr std::int64_t MaxPressGuardMs = 10000;

constexpr std::array<std::pair<std::string_view, Settings::Backend>, 4> BackendWords{{
    {"auto", Settings::Backend::Auto},
    {"jack", Settings::Backend::Jack},
    {"rtaudio", Settings::Backend::RtAudio},
    {"none", Settings::Backend::None},
}};
constexpr std::array<std::pair<std::string_view, Settings::Transport>, 2> TransportWords{{
    {"udp", Settings::Transport::Udp},
    {"tcp", Settings::Transport::Tcp},
}};

Settings::Output ReadOutput(kit::JsonObject object) {
    Settings::Output output;
    object.Read("name", [&](const JsonValue& value) { output.name = value.AsText(); });
    object.Read("backend", [&](const JsonValue& value) { output.backend = value.AsOneOf(BackendWords); });
    object.Read("device", [&](const JsonValue& value) { output.device = value.AsText(); });
    object.RefuseOtherKeys();
    return output;
}

Settings::OscTarget ReadOscTarget(kit::JsonObject object) {
    Settings::OscTarget target;
    target.name = object.Get("name").AsFilledText();
    object.Read("host", [&](const JsonValue& value) { target.host = value.AsFilledText(); });
    target.port = static_cast<std::uint16_t>(object.Get("port").AsInteger(1, 65535));
    object.Read("transport", [&](const JsonValue& value) { target.transport = value.AsOneOf(TransportWords); });
    object.RefuseOtherKeys();
    return target;
}

Settings::Volumes ReadVolumes(kit::JsonObject object) {
    Settings::Volumes volumes;
    object.Read("master", [&](const JsonValue& value) { volumes.master = value.AsNumber(0, 1); });
    object.Read("synth", [&](const JsonValue& value) { volumes.synth = value.AsNumber(0, 1); });
    object.Read("click", [&](const JsonValue& value) { volumes.click = value.AsNumber(0, 1); });
    object.Read("effects", [&](const JsonValue& value) { volumes.effects = value.AsNumber(0, 1); });
    object.RefuseOtherKeys();
    return volumes;
}

std::vector<std::string> ReadNames(const JsonValue& list) {
    std::vector<std::string> names;
    for (const JsonValue& value : list.AsList(MaxListed))
        names.push_back(value.AsText());
    return names;
}

Settings::MidiPorts ReadMidiPorts(kit::JsonObject object) {
    Settings::MidiPorts ports;
    object.Read("inputs", [&](const JsonValue& value) { ports.inputs = ReadNames(value); });
    object.Read("outputs", [&](const JsonValue& value) { ports.outputs = ReadNames(value); });
    object.RefuseOtherKeys();
    return ports;
}

/// Elements whose names differ; `kind` is what one of them is.
template <class Element>
std::vector<Element> ReadNamed(const JsonValue& list, Element (*read)(kit::JsonObject), const char* kind) {
    std::vector<Element> elements;
    std::set<std::string> names;
    for (const JsonValue& value : list.AsList(MaxListed)) {
        elements.push_back(read(value.AsObject()));
        if (!names.insert(elements.back().name).second)
            value.Fail(
                fmt::format("has the name of another {}, {}", kind, kit::QuoteForSentence(elements.back().name)));
    }
    return elements;
}

template <class Words, class Value>
std::string_view FindWord(const Words& words, Value value) {
    return std::find_if(words.begin(), words.end(), [&](const auto& word) { return word.second == value; })->first;
}

std::string ReadLogName(const JsonValue& value) {
    std::string name = value.AsText();
    if (name.find('/') != std::string::npos) value.FailAs("must be the name of a file without a directory");
    return name;
}

}  // namespace

Settings ParseSettings(const std::string& text, const std::string& name) {
    const kit::JsonText json(text, name, {.bytes = MaxFileBytes});
    kit::JsonObject object = json.Object();
    Settings settings;
    object.Read("soundfont", [&](const JsonValue& value) { settings.soundFont = value.AsText(); });
    object.Read("outputs", [&](const JsonValue& value) { settings.outputs = ReadNamed(value, ReadOutput, "output"); });
    object.Read("volumes", [&](const JsonValue& value) { settings.volumes = ReadVolumes(value.AsObject()); });
    object.Read("oscTargets",
                [&](const JsonValue& value) { settings.oscTargets = ReadNamed(value, ReadOscTarget, "target"); });
    object.Read("pressGuardMs", [&](const JsonValue& value) {
        settings.pressGuardMs = static_cast<int>(value.AsInteger(0, MaxPressGuardMs));
    });
    object.Read("midiPorts", [&](const JsonValue& value) { settings.midiPorts = ReadMidiPorts(value.AsObject()); });
    object.Read("changeLog", [&](const JsonValue& value) { settings.changeLog = ReadLogName(value); });
    object.RefuseOtherKeys();
    return settings;
}

namespace {

bool IsThere(const std::string& path) {
    std::error_code ignored;
    return std::filesystem::exists(std::filesystem::symlink_status(path, ignored));
}

}  // namespace

Settings ReadSettings(const std::string& path) {
    return IsThere(path) ? ParseSettings(kit::ReadFile(path, MaxFileBytes), kit::path::basename(path)) : Settings{};
}

void ChooseChangeLog(const std::string& path, const std::string& logName) {
    if (ReadSettings(path).changeLog == logName) return;
    Json json = IsThere(path) ? Json::parse(kit::ReadFile(path, MaxFileBytes)) : Json::object();
    json["changeLog"] = logName;
    kit::ReplaceFileDurably(path, json.dump(4) + "\n");
}

std::string AsText(const Settings& settings) {
    Json outputs = Json::array();
    for (const auto& output : settings.outputs)
        outputs.push_back(
            {{"name", output.name}, {"backend", FindWord(BackendWords, output.backend)}, {"device", output.device}});
    Json targets = Json::array();
    for (const auto& target : settings.oscTargets)
        targets.push_back({{"name", target.name},
                           {"host", target.host},
                           {"port", target.port},
                           {"transport", FindWord(TransportWords, target.transport)}});
    const Json json{{"soundfont", settings.soundFont},
                    {"outputs", outputs},
                    {"volumes",
                     {{"master", settings.volumes.master},
                      {"synth", settings.volumes.synth},
                      {"click", settings.volumes.click},
                      {"effects", settings.volumes.effects}}},
                    {"oscTargets", targets},
                    {"pressGuardMs", settings.pressGuardMs},
                    {"midiPorts", {{"inputs", settings.midiPorts.inputs}, {"outputs", settings.midiPorts.outputs}}},
                    {"changeLog", settings.changeLog}};
    return json.dump(4) + "\n";
}

bool HasOscTarget(const Settings& settings, const std::string& name) {
    if (name.empty()) return !settings.oscTargets.empty();
    return std::any_of(settings.oscTargets.begin(), settings.oscTargets.end(),
                       [&](const auto& target) { return target.name == name; });
}

}  // namespace stage
