#include "stage/engine/sound_font.h"

#include <filesystem>
#include <stdexcept>
#include <vector>

#include "stage/engine/data_directories.h"

namespace stage {

std::string FindDefaultSoundFont() {
    const std::vector<std::string> directories = ListDataDirectories();
    // Sound differs from font to font, so the one that the renders of a show were made with comes first.
    for (const char* name : {"TimGM6mb.sf2", "default-GM.sf2", "FluidR3_GM.sf2"}) {
        for (const std::string& directory : directories) {
            for (const char* folder : {"sounds/sf2", "soundfonts"}) {
                const std::filesystem::path path = std::filesystem::path(directory) / folder / name;
                std::error_code ignored;
                if (std::filesystem::is_regular_file(path, ignored)) return path.string();
            }
        }
    }
    throw std::runtime_error(
        "there is no SoundFont in /usr/share/sounds/sf2: install one (timgm6mb-soundfont) or name one with "
        "--soundfont");
}

}  // namespace stage
