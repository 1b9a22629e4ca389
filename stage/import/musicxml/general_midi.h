#pragma once

#include <optional>
#include <string_view>

namespace stage::musicxml {

/// The General MIDI program, 0 to 127, of an instrument or voice as it is named in English, German, French or Italian.
/// The longest name found at the beginning of a word decides: "2. Bassklarinette in B" is a clarinet. No value for a
/// name that says nothing.
[[nodiscard]] std::optional<int> FindProgram(std::string_view name);

/// The same of one of MusicXML's standard sounds, "wind.reed.oboe".
[[nodiscard]] std::optional<int> FindSoundProgram(std::string_view sound);

/// Whether the name is one of drums or cymbals, which have no program but keys.
[[nodiscard]] bool IsPercussionName(std::string_view name);

/// The key of the General MIDI drum map, 0 to 127, by the drum's name in those languages.
[[nodiscard]] std::optional<int> FindDrumKey(std::string_view name);

}  // namespace stage::musicxml
