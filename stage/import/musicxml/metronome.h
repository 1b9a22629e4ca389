#pragma once

#include <optional>
#include <pugixml.hpp>
#include <string_view>

namespace stage::musicxml {

/// Tempos that are believed, in quarter notes a minute.
inline constexpr double MinTempo = 1;
inline constexpr double MaxTempo = 2000;

/// Quarter notes of a note that MusicXML names, "quarter", "16th", with its dots; 0 for another name.
[[nodiscard]] double GetNoteQuarters(std::string_view name, int dots);

/// The tempo of a <metronome> in quarter notes a minute: of "c. 76-80" the first number. Two notes set equal ("quarter
/// = dotted quarter") are a change of the beat: what lasted as the left note now lasts as the right one, from `running`
/// on. No value where it says no tempo.
[[nodiscard]] std::optional<double> ReadMetronome(const pugi::xml_node& metronome, double running);

}  // namespace stage::musicxml
