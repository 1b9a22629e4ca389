#include "time_code_settings.h"

#include <fmt/format.h>

#include <charconv>
#include <filesystem>
#include <stdexcept>

#include "json_reader.h"
#include "kit/file.h"
#include "kit/path.h"

namespace tavo_midi {

namespace {

using JumpRule = MidiTimeCodeController::JumpRule;

constexpr std::uintmax_t kMostBytes = 1U << 20U;
constexpr const char* kLocate = "locate";
constexpr const char* kRunOn = "runOn";

/// "7" of song "7b"; 0 for a song without a number.
int ReadLeadingNumber(const std::string& songNumber) {
    int number = 0;
    const auto read = std::from_chars(songNumber.data(), songNumber.data() + songNumber.size(), number);
    return read.ec == std::errc() && number > 0 ? number : 0;
}

JumpRule ReadJumpRule(const JsonReader& reader) {
    const std::string text = reader.Text("onJump");
    if (text == kLocate) return JumpRule::Locate;
    if (text == kRunOn) return JumpRule::RunOn;
    reader.Fail(fmt::format("\"onJump\" is \"{}\", neither \"{}\" nor \"{}\"", text, kLocate, kRunOn));
}

TimeCodeSettings ReadSettings(const JsonReader& reader) {
    TimeCodeSettings settings;
    if (reader.Has("active")) settings.isActive = reader.Flag("active");
    if (reader.Has("frameRate")) settings.frameRate = ConvertStringToFrameRate(reader.Text("frameRate"));
    if (reader.Has("output")) settings.outputName = reader.Text("output");
    if (reader.Has("onJump")) settings.jumpRule = ReadJumpRule(reader);
    if (reader.Has("hoursAreSongNumbers")) settings.hoursAreSongNumbers = reader.Flag("hoursAreSongNumbers");
    reader.ForEach("songOffsets", [&](const JsonReader& entry) {
        settings.songOffsets[entry.Text("song")] = ConvertStringToTimeCode(entry.Text("offset"), settings.frameRate);
    });
    return settings;
}

/// A sentence as it stands inside of another one.
std::string WithoutFullStop(std::string sentence) {
    if (sentence.ends_with('.')) sentence.pop_back();
    return sentence;
}

}  // namespace

TimeCodeSettings ReadTimeCodeSettings(const std::string& path) {
    if (!std::filesystem::exists(path)) return {};
    const auto fail = [&](const std::exception& problem) {
        return std::runtime_error(fmt::format("The settings of MIDI time code cannot be read from {}: {}.",
                                              kit::path::basename(path), WithoutFullStop(problem.what())));
    };
    try {
        const std::string name = kit::path::basename(path);
        const Json json = ParseJson(kit::ReadFile(path, kMostBytes), name);
        return ReadSettings(JsonReader(json, name));
    } catch (const std::runtime_error& problem) {
        throw fail(problem);
    } catch (const std::out_of_range& problem) {
        throw fail(problem);
    }
}

void WriteTimeCodeSettings(const std::string& path, const TimeCodeSettings& settings) {
    Json json;
    json["active"] = settings.isActive;
    json["frameRate"] = ConvertFrameRateToString(settings.frameRate);
    json["output"] = settings.outputName;
    json["onJump"] = settings.jumpRule == JumpRule::Locate ? kLocate : kRunOn;
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
