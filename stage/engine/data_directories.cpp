#include "stage/engine/data_directories.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string_view>

namespace stage {

std::string FindOwnShareDirectory() {
    std::error_code error;
    const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", error);
    return error ? std::string() : (program.parent_path().parent_path() / "share").string();
}

std::vector<std::string> ListDataDirectories() {
    std::vector<std::string> directories;
    const auto add = [&directories](std::string_view directory) {
        if (!directory.empty() && std::find(directories.begin(), directories.end(), directory) == directories.end())
            directories.emplace_back(directory);
    };
    const char* const fromEnvironment = std::getenv("XDG_DATA_DIRS");
    std::string_view rest = fromEnvironment != nullptr ? fromEnvironment : "";
    while (!rest.empty()) {
        const std::size_t end = std::min(rest.find(':'), rest.size());
        add(rest.substr(0, end));
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    add(FindOwnShareDirectory());
    add("/usr/local/share");
    add("/usr/share");
    return directories;
}

}  // namespace stage
