#pragma once

#include <optional>
#include <pugixml.hpp>

namespace stage::musicxml {

/// Tempos that are believed, in quarter notes a minute.
inline constexpr double MinTempo = 1;
inline constexpr double MaxTempo = 2000;

/// The tempo of a <metronome> in quarter notes a minute: of "c. 76-80" the first number. Two notes set equal ("quarter
/// = dotted quarter") are a change of the beat: what lasted as the left note now lasts as the right one, from `running`
/// on. No value where it says no tempo.
[[nodiscard]] std::optional<double> ReadMetronome(const pugi::xml_node& metronome, double running);

}  // namespace stage::musicxml
