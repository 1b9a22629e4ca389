#pragma once

#include <string>
#include <vector>

#include "tavo_midi/song_builder.h"

namespace tavo_midi {

/// The member that says what a show is made of.
inline constexpr const char* ShowJsonName = "show.json";

/// One song as `show.json` describes it.
struct ShowJsonSong {
    SongOptions options;
    std::string smfName;
};

struct ShowJson {
    std::string title;
    std::vector<ShowJsonSong> songs;
    /// A sentence for each key that is not known, when it was read.
    std::vector<std::string> warnings;
};

/// The text, with a stable order of keys and a final line end.
[[nodiscard]] std::string WriteShowJson(const ShowJson& show);

/// Reads it; `place` begins every sentence. Unknown keys give a warning and are ignored, but not those of an effect.
/// Throws std::runtime_error if the text is not JSON, or something is missing, there twice, of the wrong type, out of
/// range or out of order.
[[nodiscard]] ShowJson ReadShowJson(const std::string& text, const std::string& place);

}  // namespace tavo_midi
