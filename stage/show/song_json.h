#pragma once

#include <nlohmann/json_fwd.hpp>

#include "stage/show/log_versions.h"
#include "tavo_core/bar_positions.h"
#include "tavo_core/song_log.h"
#include "tavo_midi/song_data.h"

/// A show as JSON for other programs; docs/info-json.md describes the keys. Their names and order stay as they are.
namespace stage {

/// The edits of a song, in the order of ListEdits.
[[nodiscard]] nlohmann::ordered_json MakeEditJson(const CL::SongLog& songLog, const TL::BarPositions& positions);

/// A song with its edits.
[[nodiscard]] nlohmann::ordered_json MakeSongJson(const tavo_midi::SongData& song, const CL::SongLog& songLog);

/// Its beats with the click edits applied.
[[nodiscard]] std::size_t CountClickedBeats(const tavo_midi::SongData& song, const CL::SongLog& songLog);

[[nodiscard]] nlohmann::ordered_json MakeVersionJson(const LogVersion& version);

/// The song's edits; none where the log does not know it. As long as `log`.
[[nodiscard]] const CL::SongLog& FindSongLog(const CL::ChangeLog& log, const std::string& number);

}  // namespace stage
