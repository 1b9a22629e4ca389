#include "stage/engine/sound_font.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string_view>
#include <vector>

namespace stage {

namespace {

std::vector<std::string> ListDataDirectories() {
    const char* fromEnvironment = std::getenv("XDG_DATA_DIRS");
    std::string_view rest = fromEnvironment != nullptr ? fromEnvironment : "";
    std::vector<std::string> directories;
    while (!rest.empty()) {
        const std::size_t end = std::min(rest.find(':'), rest.size());
        if (end > 0) directories.emplace_back(rest.substr(0, end));
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    for (const char* standard : {"/usr/local/share", "/usr/share"})
        directories.emplace_back(standard);
    return directories;
}

}  // namespace

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
