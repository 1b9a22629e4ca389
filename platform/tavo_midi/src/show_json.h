#pragma once

#include <string>
#include <vector>

#include "tavo_midi/song_builder.h"

namespace tavo_midi {

/// The member that tells what a show is made of.
inline constexpr const char* ShowJsonName = "show.json";

/// One song as `show.json` tells it.
struct ShowJsonSong {
    SongOptions options;
    std::string smfName;
};

struct ShowJson {
    std::string title;
    std::vector<ShowJsonSong> songs;
};

/// The text, with a stable order of keys and a final line end.
[[nodiscard]] std::string WriteShowJson(const ShowJson& show);

/// Reads it; `place` begins every sentence. Unknown keys are passed over. Throws std::runtime_error if the text is not
/// JSON, or something is missing, of the wrong type, out of range or out of order.
[[nodiscard]] ShowJson ReadShowJson(const std::string& text, const std::string& place);

}  // namespace tavo_midi
