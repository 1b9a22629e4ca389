#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "stage/engine/group_plan.h"
#include "stage/engine/sound_font_list.h"
#include "stage/engine/synth.h"
#include "tavo_midi/song_data.h"

namespace stage {

/// The SoundFonts that a show's instruments are played with. A plain value.
struct InstrumentFonts {
    /// By their numbers in the synthesizer; the first is the show's.
    std::vector<SoundFontContents> contents;
    /// By group of the plan, the number of its SoundFont.
    std::vector<std::uint8_t> ofGroups;
    /// Of groups whose own cannot be used and that play with the show's, a sentence without a full stop each.
    std::vector<std::string> problems;
};

/// Loads the groups' own into `synth`, which plays with `showFont`; each file once. Relative paths are those of the
/// show directory. May take seconds. Throws std::runtime_error with one sentence where the show's cannot be read.
[[nodiscard]] InstrumentFonts LoadInstrumentFonts(Synth& synth, const GroupPlan& plan, const std::string& showPath,
                                                  const std::string& showFont);

/// What the song plays and its SoundFonts lack, so that something else sounds in its place: a sentence without a full
/// stop for each group, and one for the show's SoundFont. Empty where nothing is missing.
[[nodiscard]] std::vector<std::string> DescribeMissingPrograms(const tavo_midi::SongData& song,
                                                               const InstrumentFonts& fonts, const GroupPlan& plan);

}  // namespace stage
