#pragma once

#include <array>
#include <cstddef>
#include <string_view>

#include "tavo_core/event_codes.h"

/// The words and limits of the `.logdata` format, in the order in which an edit's fields are written.
namespace tavo_core::logdata {

inline constexpr std::string_view FormatName = "logdata";
inline constexpr unsigned int FormatVersion = 1;

inline constexpr std::size_t LongestText = 4096;  // bytes
inline constexpr std::size_t MostSongs = 10000;
inline constexpr std::size_t MostArguments = 256;
inline constexpr int HighestCount = 9999;
inline constexpr int LongestClick = 128;  // thirty-second notes
inline constexpr float HighestTempoScale = 100.0F;
inline constexpr float LowestGainDb = -60.0F;
inline constexpr float HighestGainDb = 12.0F;

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
inline constexpr std::size_t FieldCount = 15;
inline constexpr std::array<std::string_view, FieldCount> FieldNames{
    "start", "end",           "tick",  "maxCount", "count",  "semitones", "scale",    "thirtySecondsPerClick",
    "text",  "versionTarget", "sound", "gainDb",   "target", "address",   "arguments"};

[[nodiscard]] constexpr std::string_view NameOf(Field field) {
    return FieldNames[static_cast<std::size_t>(field)];
}

}  // namespace tavo_core::logdata
