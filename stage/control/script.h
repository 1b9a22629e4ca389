#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "stage/control/command.h"
#include "tavo_midi/show_data.h"

namespace stage {

/// One press of the operator and when it is made.
struct ScriptLine {
    std::size_t lineNumber = 0;
    std::string text;  ///< as written, blanks trimmed, without a comment
    /// The song that must be playing, for a line that waits for a place.
    std::string song;
    /// When playback arrives here, this many times after the line before; empty: `seconds` after the line before.
    std::optional<std::uint32_t> tick;
    unsigned int pass = 1;
    double seconds = 0;
    /// At this frame of the session, whatever plays then.
    std::optional<std::int64_t> frame;

    /// Its source is the script; id and moment are given when it is made.
    Command command;
};

/// Reads the script of an operator; docs/render.md teaches it. Places are looked up in the songs, the first lines in
/// `firstSong`. `name` stands for the file in the sentence of the std::runtime_error that refuses a bad line and gives
/// its number. A take is a script as well; its first line, which IsTake knows, is passed over.
[[nodiscard]] std::vector<ScriptLine> ParseShowScript(const std::string& text, const std::string& name,
                                                      const tavo_midi::ShowData& showData,
                                                      const std::string& firstSong);

}  // namespace stage
