#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "tavo_midi/song_data.h"

namespace stage {

/// A SoundFont 2 file that is installed.
struct InstalledSoundFont {
    std::string path;
    std::string title;  ///< as the file gives it; may be empty
    std::uintmax_t bytes = 0;
    std::size_t programs = 0;  ///< instruments and drum kits in all banks
    bool isDefault = false;    ///< what a show without a choice plays with
};

inline constexpr int DrumKitBank = 128;

/// What of a SoundFont a song can ask for: banks, DrumKitBank for drum kits, and programs from 0.
struct SoundFontContents {
    std::string title;
    std::set<std::pair<int, int>> programs;

    /// Whether the program sounds as itself: the synthesizer takes the same one of the first bank where the bank does
    /// not have it.
    [[nodiscard]] bool Has(const std::pair<int, int>& program) const {
        return programs.contains(program) || (program.first != DrumKitBank && programs.contains({0, program.second}));
    }
};

/// Bank and program, with the channels, from 1.
using ProgramsPlayed = std::map<std::pair<int, int>, std::set<std::size_t>>;

/// Reads the names of its programs only. Throws std::runtime_error with one sentence for a file that is not a
/// SoundFont.
[[nodiscard]] SoundFontContents ReadSoundFontContents(const std::string& path);

/// Those in the directories for sounds of the system (ListDataDirectories) and of the user
/// (XDG_DATA_HOME, ~/.local/share), `sounds/sf2`, `sounds/sf3` and `soundfonts`, each file once, by path. What cannot
/// be read is left out.
[[nodiscard]] std::vector<InstalledSoundFont> ListSoundFonts();

/// Those that the song's notes sound with.
[[nodiscard]] ProgramsPlayed FindProgramsPlayed(const tavo_midi::SongData& song);

}  // namespace stage
