#include "stage/engine/group_plan.h"

#include <algorithm>
#include <utility>

#include "stage/engine/show_parts.h"

namespace stage {

namespace {

char AsLower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool HasChannel(const Settings::Group& group, const tavo_midi::SongData& song, std::size_t channel) {
    if (std::ranges::find(group.channels, static_cast<int>(channel) + 1) != group.channels.end()) return true;
    return std::ranges::any_of(song.GetParts(), [&](const tavo_midi::SongPart& part) {
        return std::ranges::find(part.channels, channel) != part.channels.end() &&
               std::ranges::any_of(group.parts,
                                   [&part](const std::string& pattern) { return MatchesPart(pattern, part.name); });
    });
}

}  // namespace

bool MatchesPart(std::string_view pattern, std::string_view name) {
    // Where the last '*' stood and how much of the name it has taken: there is never a reason to look further back.
    std::size_t p = 0;
    std::size_t n = 0;
    std::size_t star = std::string_view::npos;
    std::size_t taken = 0;
    while (n < name.size()) {
        if (p < pattern.size() && pattern[p] == '*') {
            star = p++;
            taken = n;
        } else if (p < pattern.size() && (pattern[p] == '?' || AsLower(pattern[p]) == AsLower(name[n]))) {
            ++p;
            ++n;
        } else if (star != std::string_view::npos) {
            p = star + 1;
            n = ++taken;
        } else {
            return false;
        }
    }
    return pattern.find_first_not_of('*', p) == std::string_view::npos;
}

GroupPlan MakeGroupPlan(const Settings& settings, const tavo_midi::ShowData& show) {
    GroupPlan plan;
    const std::size_t channels = CountChannels(show);
    if (channels > MaxGroupedChannels) return plan;
    plan.groups = settings.groups;
    plan.reverb = settings.reverb;
    if (plan.groups.empty()) return plan;
    for (const tavo_midi::SongData& song : show.GetSongs()) {
        std::vector<std::uint8_t>& strips = plan.stripsOfSongs[&song];
        strips.resize(MaxGroupedChannels);
        for (std::size_t channel = 0; channel < channels; ++channel) {
            const auto group = std::ranges::find_if(
                plan.groups, [&](const Settings::Group& each) { return HasChannel(each, song, channel); });
            if (group != plan.groups.end())
                strips[channel] = static_cast<std::uint8_t>(group - plan.groups.begin() + 1);
        }
    }
    return plan;
}

}  // namespace stage
