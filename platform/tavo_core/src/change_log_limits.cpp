#include "change_log_limits.h"

#include <algorithm>
#include <cmath>
#include <variant>

#include "change_log_format.h"
#include "kit/utf8.h"

namespace tavo_core {

namespace {

bool IsWithin(const std::string& text) {
    return text.size() <= logdata::LongestText && kit::IsUtf8(text);
}

bool IsWithin(const CL::Vamp& edit) {
    return edit.int_value() >= 0 && edit.int_value() <= logdata::HighestCount;
}
bool IsWithin(const CL::Repeat& edit) {
    return edit.int_value() >= 0 && edit.int_value() <= logdata::HighestCount;
}
bool IsWithin(const CL::Cut&) {
    return true;
}
bool IsWithin(const CL::Fermata&) {
    return true;
}
bool IsWithin(const CL::Transposition& edit) {
    return edit.int_value() >= CL::Transposition::LowestSemitones &&
           edit.int_value() <= CL::Transposition::HighestSemitones;
}
bool IsWithin(const CL::TempoScale& edit) {
    return edit.float_value() > 0 && edit.float_value() <= logdata::HighestTempoScale;
}
bool IsWithin(const CL::Click& edit) {
    return edit.int_value() >= 1 && edit.int_value() <= logdata::LongestClick;
}
bool IsWithin(const CL::Caesura& edit) {
    return IsWithin(edit.value());
}
bool IsWithin(const CL::Sfx& edit) {
    return IsWithin(edit.sound()) && edit.gain_db() >= logdata::LowestGainDb &&
           edit.gain_db() <= logdata::HighestGainDb;
}
bool IsWithin(const CL::Osc& edit) {
    const auto isArgumentWithin = [](const CL::OscArgument& argument) {
        if (const auto* number = std::get_if<float>(&argument)) return std::isfinite(*number);
        const auto* text = std::get_if<std::string>(&argument);
        return text == nullptr || IsWithin(*text);
    };
    return IsWithin(edit.target()) && IsWithin(edit.address()) && edit.address().starts_with('/') &&
           edit.arguments().size() <= logdata::MostArguments &&
           std::all_of(edit.arguments().begin(), edit.arguments().end(), isArgumentWithin);
}
bool IsWithin(const CL::Marker& edit) {
    return IsWithin(edit.value());
}

bool IsWithin(const CL::SongLog& songLog) {
    bool isWithin = songLog.GetAttacca() <= CL::AttaccaSkip;
    songLog.ForEachSequence([&isWithin](const auto& sequence) {
        isWithin =
            isWithin && std::all_of(sequence.begin(), sequence.end(), [](const auto& edit) { return IsWithin(edit); });
    });
    return isWithin;
}

}  // namespace

bool LiesWithinFormat(const CL::ChangeLog& log) {
    const auto& songLogs = log.GetSongLogs();
    return IsWithin(log.GetShowName()) && songLogs.size() <= logdata::MostSongs &&
           std::all_of(songLogs.begin(), songLogs.end(), [](const auto& song) {
               return !song.first.empty() && IsWithin(song.first) && IsWithin(song.second);
           });
}

}  // namespace tavo_core
