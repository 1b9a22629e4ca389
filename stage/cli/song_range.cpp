#include "stage/cli/song_range.h"

#include <fmt/format.h>

#include <stdexcept>

#include "kit/numeric_string_compare.h"

std::pair<std::string, std::string> ParseSongRange(const std::string& text, const tavo_midi::ShowData& show) {
    const std::size_t dots = text.find("..");
    const std::string first = text.substr(0, dots);
    const std::string last = dots == std::string::npos ? first : text.substr(dots + 2);
    for (const std::string& number : {first, last})
        static_cast<void>(show.GetSongData(number));
    if (kit::NumericStringCompare()(last, first))
        throw std::invalid_argument(fmt::format("the songs {} end before they begin", text));
    return {first, last};
}
