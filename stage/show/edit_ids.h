#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "stage/show/show_directory.h"
#include "tavo_core/change_log.h"
#include "tavo_core/log_change.h"

namespace stage {

/// The ids under which a production speaks of its edits. They follow from the versions that the show has: an edit keeps
/// its id from one version to the next, also where it is changed or moved, and gets it back when it returns; a new one
/// takes the number after the highest that the song ever had. Not thread-safe.
class EditIds {
public:
    /// Follows the versions up to the file `lastName`; one that cannot be read is passed over. Blocks on the disk.
    static EditIds Read(const ShowDirectory& directory, const std::string& lastName);

    /// Takes the edits of `log` as the next state.
    void Follow(const CL::ChangeLog& log);
    /// The ids of a song's edits as Follow saw them last, in the order of ListEdits.
    [[nodiscard]] std::vector<std::size_t> GetIds(const std::string& song) const;

private:
    using Numbered = std::pair<std::size_t, CL::AnyEdit>;
    struct Song {
        std::vector<Numbered> present;
        std::vector<Numbered> gone;
        std::size_t highest = 0;
    };
    static void Follow_(Song& song, const std::vector<CL::AnyEdit>& edits);

    std::map<std::string, Song> songs_;
};

}  // namespace stage
