#include "stage/cli/song_summary.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

#include "stage/cli/text_table.h"
#include "stage/show/song_length.h"
#include "tavo_core/as_string.h"
#include "tavo_core/bar_positions.h"

namespace {

/// The different entries in the order in which they come, "4/4 2/4"; after the third one how many more there are.
template <class Sequence>
std::string DescribeKinds(const Sequence& sequence, const char* separator) {
    constexpr std::size_t MostShown = 3;
    std::vector<std::string> kinds;
    for (const auto& entry : sequence) {
        std::string kind = as_string(entry);
        if (std::find(kinds.begin(), kinds.end(), kind) == kinds.end()) kinds.push_back(std::move(kind));
    }
    const std::size_t shown = std::min(kinds.size(), MostShown);
    std::string text =
        fmt::format("{}", fmt::join(kinds.begin(), kinds.begin() + static_cast<std::ptrdiff_t>(shown), separator));
    if (shown < kinds.size()) text += fmt::format(" +{}", kinds.size() - shown);
    return text;
}

/// "72", guessed "~72"; "114 +6" with six changes, "~72 +~2" where one of them is guessed.
std::string DescribeTempos(const tavo_midi::SongData& song) {
    const auto& tempos = song.GetTimeline().GetTempos();
    if (tempos.empty()) return "";
    const auto isGuessed = [&song](const TL::Tempo& tempo) { return song.IsGuessedTempo(tempo.abs_time()); };
    std::string text = fmt::format("{}{:.4g}", isGuessed(tempos[0]) ? "~" : "", tempos[0].quarters_per_minute());
    if (tempos.size() > 1)
        text += fmt::format(" +{}{}", std::any_of(std::next(tempos.begin()), tempos.end(), isGuessed) ? "~" : "",
                            tempos.size() - 1);
    return text;
}

}  // namespace

std::string MakeSongTable(const std::vector<std::reference_wrapper<const tavo_midi::SongData>>& songs) {
    using Align = TextTable::Align;
    TextTable table({{"no"},
                     {"title"},
                     {"bars", Align::Right},
                     {"beats", Align::Right},
                     {"tempos", Align::Right},
                     {"meters"},
                     {"keys"},
                     {"length", Align::Right}});
    std::size_t bars = 0;
    std::size_t beats = 0;
    double seconds = 0;
    for (const tavo_midi::SongData& song : songs) {
        const TL::Timeline& timeline = song.GetTimeline();
        const std::size_t barCount = TL::BarPositions(timeline).GetBars().size();
        const double length = stage::GetWrittenSeconds(song);
        table.AddRow({song.GetSongNumber(), song.GetTitle(), fmt::format("{}", barCount),
                      fmt::format("{}", timeline.GetBarsBeats().size()), DescribeTempos(song),
                      DescribeKinds(timeline.GetMeters(), " "), DescribeKinds(timeline.GetKeys(), ", "),
                      stage::DescribeLength(length)});
        bars += barCount;
        beats += timeline.GetBarsBeats().size();
        seconds += length;
    }
    if (songs.size() > 1)
        table.AddRow({"", fmt::format("{} songs", songs.size()), fmt::format("{}", bars), fmt::format("{}", beats), "",
                      "", "", stage::DescribeLength(seconds)});
    return table.AsText();
}
