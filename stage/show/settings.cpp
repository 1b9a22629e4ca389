#include "stage/show/settings.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <functional>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "kit/file.h"

namespace stage {

namespace {

using Json = nlohmann::ordered_json;

constexpr std::uintmax_t MaxFileBytes = 1U << 20U;
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

/// One value of the file together with its place, which every complaint names.
class Place {
public:
    Place(const std::string& file, std::string key, const Json& value)
        : file_(file), key_(std::move(key)), value_(value) {}

    [[noreturn]] void Refuse(const std::string& problem) const {
        throw std::runtime_error(fmt::format("the file \"{}\" is not usable: {} {}", file_, key_, problem));
    }

    std::string AsString() const {
        if (!value_.is_string()) Refuse("must be a text");
        return value_.get<std::string>();
    }
    double AsNumber(double lowest, double highest) const {
        if (!value_.is_number()) Refuse("must be a number");
        const double number = value_.get<double>();
        if (!(number >= lowest && number <= highest)) Refuse(fmt::format("must be from {} to {}", lowest, highest));
        return number;
    }
    std::int64_t AsInteger(std::int64_t lowest, std::int64_t highest) const {
        if (!value_.is_number_integer()) Refuse("must be a whole number");
        const bool isTooLarge = value_.is_number_unsigned() && value_.get<std::uint64_t>() > std::uint64_t{INT64_MAX};
        const std::int64_t number = isTooLarge ? INT64_MAX : value_.get<std::int64_t>();
        if (number < lowest || number > highest) Refuse(fmt::format("must be from {} to {}", lowest, highest));
        return number;
    }
    template <class Words>
    auto AsOneOf(const Words& words) const {
        const std::string word = AsString();
        std::string choices;
        for (const auto& [text, value] : words) {
            if (text == word) return value;
            choices += fmt::format("{}\"{}\"", choices.empty() ? "" : ", ", text);
        }
        Refuse("must be one of " + choices);
    }

    using Readers = std::vector<std::pair<std::string_view, std::function<void(const Place&)>>>;
    /// Calls the reader of each key that is there; a key without a reader is refused.
    void ReadObject(const Readers& readers) const {
        if (!value_.is_object()) Refuse("must be an object");
        for (const auto& [key, value] : value_.items()) {
            const auto reader = std::find_if(readers.begin(), readers.end(),
                                             [&name = key](const auto& candidate) { return candidate.first == name; });
            // As JSON writes it: a key may hold line ends.
            const std::string quoted = Json(key).dump();
            const Place place(file_, key_ == TopLevel ? quoted : key_ + ' ' + quoted, value);
            if (reader == readers.end()) place.Refuse("is not a known key");
            reader->second(place);
        }
    }
    void ReadArray(const std::function<void(const Place&)>& readElement) const {
        if (!value_.is_array()) Refuse("must be an array");
        std::size_t number = 0;
        for (const Json& element : value_)
            readElement(Place(file_, fmt::format("{} number {}", key_, ++number), element));
    }

