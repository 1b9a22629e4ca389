#pragma once

#include <string>
#include <vector>

#include "stage/import/musicxml/written_score.h"
#include "stage/import/song_file_reader.h"

namespace stage::musicxml {

/// Gives the score the tempos that are set, and those that it has in words only where it begins without a number: the
/// tempo of the beginning, 120 quarter notes a minute if no word is known, and changes in bars without a number. A
/// pick-up has the number of the first full bar. Whatever was guessed before is guessed anew. Returns the settings
/// whose bars are not written ones.
[[nodiscard]] std::vector<TempoSetting> CompleteTempos(WrittenScore& score, const std::vector<TempoSetting>& settings);

/// What was guessed and from what; empty if nothing was.
[[nodiscard]] TempoAccount DescribeGuessedTempos(const WrittenScore& score);

}  // namespace stage::musicxml
