#pragma once

#include <string>

#include "tavo_midi/smf_reader.h"

namespace stage {

/// A number written as plain text, for demo shows, tests and small vamps. docs/text-song.md teaches the notation.
struct TextSong {
    /// "3", "12a".
    std::string number;
    std::string title;
    /// Format 1: a conductor's track with tempos, meters, keys and markers, then one track a part.
    tavo_midi::Smf smf;
};

/// Reads the text; `name` stands for its file in the sentence of the std::runtime_error that refuses a bad one and
/// names the line: an unknown word, a bar that is too long or too short, parts of different lengths.
[[nodiscard]] TextSong ParseTextSong(const std::string& text, const std::string& name);

}  // namespace stage
