#include "stage/session/edit_session.h"

#include <algorithm>
#include <array>
#include <set>
#include <type_traits>

#include "stage/show/log_versions.h"
#include "tavo_core/edit_journal.h"

namespace stage {

std::vector<ListedEdit> ListEdits(const CL::SongLog& songLog) {
    std::vector<ListedEdit> edits;
    songLog.ForEachSequence([&](const auto& sequence) {
        for (const auto& edit : sequence)
            edits.push_back({0, &edit});
    });
    std::stable_sort(edits.begin(), edits.end(),
                     [](const ListedEdit& a, const ListedEdit& b) { return a.edit->abs_time() < b.edit->abs_time(); });
    for (std::size_t i = 0; i < edits.size(); ++i)
        edits[i].id = i + 1;
    return edits;
}

std::string DescribeAttacca(unsigned char attacca) {
    constexpr std::array<const char*, 3> words{"normal", "attacca", "skip"};
    return attacca < words.size() ? words[attacca] : "unknown";
}

EditSession::EditSession(const std::string& showPath)
    : directory_(ScanShowDirectory(showPath)),
      showData_(directory_.ShowDataPath()),
      log_(CL::ChangeLog::Load(directory_.LogPathInUse())) {}

std::vector<std::string> EditSession::DescribeJournal() const {
    CL::EditJournal::Contents contents;
    try {
        contents = CL::EditJournal::Read(directory_.LogPathInUse());
    } catch (const std::runtime_error& problem) {
        return {problem.what()};
    }
    if (!contents.changes.empty()) {
        const bool isOne = contents.changes.size() == 1;
        contents.problems.insert(
            contents.problems.begin(),
            fmt::format("a session that ended early left {} unsaved change{} to version {}; stage log recover saves {}",
                        contents.changes.size(), isOne ? "" : "s", log_.GetVersion().GetAsString(),
                        isOne ? "it" : "them"));
    }
    return contents.problems;
}

const TL::BarPositions& EditSession::GetPositions(const std::string& song) {
    const auto found = positions_.find(song);
    if (found != positions_.end()) return found->second;
    return positions_.emplace(song, TL::BarPositions(showData_.GetSongData(song).GetTimeline())).first->second;
}

CL::SongLog& EditSession::GetSongLog(const std::string& song) {
    const std::string& known = showData_.GetSongData(song).GetSongNumber();
    return log_.GetSongLogs()[known];
}

void EditSession::Remove(const std::string& song, const std::vector<std::size_t>& ids) {
    CL::SongLog& songLog = GetSongLog(song);
    const std::vector<ListedEdit> listed = ListEdits(songLog);
    std::set<const cmn::TavoEvent*> chosen;
    std::vector<std::string> removed;
    for (const std::size_t id : ids) {
        if (id < 1 || id > listed.size())
            throw std::out_of_range(
                listed.empty() ? fmt::format("song {} has no edits", song)
                               : fmt::format("song {} has no edit {}, its edits are 1 to {}", song, id, listed.size()));
        const cmn::TavoEvent* edit = listed[id - 1].edit;
        if (chosen.insert(edit).second) removed.push_back("removed " + CL::DescribeEdit(*edit, GetPositions(song)));
    }
    songLog.ForEachSequence([&](auto& sequence) {
        for (std::size_t i = sequence.size(); i-- > 0;) {
            if (chosen.contains(&sequence[i])) sequence.RemoveAt(i);
        }
    });
    for (const std::string& change : removed)
        Note(song, change);
}

void EditSession::SetAttacca(const std::string& song, unsigned char attacca) {
    GetSongLog(song).SetAttacca(attacca);
    Note(song, "set to " + DescribeAttacca(attacca));
}

std::string EditSession::Save(bool newMajor) {
    return SaveVersion(directory_, log_,
                       newMajor ? NextMajorVersion(directory_, 0) : NextMinorVersion(directory_, log_.GetVersion()));
}

void EditSession::Note(const std::string& song, const std::string& change) {
    changes_.push_back(fmt::format("song {}: {}", song, change));
}

}  // namespace stage
