#include "kit/path.h"

#include <algorithm>
#include <filesystem>
#include <stdexcept>
#include <system_error>

namespace kit {

namespace path {

namespace {

constexpr char Separator = '/';

void Append(std::string& joined, std::string_view piece) {
    if (piece.empty()) return;
    if (joined.empty()) {
        joined = piece;
        return;
    }
    while (joined.size() > 1 && joined.back() == Separator)
        joined.pop_back();
    if (joined.back() != Separator) joined += Separator;
    joined += piece.substr(std::min(piece.find_first_not_of(Separator), piece.size()));
}

template <class Pieces>
std::string JoinAll(const Pieces& pieces) {
    std::string joined;
    for (const std::string_view piece : pieces)
        Append(joined, piece);
    return joined;
}

/// Where the extension of a base name begins; its end if there is none.
std::size_t FindExtension(std::string_view base) {
    const std::size_t dot = base.rfind('.');
    const bool hasNone = dot == std::string_view::npos || dot == 0 || base == "..";
    return hasNone ? base.size() : dot;
}

}  // namespace

std::string Join(std::string_view first, std::string_view second) {
    return JoinAll(std::initializer_list<std::string_view>{first, second});
}

std::string Join(std::initializer_list<std::string> pieces) {
    return JoinAll(pieces);
}

std::string Join(const std::vector<std::string>& pieces) {
    return JoinAll(pieces);
}

std::string extension(std::string_view name) {
    const std::string base = basename(name);
    return base.substr(FindExtension(base));
}

std::string basename(std::string_view path) {
    // npos + 1 is 0: without a separator the whole path is the name.
    return std::string(path.substr(path.rfind(Separator) + 1));
}

std::string basename_no_ext(std::string_view path) {
    std::string base = basename(path);
    base.resize(FindExtension(base));
    return base;
}

}  // namespace path

std::vector<std::string> listdir(const std::string& directory) {
    std::vector<std::string> names;
    std::error_code error;
    do {
        names.clear();
        for (std::filesystem::directory_iterator entry(directory, error), end; !error && entry != end;
             entry.increment(error))
            names.push_back(entry->path().filename().string());
    } while (error == std::errc::interrupted);
    if (error) throw std::runtime_error("the directory \"" + directory + "\" cannot be read: " + error.message());
    std::sort(names.begin(), names.end());
    return names;
}

}  // namespace kit
