#pragma once

#include <array>
#include <cstddef>
#include <string_view>

#include "tavo_core/event_codes.h"

/// The words and limits of the `.logdata` format, in the order in which an edit's fields are written.
namespace tavo_core::logdata {

inline constexpr std::string_view formatName = "logdata";
inline constexpr unsigned int formatVersion = 1;

inline constexpr std::size_t longestText = 4096;  // bytes
inline constexpr std::size_t mostSongs = 10000;
inline constexpr std::size_t mostArguments = 256;
inline constexpr int highestCount = 9999;
inline constexpr int longestClick = 128;  // thirty-second notes
inline constexpr float highestTempoScale = 100.0F;
inline constexpr float lowestGainDb = -60.0F;
inline constexpr float highestGainDb = 12.0F;

/// The fields of edits besides their kind.
enum class Field : unsigned char {
    Start,
    End,
    Tick,
    MaxCount,
    Count,
    Semitones,
    Scale,
    ThirtySecondsPerClick,
    Text,
    VersionTarget,
    Sound,
    GainDb,
    Target,
    Address,
    Arguments,
};
inline constexpr std::size_t fieldCount = 15;
inline constexpr std::array<std::string_view, fieldCount> fieldNames{
    "start", "end",           "tick",  "maxCount", "count",  "semitones", "scale",    "thirtySecondsPerClick",
    "text",  "versionTarget", "sound", "gainDb",   "target", "address",   "arguments"};

[[nodiscard]] constexpr std::string_view NameOf(Field field) {
    return fieldNames[static_cast<std::size_t>(field)];
}

}  // namespace tavo_core::logdata
