#pragma once

#include <string>
#include <vector>

#include "stage/words/edit_target.h"
#include "tavo_core/change_log_events.h"

/// The words of edits as values. All of them throw an exception of the standard library with one sentence for what they
/// cannot read.
namespace stage {

/// The tick of a place; of one that names a bar, FindStart its first, FindEnd the first after it.
[[nodiscard]] unsigned int FindStart(EditTarget& target, const std::string& song, const std::string& place);
[[nodiscard]] unsigned int FindEnd(EditTarget& target, const std::string& song, const std::string& place);

/// The songs that "3,5..7" names, in the order of the show.
[[nodiscard]] std::vector<std::string> ParseSongList(const std::string& text, const tavo_midi::ShowData& show);
/// The same; for no words the song that need not be named.
[[nodiscard]] std::vector<std::string> FindSongs(EditTarget& target, const std::string& words);

/// Thirty-second notes in a length such as "1/8" or "3/16".
[[nodiscard]] int ReadNoteLength(const std::string& text);
/// "i:1", "f:0.5", "s:text".
[[nodiscard]] CL::OscArgument ReadOscArgument(const std::string& text);

}  // namespace stage
