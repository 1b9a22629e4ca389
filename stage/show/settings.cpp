#include "stage/show/settings.h"

#include <arpa/inet.h>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <set>
#include <string_view>
#include <utility>

#include "kit/file.h"
#include "kit/json_object.h"
#include "kit/path.h"
#include "kit/words.h"
#include "stage/show/kept_settings.h"
#include "tavo_core/tavo_version.h"

namespace stage {

namespace {

using Json = nlohmann::ordered_json;
using kit::JsonValue;

constexpr std::size_t MaxFileBytes = 1U << 20U;
constexpr std::size_t MaxListed = 1000;
constexpr std::int64_t MaxPressGuardMs = 10000;
constexpr double LowestTrim = -60;
constexpr double HighestTrim = 12;
constexpr std::int64_t MaxCountIn = 16;
constexpr const char* Off = "off";

constexpr std::size_t MaxGroups = 32;
constexpr std::size_t MaxGroupNameBytes = 40;
constexpr std::int64_t MaxChannels = 256;

constexpr std::array<std::pair<std::string_view, Settings::Group::Output>, 2> GroupOutputWords{{
    {"main", Settings::Group::Output::Main},
    {"own", Settings::Group::Output::Own},
}};
constexpr std::array<std::pair<std::string_view, Settings::Backend>, 4> BackendWords{{
    {"auto", Settings::Backend::Auto},
    {"jack", Settings::Backend::Jack},
    {"rtaudio", Settings::Backend::RtAudio},
    {"none", Settings::Backend::None},
}};
constexpr std::array<std::pair<std::string_view, Settings::Transport>, 3> TransportWords{{
    {"udp", Settings::Transport::Udp},
    {"tcp", Settings::Transport::Tcp},
    {"midi", Settings::Transport::Midi},
}};

template <class Words, class Value>
std::string_view FindWord(const Words& words, Value value) {
    return std::find_if(words.begin(), words.end(), [&](const auto& word) { return word.second == value; })->first;
}

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
    object.Read("transport", [&](const JsonValue& value) { target.transport = value.AsOneOf(TransportWords); });
    if (target.transport == Settings::Transport::Midi) {
        target.midiPort = object.Get("midiPort").AsFilledText();
    } else {
        object.Read("host", [&](const JsonValue& value) { target.host = value.AsFilledText(); });
        target.port = static_cast<std::uint16_t>(object.Get("port").AsInteger(1, 65535));
        object.Read("timeTags", [&](const JsonValue& value) { target.timeTags = value.AsFlag(); });
    }
    object.RefuseOtherKeys();
    return target;
}

Settings::SoundTrim ReadSoundTrim(kit::JsonObject object) {
    Settings::SoundTrim sound;
    sound.name = object.Get("name").AsFilledText();
    sound.decibels = object.Get("trim").AsNumber(LowestTrim, HighestTrim);
    object.RefuseOtherKeys();
    return sound;
}

Settings::OscIn ReadOscIn(kit::JsonObject object) {
    Settings::OscIn in;
    object.Read("listen", [&](const JsonValue& value) {
        try {
            ReadListening(value.AsText(), in);
        } catch (const std::invalid_argument& problem) {
            value.FailAs(fmt::format("must say where to listen: {}", problem.what()));
        }
    });
    object.Read("passcode", [&](const JsonValue& value) { in.passcode = value.AsText(); });
    object.RefuseOtherKeys();
    return in;
}

Json WriteOscTarget(const Settings::OscTarget& target) {
    Json json{{"name", target.name}};
    if (target.transport == Settings::Transport::Midi) {
        json["midiPort"] = target.midiPort;
    } else {
        json["host"] = target.host;
        json["port"] = target.port;
    }
    json["transport"] = FindWord(TransportWords, target.transport);
    if (target.timeTags) json["timeTags"] = true;
    return json;
}

std::vector<std::string> ReadNames(const JsonValue& list) {
    std::vector<std::string> names;
    for (const JsonValue& value : list.AsList(MaxListed))
        names.push_back(value.AsText());
    return names;
}

/// One word, the name of ports.
std::string ReadPortWord(const JsonValue& value) {
    std::string name = value.AsFilledText();
    const bool isWord = std::all_of(name.begin(), name.end(), [](char c) {
        return static_cast<unsigned char>(c) > 0x7F || std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '-' ||
               c == '_';
    });
    if (!isWord || name.size() > MaxGroupNameBytes)
        value.FailAs(fmt::format("must be one word of letters, digits, - and _, at most {} bytes", MaxGroupNameBytes));
    return name;
}

/// Also a verb's argument, so it must mean nothing else.
std::string ReadGroupName(const JsonValue& value) {
    constexpr std::array<std::string_view, 7> Taken{"main", "click", "master", "music", "effects", "ambience", "all"};
    std::string name = ReadPortWord(value);
    if (std::find(Taken.begin(), Taken.end(), name) != Taken.end())
        value.Fail(fmt::format("must not be {}, which means another sound", kit::QuoteForSentence(name)));
    return name;
}

Settings::Group ReadGroup(kit::JsonObject object) {
    Settings::Group group;
    group.name = ReadGroupName(object.Get("name"));
    object.Read("midiPort", [&](const JsonValue& value) {
        if (!value.AsText().empty()) group.midiPort = ReadPortWord(value);
    });
    object.Read("soundfont", [&](const JsonValue& value) { group.soundFont = value.AsText(); });
    object.Read("reverbDb", [&](const JsonValue& value) {
        if (value.Is(Off)) return;
        try {
            group.reverbDb = value.AsNumber(LowestTrim, HighestTrim);
        } catch (const std::runtime_error&) {
            value.FailAs(fmt::format("must be \"{}\" or a number from {} to {}", Off, LowestTrim, HighestTrim));
        }
    });
    object.Read("parts", [&](const JsonValue& value) { group.parts = ReadNames(value); });
    object.Read("channels", [&](const JsonValue& list) {
        for (const JsonValue& value : list.AsList(MaxChannels))
            group.channels.push_back(static_cast<int>(value.AsInteger(1, MaxChannels)));
    });
    object.Read("volume", [&](const JsonValue& value) { group.volume = value.AsNumber(0, 1); });
    object.Read("trimDb", [&](const JsonValue& value) { group.trimDb = value.AsNumber(LowestTrim, HighestTrim); });
    object.Read("mute", [&](const JsonValue& value) { group.isMuted = value.AsFlag(); });
    object.Read("output", [&](const JsonValue& value) { group.output = value.AsOneOf(GroupOutputWords); });
    object.RefuseOtherKeys();
    return group;
}

Settings::Reverb ReadReverb(kit::JsonObject object) {
    Settings::Reverb reverb;
    object.Read("roomSize", [&](const JsonValue& value) { reverb.roomSize = value.AsNumber(0, 1); });
    object.Read("damping", [&](const JsonValue& value) { reverb.damping = value.AsNumber(0, 1); });
    object.RefuseOtherKeys();
    return reverb;
}

Settings::Volumes ReadVolumes(kit::JsonObject object) {
    Settings::Volumes volumes;
    object.Read("master", [&](const JsonValue& value) { volumes.master = value.AsNumber(0, 1); });
    object.Read("synth", [&](const JsonValue& value) { volumes.synth = value.AsNumber(0, 1); });
    object.Read("click", [&](const JsonValue& value) { volumes.click = value.AsNumber(0, 1); });
    object.Read("effects", [&](const JsonValue& value) { volumes.effects = value.AsNumber(0, 1); });
    object.Read("ambience", [&](const JsonValue& value) { volumes.ambience = value.AsNumber(0, 1); });
    object.RefuseOtherKeys();
    return volumes;
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

std::string ReadLogName(const JsonValue& value) {
    std::string name = value.AsText();
    if (name.find('/') != std::string::npos) value.FailAs("must be the name of a file without a directory");
    return name;
}

std::string ReadVersion(const JsonValue& value) {
    std::string text = value.AsText();
    cmn::TAVOVersion version;
    try {
        if (!text.empty()) version.SetWithString(text);
    } catch (const std::invalid_argument& problem) {
        value.FailAs(fmt::format("must be a version: {}", problem.what()));
    }
    return text;
}

}  // namespace

Settings ParseSettings(const std::string& text, const std::string& name) {
    const kit::JsonText json(text, name, {.bytes = MaxFileBytes});
    kit::JsonObject object = json.Object();
    Settings settings;
    object.Read("soundfont", [&](const JsonValue& value) { settings.soundFont = value.AsText(); });
    object.Read("outputs", [&](const JsonValue& value) { settings.outputs = ReadNamed(value, ReadOutput, "output"); });
    object.Read("volumes", [&](const JsonValue& value) { settings.volumes = ReadVolumes(value.AsObject()); });
    object.Read("sounds", [&](const JsonValue& value) { settings.sounds = ReadNamed(value, ReadSoundTrim, "sound"); });
    object.Read("clickInMain", [&](const JsonValue& value) { settings.clickInMain = value.AsFlag(); });
    object.Read("countIn",
                [&](const JsonValue& value) { settings.countIn = static_cast<int>(value.AsInteger(0, MaxCountIn)); });
    object.Read("groups", [&](const JsonValue& value) {
        settings.groups = ReadNamed(value, ReadGroup, "group");
        if (settings.groups.size() > MaxGroups) value.FailAs(fmt::format("must have at most {} groups", MaxGroups));
    });
    object.Read("reverb", [&](const JsonValue& value) { settings.reverb = ReadReverb(value.AsObject()); });
    object.Read("oscTargets",
                [&](const JsonValue& value) { settings.oscTargets = ReadNamed(value, ReadOscTarget, "target"); });
    object.Read("osc", [&](const JsonValue& value) { settings.osc = ReadOscIn(value.AsObject()); });
    object.Read("pressGuardMs", [&](const JsonValue& value) {
        settings.pressGuardMs = static_cast<int>(value.AsInteger(0, MaxPressGuardMs));
    });
    // Imports once wrote it, and nothing obeyed it: which ports are connected stands in the MIDI settings.
    object.Read("midiPorts", [](const JsonValue&) {});
    object.Read("changeLog", [&](const JsonValue& value) { settings.changeLog = ReadLogName(value); });
    object.Read("nextVersion", [&](const JsonValue& value) { settings.nextVersion = ReadVersion(value); });
    object.RefuseOtherKeys();
    return settings;
}

namespace {

/// What cannot be looked at counts as there: reading it says why. Its choice of a version must not be passed over.
bool IsThere(const std::string& path) {
    std::error_code ignored;
    return std::filesystem::symlink_status(path, ignored).type() != std::filesystem::file_type::not_found;
}

}  // namespace

Settings ReadSettings(const std::string& path) {
    return IsThere(path) ? ParseSettings(kit::ReadFile(path, MaxFileBytes), kit::path::basename(path)) : Settings{};
}

namespace {

/// The file as it stands, of which a part is changed. What cannot be read as settings is not written over.
class SettingsFile {
public:
    explicit SettingsFile(const std::string& path)
        : settings(ReadSettings(path)),
          json(IsThere(path) ? Json::parse(kit::ReadFile(path, MaxFileBytes)) : Json::object()),
          path_(path) {}

