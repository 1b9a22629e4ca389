#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tavo_midi/song_data.h"

/// The table of an import and of an overview: a line for each song with its number, title, bars, beats, first tempo
/// ("~72" if it was guessed) and number of later ones, meters, keys and length, and a line with the sums.
[[nodiscard]] std::string MakeSongTable(const std::vector<std::reference_wrapper<const tavo_midi::SongData>>& songs);
