#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "tavo_core/log_change.h"
#include "tavo_core/song_log.h"

namespace stage {

/// One edit as a list shows it. It points into the song log and is valid until that changes.
struct ListedEdit {
    /// Counts from 1 in the order of the list: by place, then by kind.
    std::size_t id = 0;
    const cmn::TavoEvent* edit = nullptr;
};

/// The edits of a song in the order of their ids.
[[nodiscard]] std::vector<ListedEdit> ListEdits(const CL::SongLog& songLog);
/// Copies of them in the same order.
[[nodiscard]] std::vector<CL::AnyEdit> CopyListedEdits(const CL::SongLog& songLog);

/// "normal", "attacca", "skip" for the byte of a song log; "unknown" for any other.
[[nodiscard]] std::string DescribeAttacca(unsigned char attacca);

}  // namespace stage
