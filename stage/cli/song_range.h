#pragma once

#include <string>
#include <utility>

#include "tavo_midi/show_data.h"

/// The first and the last song of "3" or "3..7". Both must be songs of the show, in this order; else an exception of
/// the standard library with one sentence.
[[nodiscard]] std::pair<std::string, std::string> ParseSongRange(const std::string& text,
                                                                 const tavo_midi::ShowData& show);
