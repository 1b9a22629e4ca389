#pragma once

#include <optional>
#include <string_view>

#include "stage/import/musicxml/written_score.h"

namespace stage::musicxml {

/// What words such as "Andante con moto" say of the tempo; docs/arranger.md has the table.
struct WordTempo {
    enum class Kind {
        Absolute,  ///< value: beats a minute, as they are counted in 3/4 and 4/4
        Relative,  ///< value: how many times as fast as before
        First,     ///< the tempo of the beginning again
    };
    Kind kind = Kind::Absolute;
    double value = 0;
};

/// The tempo that words of Italian, German, French or English name. At the head of a song the words may stand anywhere
/// in the text; elsewhere a tempo begins with a capital, and nothing but degrees ("Un poco più") stands before it. No
/// value for words of another kind, and for a gradual change.
[[nodiscard]] std::optional<WordTempo> ReadTempoWords(std::string_view text, bool isHead);

/// Quarter notes a minute of so many beats a minute in a meter; docs/arranger.md says what the beat is.
[[nodiscard]] double GetQuartersPerMinute(double beatsPerMinute, const WrittenMeter& meter);

}  // namespace stage::musicxml
