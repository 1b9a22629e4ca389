#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "stage/show/settings.h"
#include "tavo_midi/show_data.h"

namespace stage {

/// The output groups of a show as the engine mixes them. A plain value.
struct GroupPlan {
    /// The settings', in their order; mixer strip 0 is what is in no group, strip i + 1 the group i.
    std::vector<Settings::Group> groups;
    Settings::Reverb reverb;
    /// By song, the strip of each of the show's channels. The show outlives the plan.
    std::map<const tavo_midi::SongData*, std::vector<std::uint8_t>> stripsOfSongs;

    [[nodiscard]] std::size_t CountStrips() const { return groups.size() + 1; }
};

/// The synthesizer has as many outputs at most, one for each channel.
inline constexpr std::size_t MaxGroupedChannels = 128;

/// No groups where the settings have none, or the show has more than MaxGroupedChannels channels.
[[nodiscard]] GroupPlan MakeGroupPlan(const Settings& settings, const tavo_midi::ShowData& show);

/// Whether `name` is what `pattern` describes, as Settings::Group::parts says; letters of ASCII are alike in upper and
/// lower case.
[[nodiscard]] bool MatchesPart(std::string_view pattern, std::string_view name);

}  // namespace stage
