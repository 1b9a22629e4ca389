#include "stage/session/edited_show.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>
#include <stdexcept>
#include <utility>

#include "stage/show/edit_list.h"
#include "stage/show/log_versions.h"
#include "tavo_core/edit_journal.h"
#include "tavo_core/edit_text.h"

namespace stage {

namespace {

std::string FindLogPath(const ShowDirectory& directory, const std::string& version) {
    return version.empty() ? directory.LogPathInUse() : directory.PathOf(FindLogName(directory, version));
}

}  // namespace

EditedShow::EditedShow(const std::string& showPath, const std::string& version)
    : directory_(ScanShowDirectory(showPath)),
      music_(directory_.ShowDataPath()),
      logPath_(FindLogPath(directory_, version)),
      holder_(std::make_shared<CL::ChangeLog>(CL::ChangeLog::Load(logPath_))),
      unsaved_(ReadUnsavedEdits(logPath_, music_)) {
    Repair_();
}

// The same repairs as a show gets that is opened for playing.
void EditedShow::Repair_() {
    std::string inverted;
    CL::FixInvertedPairedEvents(music_, &inverted, holder_);
    editor_ = std::make_unique<CL::Editor>(music_, holder_);
    for (std::size_t begin = 0; begin < inverted.size();) {
        const std::size_t end = std::min(inverted.find('\n', begin), inverted.size());
        if (end > begin) repairs_.push_back("repaired: " + inverted.substr(begin, end - begin));
        begin = end + 1;
    }
    for (const auto& [song, clicks] : editor_->GetModifiedClickEdits()) {
        for (const CL::ModifiedClick& modified : clicks)
            repairs_.push_back(fmt::format("repaired: song {}: {}: {}", song,
                                           CL::DescribeEdit(modified.click, GetPositions(song)), modified.reason));
    }
}

const TL::BarPositions& EditedShow::GetPositions(const std::string& song) {
    const auto found = positions_.find(song);
    if (found != positions_.end()) return found->second;
    return positions_.emplace(song, TL::BarPositions(music_.GetSongData(song).GetTimeline())).first->second;
}

void EditedShow::Add(const std::string& song, const CL::AnyEdit& edit) {
    editor_->Add(song, edit);
    Note_(song, "added " + CL::DescribeEdit(CL::EventOf(edit), GetPositions(song)));
}

void EditedShow::Remove(const std::string& song, const std::vector<std::size_t>& ids) {
    const std::shared_ptr<const CL::ChangeLog> log = GetLog();
    const std::string& known = music_.GetSongData(song).GetSongNumber();
    const auto songLog = log->GetSongLogs().find(known);
    const std::vector<CL::AnyEdit> listed =
        songLog == log->GetSongLogs().end() ? std::vector<CL::AnyEdit>() : CopyListedEdits(songLog->second);
    std::set<std::size_t> chosen;
    std::vector<CL::AnyEdit> edits;
    std::vector<std::string> removed;
    for (const std::size_t id : ids) {
        if (id < 1 || id > listed.size())
            throw std::out_of_range(
                listed.empty() ? fmt::format("song {} has no edits", song)
                               : fmt::format("song {} has no edit {}, its edits are 1 to {}", song, id, listed.size()));
        if (!chosen.insert(id).second) continue;
        edits.push_back(listed[id - 1]);
        removed.push_back("removed " + CL::DescribeEdit(CL::EventOf(listed[id - 1]), GetPositions(song)));
    }
    editor_->Remove(known, edits);
    for (const std::string& change : removed)
        Note_(song, change);
}

void EditedShow::SetAttacca(const std::string& song, unsigned char attacca) {
    editor_->SetAttacca(music_.GetSongData(song).GetSongNumber(), attacca);
    Note_(song, "set to " + DescribeAttacca(attacca));
}

void EditedShow::RollBackTo(const CL::ChangeLog& other) {
    const std::vector<std::string> lines = CL::DescribeChange(CL::Compare(*GetLog(), other), music_);
    editor_->RollBackTo(other);
    changes_.insert(changes_.end(), lines.begin(), lines.end());
}

bool EditedShow::Recover() {
    if (!unsaved_.changes.empty()) editor_->ApplyRecovered(unsaved_.changes);
    editor_->KeepJournal(logPath_);
    keepsJournal_ = true;
    changes_.insert(changes_.end(), unsaved_.lines.begin(), unsaved_.lines.end());
    return !unsaved_.changes.empty();
}

// Saving.

std::string EditedShow::Save(bool newMajor) {
    return SaveAs_(newMajor ? NextMajorVersion(directory_, 0) : NextMinorVersion(directory_, GetLog()->GetVersion()));
}

std::string EditedShow::SaveCopy() {
    return SaveAs_(NextMajorVersion(directory_, GetLog()->GetVersion().minor_number));
}

std::string EditedShow::SaveAsHighest() {
    return SaveAs_(NextMinorVersion(directory_, directory_.logNames.rbegin()->first));
}

std::string EditedShow::SaveAs_(const cmn::TAVOVersion& version) {
    TryToKeepJournal_();
    std::string path;
    try {
        const CL::LogHolder::Exclusive log(holder_);
        path = SaveVersion(directory_, *log, version);
    } catch (...) {
        // Nobody was notified that the edits are made. What a crash left stays.
        editor_->KeepJournal("");
        if (keepsJournal_ && unsaved_.changes.empty()) CL::EditJournal(logPath_).Discard();
        throw;
    }
    if (keepsJournal_) editor_->NoteSaved(path);
    editor_->KeepJournal("");
    return path;
}

// Where another program keeps the journal, or a crash has left edits in it that are not recovered here, the edits are
// saved without.
void EditedShow::TryToKeepJournal_() {
    if (keepsJournal_) return;
    try {
        editor_->KeepJournal(logPath_);
        keepsJournal_ = true;
    } catch (const std::runtime_error&) {
        keepsJournal_ = false;
    }
}

void EditedShow::Note_(const std::string& song, const std::string& change) {
    changes_.push_back(fmt::format("song {}: {}", song, change));
}

}  // namespace stage
