#include "stage/words/edit_values.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <set>
#include <sstream>
#include <stdexcept>

#include "kit/words.h"

namespace stage {

namespace {

/// Runs `find` and puts the song before what it complains of.
template <class Find>
unsigned int FindTick(EditTarget& target, const std::string& song, Find find) {
    const TL::BarPositions& positions = target.GetPositions(song);
    try {
        return find(positions);
    } catch (const std::logic_error& problem) {
        throw std::invalid_argument(fmt::format("song {}: {}", song, problem.what()));
    }
}

}  // namespace

unsigned int FindStart(EditTarget& target, const std::string& song, const std::string& place) {
    return FindTick(target, song, [&](const auto& positions) { return positions.FindStartTick(place); });
}

unsigned int FindEnd(EditTarget& target, const std::string& song, const std::string& place) {
    return FindTick(target, song, [&](const auto& positions) { return positions.FindEndTick(place); });
}

std::vector<std::string> ParseSongList(const std::string& text, const tavo_midi::ShowData& show) {
    const auto& songs = show.GetSongs();
    const auto find = [&](const std::string& number) {
        static_cast<void>(show.GetSongData(number));
        return std::find_if(songs.begin(), songs.end(), [&](const auto& s) { return s.GetSongNumber() == number; });
    };
    std::set<std::ptrdiff_t> chosen;
    std::istringstream parts(text);
    for (std::string part; std::getline(parts, part, ',');) {
        const std::size_t dots = part.find("..");
        const auto first = find(part.substr(0, dots));
        const auto last = dots == std::string::npos ? first : find(part.substr(dots + 2));
        if (last < first) throw std::invalid_argument(fmt::format("the songs {} end before they begin", part));
        for (auto song = first; song <= last; ++song)
            chosen.insert(song - songs.begin());
    }
    if (chosen.empty()) throw std::out_of_range(fmt::format("the show has no song {}", kit::Quote(text)));
    std::vector<std::string> numbers;
    for (const std::ptrdiff_t index : chosen)
        numbers.push_back(songs[static_cast<std::size_t>(index)].GetSongNumber());
    return numbers;
}

std::vector<std::string> FindSongs(EditTarget& target, const std::string& words) {
    if (!words.empty()) return ParseSongList(words, target.GetMusic());
    if (target.GetUnnamedSong().empty()) throw std::invalid_argument("no song is loaded: name one with --song");
    return {target.GetUnnamedSong()};
}

int ReadNoteLength(const std::string& text) {
    const auto refuse = [&]() {
        throw std::invalid_argument(
            fmt::format("{} is not the length of a note: write 1/4, 1/8 or 3/8", kit::Quote(text)));
    };
    const std::size_t slash = text.find('/');
    if (slash == std::string::npos) refuse();
    const auto read = [&](const char* first, const char* last) {
        int number = 0;
        const auto [end, error] = std::from_chars(first, last, number);
        if (error != std::errc() || end != last || number < 1 || number > 128) refuse();
        return number;
    };
    const int numerator = read(text.data(), text.data() + slash);
    const int denominator = read(text.data() + slash + 1, text.data() + text.size());
    if (numerator * 32 % denominator != 0) refuse();
    return numerator * 32 / denominator;
}

CL::OscArgument ReadOscArgument(const std::string& text) {
    const std::string value = text.size() > 2 ? text.substr(2) : "";
    const char* const end = value.data() + value.size();
    if (text.starts_with("s:")) return value;
    if (text.starts_with("i:")) {
        int number = 0;
        const auto [stop, error] = std::from_chars(value.data(), end, number);
        if (error == std::errc() && stop == end) return number;
    }
    if (text.starts_with("f:")) {
        float number = 0;
        const auto [stop, error] = std::from_chars(value.data(), end, number);
        if (error == std::errc() && stop == end) return number;
    }
    throw std::invalid_argument(fmt::format("{} is not an OSC argument: write i:1, f:0.5 or s:text", kit::Quote(text)));
}

}  // namespace stage