    void Replace() const { kit::ReplaceFileDurably(path_, json.dump(4) + "\n"); }

    const Settings settings;
    Json json;

private:
    const std::string path_;
};

}  // namespace

void ChooseChangeLog(const std::string& path, const std::string& logName) {
    SettingsFile file(path);
    if (file.settings.changeLog == logName && file.settings.nextVersion.empty()) return;
    file.json["changeLog"] = logName;
    file.json.erase("nextVersion");
    file.Replace();
}

void AnnounceVersion(const std::string& path, const std::string& version) {
    SettingsFile file(path);
    if (file.settings.nextVersion == version) return;
    file.json["nextVersion"] = version;
    file.Replace();
}

void KeepPressGuard(const std::string& settingsPath, int milliseconds) {
    if (milliseconds < 0 || milliseconds > MaxPressGuardMs)
        throw std::invalid_argument(
            fmt::format("the press guard must be from 0 to {} ms, not {}", MaxPressGuardMs, milliseconds));
    KeepSetting(settingsPath, "pressGuardMs", std::to_string(milliseconds));
}

void KeepSetting(const std::string& settingsPath, const std::string& key, const std::string& json) {
    SettingsFile file(settingsPath);
    const std::string name = kit::path::basename(settingsPath);
    try {
        static_cast<void>(kit::JsonText(json, key, {.bytes = MaxFileBytes}));
        file.json[key] = Json::parse(json);
        static_cast<void>(ParseSettings(file.json.dump(), name));
    } catch (const std::runtime_error& problem) {
        throw std::invalid_argument(problem.what());
    }
    file.Replace();
}

std::string AsText(const Settings& settings) {
    Json outputs = Json::array();
    for (const auto& output : settings.outputs)
        outputs.push_back(
            {{"name", output.name}, {"backend", FindWord(BackendWords, output.backend)}, {"device", output.device}});
    Json groups = Json::array();
    for (const auto& group : settings.groups)
        groups.push_back({{"name", group.name},
                          {"parts", group.parts},
                          {"channels", group.channels},
                          {"volume", group.volume},
                          {"trimDb", group.trimDb},
                          {"mute", group.isMuted},
                          {"output", FindWord(GroupOutputWords, group.output)},
                          {"midiPort", group.midiPort},
                          {"soundfont", group.soundFont},
                          {"reverbDb", group.reverbDb ? Json(*group.reverbDb) : Json(Off)}});
    Json targets = Json::array();
    for (const auto& target : settings.oscTargets)
        targets.push_back(WriteOscTarget(target));
    Json sounds = Json::array();
    for (const auto& sound : settings.sounds)
        sounds.push_back({{"name", sound.name}, {"trim", sound.decibels}});
    Json json{{"soundfont", settings.soundFont},
              {"outputs", outputs},
              {"volumes",
               {{"master", settings.volumes.master},
                {"synth", settings.volumes.synth},
                {"click", settings.volumes.click},
                {"effects", settings.volumes.effects},
                {"ambience", settings.volumes.ambience}}},
              {"sounds", sounds},
              {"clickInMain", settings.clickInMain},
              {"countIn", settings.countIn},
              {"groups", groups},
              {"reverb", {{"roomSize", settings.reverb.roomSize}, {"damping", settings.reverb.damping}}},
              {"oscTargets", targets},
              {"osc", {{"listen", DescribeListening(settings.osc)}, {"passcode", settings.osc.passcode}}},
              {"pressGuardMs", settings.pressGuardMs},
              {"changeLog", settings.changeLog}};
    if (!settings.nextVersion.empty()) json["nextVersion"] = settings.nextVersion;
    return json.dump(4) + "\n";
}

void ReadListening(const std::string& text, Settings::OscIn& in) {
    in.isOn = text != "off";
    if (!in.isOn) return;
    const std::size_t colon = text.rfind(':');
    const bool hasAddress = colon != std::string::npos;
    std::string address = hasAddress ? text.substr(0, colon) : "127.0.0.1";
    if (address.starts_with('[') && address.ends_with(']')) address = address.substr(1, address.size() - 2);
    const std::string_view digits = std::string_view(text).substr(hasAddress ? colon + 1 : 0);
    std::uint16_t port = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), port);
    if (error != std::errc() || end != digits.data() + digits.size())
        throw std::invalid_argument(
            fmt::format("{} is neither \"off\" nor a port from 0 to 65535, alone or after an address and a colon",
                        kit::Quote(text)));
    std::array<unsigned char, sizeof(in6_addr)> bytes{};
    if (inet_pton(AF_INET, address.c_str(), bytes.data()) != 1 &&
        inet_pton(AF_INET6, address.c_str(), bytes.data()) != 1)
        throw std::invalid_argument(
            fmt::format("{} is not an address in numbers, such as 127.0.0.1 or 0.0.0.0", kit::Quote(address)));
    in.address = std::move(address);
    in.port = port;
}

std::string DescribeListening(const Settings::OscIn& in) {
    if (!in.isOn) return "off";
    const bool hasColons = in.address.find(':') != std::string::npos;
    return hasColons ? fmt::format("[{}]:{}", in.address, in.port) : fmt::format("{}:{}", in.address, in.port);
}

const Settings::OscTarget* FindOscTarget(const Settings& settings, const std::string& name) {
    const auto found = std::ranges::find_if(settings.oscTargets,
                                            [&](const auto& target) { return name.empty() || target.name == name; });
    return found == settings.oscTargets.end() ? nullptr : &*found;
}

bool HasOscTarget(const Settings& settings, const std::string& name) {
    return FindOscTarget(settings, name) != nullptr;
}

}  // namespace stage
