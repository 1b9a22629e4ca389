#pragma once

#include <string>

#include "stage/picture/flow_picture.h"
#include "tavo_core/change_log.h"
#include "tavo_midi/show_data.h"

namespace stage {

/// A song of `show` with its edits in `log`, laid out. Takes tens of milliseconds.
[[nodiscard]] flow::Drawing DrawSong(const tavo_midi::ShowData& show, const CL::ChangeLog& log,
                                     const tavo_midi::SongData& song);

/// The same as an SVG 1.1 file.
[[nodiscard]] std::string MakeSongPicture(const tavo_midi::ShowData& show, const CL::ChangeLog& log,
                                          const tavo_midi::SongData& song);

}  // namespace stage