    static constexpr std::string_view TopLevel = "the text";

private:
    const std::string& file_;
    std::string key_;
    const Json& value_;
};

Settings::Output ReadOutput(const Place& place) {
    Settings::Output output;
    place.ReadObject({{"name", [&](const Place& value) { output.name = value.AsString(); }},
                      {"backend", [&](const Place& value) { output.backend = value.AsOneOf(BackendWords); }},
                      {"device", [&](const Place& value) { output.device = value.AsString(); }}});
    return output;
}

Settings::OscTarget ReadOscTarget(const Place& place) {
    Settings::OscTarget target;
    place.ReadObject(
        {{"name", [&](const Place& value) { target.name = value.AsString(); }},
         {"host", [&](const Place& value) { target.host = value.AsString(); }},
         {"port", [&](const Place& value) { target.port = static_cast<std::uint16_t>(value.AsInteger(1, 65535)); }},
         {"transport", [&](const Place& value) { target.transport = value.AsOneOf(TransportWords); }}});
    if (target.name.empty()) place.Refuse("needs a \"name\"");
    if (target.host.empty()) place.Refuse("needs a \"host\"");
    if (target.port == 0) place.Refuse("needs a \"port\"");
    return target;
}

void ReadVolumes(const Place& place, Settings::Volumes& volumes) {
    place.ReadObject({{"master", [&](const Place& value) { volumes.master = value.AsNumber(0, 1); }},
                      {"synth", [&](const Place& value) { volumes.synth = value.AsNumber(0, 1); }},
                      {"click", [&](const Place& value) { volumes.click = value.AsNumber(0, 1); }},
                      {"effects", [&](const Place& value) { volumes.effects = value.AsNumber(0, 1); }}});
}

std::vector<std::string> ReadNames(const Place& place) {
    std::vector<std::string> names;
    place.ReadArray([&](const Place& element) { names.push_back(element.AsString()); });
    return names;
}

void ReadOutputs(const Place& place, std::vector<Settings::Output>& outputs) {
    outputs.clear();
    place.ReadArray([&](const Place& element) {
        outputs.push_back(ReadOutput(element));
        for (std::size_t i = 0; i + 1 < outputs.size(); ++i)
            if (outputs[i].name == outputs.back().name) element.Refuse("has the name of another output");
    });
}

void ReadOscTargets(const Place& place, std::vector<Settings::OscTarget>& targets) {
    targets.clear();
    place.ReadArray([&](const Place& element) {
        targets.push_back(ReadOscTarget(element));
        for (std::size_t i = 0; i + 1 < targets.size(); ++i)
            if (targets[i].name == targets.back().name) element.Refuse("has the name of another target");
    });
}

template <class Words, class Value>
std::string_view FindWord(const Words& words, Value value) {
    return std::find_if(words.begin(), words.end(), [&](const auto& word) { return word.second == value; })->first;
}

std::string ReadLogName(const Place& place) {
    std::string name = place.AsString();
    if (name.find('/') != std::string::npos) place.Refuse("must be a file's name without a directory");
    return name;
}

std::string DescribeByte(const std::string& text, std::size_t byte) {
    const std::size_t end = std::min(byte, text.size());
    const auto line = std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(end), '\n') + 1;
    return fmt::format("line {}", line);
}

}  // namespace

Settings ParseSettings(const std::string& text, const std::string& name) {
    Json json;
    try {
        json = Json::parse(text);
    } catch (const Json::parse_error& problem) {
        throw std::runtime_error(fmt::format("the file \"{}\" is not usable: its {} is not JSON", name,
                                             DescribeByte(text, problem.byte > 0 ? problem.byte - 1 : 0)));
    } catch (const Json::out_of_range&) {
        throw std::runtime_error(
            fmt::format("the file \"{}\" is not usable: it holds a number that is too large", name));
    }
    Settings settings;
    Place(name, std::string(Place::TopLevel), json)
        .ReadObject(
            {{"soundfont", [&](const Place& value) { settings.soundFont = value.AsString(); }},
             {"outputs", [&](const Place& value) { ReadOutputs(value, settings.outputs); }},
             {"volumes", [&](const Place& value) { ReadVolumes(value, settings.volumes); }},
             {"oscTargets", [&](const Place& value) { ReadOscTargets(value, settings.oscTargets); }},
             {"pressGuardMs",
              [&](const Place& value) {
                  settings.pressGuardMs = static_cast<int>(value.AsInteger(0, MaxPressGuardMs));
              }},
             {"midiPorts",
              [&](const Place& value) {
                  value.ReadObject(
                      {{"inputs", [&](const Place& names) { settings.midiPorts.inputs = ReadNames(names); }},
                       {"outputs", [&](const Place& names) { settings.midiPorts.outputs = ReadNames(names); }}});
              }},
             {"changeLog", [&](const Place& value) { settings.changeLog = ReadLogName(value); }}});
    return settings;
}

namespace {

bool IsThere(const std::string& path) {
    std::error_code ignored;
    return std::filesystem::exists(std::filesystem::symlink_status(path, ignored));
}

}  // namespace

Settings ReadSettings(const std::string& path) {
    return IsThere(path) ? ParseSettings(kit::ReadFile(path, MaxFileBytes), path) : Settings{};
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
