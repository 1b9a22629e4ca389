#include "time_code_settings.h"

#include <fmt/format.h>

#include <array>
#include <charconv>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string_view>
#include <utility>
#include <vector>

#include "kit/file.h"
#include "kit/json_object.h"
#include "kit/path.h"

namespace tavo_midi {

namespace {

using Json = nlohmann::ordered_json;
using JumpRule = MidiTimeCodeController::JumpRule;

constexpr std::uintmax_t MostTimeCodeBytes = 1U << 20U;
constexpr const char* Locate = "locate";
constexpr const char* RunOn = "runOn";
constexpr std::array<std::pair<std::string_view, JumpRule>, 2> JumpRules{
    {{Locate, JumpRule::Locate}, {RunOn, JumpRule::RunOn}}};

/// "7" of song "7b"; 0 for a song without a number.
int ReadLeadingNumber(const std::string& songNumber) {
    int number = 0;
    const auto read = std::from_chars(songNumber.data(), songNumber.data() + songNumber.size(), number);
    return read.ec == std::errc() && number > 0 ? number : 0;
}

FrameRate ReadFrameRate(const kit::JsonValue& value) {
    std::vector<std::pair<std::string, FrameRate>> words;
    for (const std::string& word : frameRateStrings)
        words.emplace_back(word, ConvertStringToFrameRate(word));
    return value.AsOneOf(words);
}

TimeCode ReadOffset(const kit::JsonValue& value, FrameRate frameRate) {
    const std::string text = value.AsText();
    try {
        return ConvertStringToTimeCode(text, frameRate);
    } catch (const std::out_of_range&) {
        value.FailAs(fmt::format("must be a time code of {} frames a second such as 01:00:00:00",
                                 ConvertFrameRateToString(frameRate)));
    }
}

TimeCodeSettings ReadSettings(kit::JsonObject reader) {
    TimeCodeSettings settings;
    reader.Read("active", [&](const kit::JsonValue& value) { settings.isActive = value.AsFlag(); });
    reader.Read("frameRate", [&](const kit::JsonValue& value) { settings.frameRate = ReadFrameRate(value); });
    reader.Read("output", [&](const kit::JsonValue& value) { settings.outputName = value.AsText(); });
    reader.Read("onJump", [&](const kit::JsonValue& value) { settings.jumpRule = value.AsOneOf(JumpRules); });
    reader.Read("hoursAreSongNumbers",
                [&](const kit::JsonValue& value) { settings.hoursAreSongNumbers = value.AsFlag(); });
    reader.Read("songOffsets", [&](const kit::JsonValue& list) {
        for (const kit::JsonValue& value : list.AsList()) {
            kit::JsonObject entry(value);
            settings.songOffsets[entry.Get("song").AsText()] = ReadOffset(entry.Get("offset"), settings.frameRate);
            entry.WarnOfOtherKeys(settings.warnings);
        }
    });
    reader.WarnOfOtherKeys(settings.warnings);
    return settings;
}

}  // namespace

TimeCodeSettings ReadTimeCodeSettings(const std::string& path) {
    if (!std::filesystem::exists(path)) return {};
    const kit::JsonText json(kit::ReadFile(path, MostTimeCodeBytes), kit::path::basename(path));
    return ReadSettings(json.Object());
}

void WriteTimeCodeSettings(const std::string& path, const TimeCodeSettings& settings) {
    Json json;
    json["active"] = settings.isActive;
    json["frameRate"] = ConvertFrameRateToString(settings.frameRate);
    json["output"] = settings.outputName;
    json["onJump"] = settings.jumpRule == JumpRule::Locate ? Locate : RunOn;
    json["hoursAreSongNumbers"] = settings.hoursAreSongNumbers;
    json["songOffsets"] = Json::array();
    for (const auto& [song, offset] : settings.songOffsets)
        json["songOffsets"].push_back(
            {{"song", song}, {"offset", ConvertTimeCodeToString(offset, settings.frameRate)}});
    kit::ReplaceFileDurably(path, json.dump(1, ' ', false, Json::error_handler_t::replace) + "\n");
}

std::int64_t GetSongStartFrame(const TimeCodeSettings& settings, const std::string& songNumber) {
    std::int64_t frame = 0;
    if (settings.hoursAreSongNumbers)
        frame += ConvertTimeCodeToFrames({ReadLeadingNumber(songNumber) % 24, 0, 0, 0}, settings.frameRate);
    const auto found = settings.songOffsets.find(songNumber);
    if (found != settings.songOffsets.end()) frame += ConvertTimeCodeToFrames(found->second, settings.frameRate);
    return frame;
}

}  // namespace tavo_midi
