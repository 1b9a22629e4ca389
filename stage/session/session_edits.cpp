#include "stage/session/session_edits.h"

#include "kit/path.h"
#include "stage/session/show_session.h"
#include "tavo_core/active_change_log.h"

namespace stage {

const tavo_midi::ShowData& SessionEdits::GetMusic() {
    return session_.GetShow();
}

std::shared_ptr<const CL::ChangeLog> SessionEdits::GetLog() const {
    return ActiveChangeLogShared().Share();
}

const TL::BarPositions& SessionEdits::GetPositions(const std::string& song) {
    const auto found = positions_.find(song);
    if (found != positions_.end()) return found->second;
    return positions_.emplace(song, TL::BarPositions(GetMusic().GetSongData(song).GetTimeline())).first->second;
}

std::vector<std::size_t> SessionEdits::GetIds(const std::string& song) {
    if (!ids_)
        ids_ = EditIds::Read(ScanShowDirectory(session_.GetShowDirectory()),
                             kit::path::basename(session_.GetChangelogFilename()));
    ids_->Follow(*GetLog());
    return ids_->GetIds(song);
}

std::string SessionEdits::GetUnnamedSong() {
    return session_.GetCurrentSongNumber();
}

void SessionEdits::Add(const std::string& song, const CL::AnyEdit& edit) {
    session_.AddEdit(song, edit);
}

void SessionEdits::Change(const std::string& song, const CL::AnyEdit& from, const CL::AnyEdit& to) {
    session_.ChangeEdit(song, from, to);
}

void SessionEdits::Remove(const std::string& song, const std::vector<CL::AnyEdit>& edits) {
    session_.RemoveEdits(song, edits);
}

void SessionEdits::SetAttacca(const std::string& song, unsigned char attacca) {
    session_.EditAttacca(GetMusic().GetSongData(song).GetSongNumber(), attacca);
}

}  // namespace stage
