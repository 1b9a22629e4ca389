#include "stage/show/edit_ids.h"

#include <algorithm>
#include <exception>
#include <optional>

#include "stage/show/edit_list.h"

namespace stage {

namespace {

template <class Numbered>
std::optional<Numbered> TakeFirst(std::vector<Numbered>& from, const auto& isWanted) {
    const auto found = std::find_if(from.begin(), from.end(), isWanted);
    if (found == from.end()) return std::nullopt;
    Numbered taken = std::move(*found);
    from.erase(found);
    return taken;
}

}  // namespace

EditIds EditIds::Read(const ShowDirectory& directory, const std::string& lastName) {
    EditIds ids;
    for (const auto& [version, name] : directory.logNames) {
        try {
            ids.Follow(CL::ChangeLog::Load(directory.PathOf(name)));
        } catch (const std::exception&) {
            // It is told of where versions are listed.
        }
        if (name == lastName) break;
    }
    return ids;
}

void EditIds::Follow(const CL::ChangeLog& log) {
    for (const auto& [number, songLog] : log.GetSongLogs())
        Follow_(songs_[number], CopyListedEdits(songLog));
    for (auto& [number, song] : songs_) {
        if (!log.GetSongLogs().contains(number)) Follow_(song, {});
    }
}

// What is alike keeps its id first; then what was taken away is paired with what came of its kind, in the order of
// places: that is an edit that was changed.
void EditIds::Follow_(Song& song, const std::vector<CL::AnyEdit>& edits) {
    std::vector<Numbered> before = std::exchange(song.present, {});
    std::vector<std::optional<std::size_t>> ids(edits.size());
    const auto takeAlike = [&](std::vector<Numbered>& from) {
        for (std::size_t i = 0; i < edits.size() && !from.empty(); ++i) {
            if (ids[i]) continue;
            const auto taken =
                TakeFirst(from, [&](const Numbered& each) { return CL::IsSameEdit(each.second, edits[i]); });
            if (taken) ids[i] = taken->first;
        }
    };
    takeAlike(before);
    for (std::size_t i = 0; i < edits.size() && !before.empty(); ++i) {
        if (ids[i]) continue;
        const auto changed =
            TakeFirst(before, [&](const Numbered& each) { return each.second.index() == edits[i].index(); });
        if (changed) ids[i] = changed->first;
    }
    song.gone.insert(song.gone.end(), before.begin(), before.end());
    takeAlike(song.gone);
    for (std::size_t i = 0; i < edits.size(); ++i)
        song.present.emplace_back(ids[i] ? *ids[i] : ++song.highest, edits[i]);
}

std::vector<std::size_t> EditIds::GetIds(const std::string& song) const {
    std::vector<std::size_t> ids;
    const auto found = songs_.find(song);
    if (found == songs_.end()) return ids;
    for (const auto& [id, edit] : found->second.present)
        ids.push_back(id);
    return ids;
}

}  // namespace stage
