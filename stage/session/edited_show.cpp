#include "stage/session/edited_show.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>
#include <stdexcept>
#include <utility>

#include "kit/path.h"
#include "stage/session/lay_on.h"
#include "stage/show/cue_check.h"
#include "stage/show/edit_list.h"
#include "stage/show/log_versions.h"
#include "tavo_core/edit_journal.h"
#include "tavo_core/edit_text.h"

namespace stage {

namespace {

std::string FindLogPath(const ShowDirectory& directory, const std::string& version) {
    return version.empty() ? directory.LogPathInUse() : directory.PathOf(FindLogName(directory, version));
}

std::optional<ShowHold> HoldForChange(const std::string& showPath, EditedShow::Access access) {
    // What is not a show is refused as that, and no lock is made there.
    static_cast<void>(ScanShowDirectory(showPath));
    if (access == EditedShow::Access::Read) return std::nullopt;
    return std::optional<ShowHold>(std::in_place, showPath, "an edit");
}

}  // namespace

EditedShow::EditedShow(const std::string& showPath, Access access, const std::string& version)
    : hold_(HoldForChange(showPath, access)),
      directory_(ScanShowDirectory(showPath)),
      music_(directory_.ShowDataPath()),
      logPath_(FindLogPath(directory_, version)),
      holder_(std::make_shared<CL::ChangeLog>(CL::ChangeLog::Load(logPath_))) {
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
    WarnOfCue_(song, edit);
}

void EditedShow::Change(const std::string& song, const CL::AnyEdit& from, const CL::AnyEdit& to) {
    editor_->Change(song, from, to);
    Note_(song, fmt::format("changed {} to {}", CL::DescribeEdit(CL::EventOf(from), GetPositions(song)),
                            CL::DescribeEdit(CL::EventOf(to), GetPositions(song))));
    WarnOfCue_(song, to);
}

// Settings that cannot be read are told of where the show is checked or played.
void EditedShow::WarnOfCue_(const std::string& song, const CL::AnyEdit& edit) {
    Settings settings;
    try {
        settings = ReadSettings(directory_.SettingsPath());
    } catch (const std::runtime_error&) {
        return;
    }
    CL::LogChange change;
    change.songs.push_back({song, {}, {edit}, {}});
    for (std::string& problem : FindCueProblems(change, music_, directory_.path, settings))
        warnings_.push_back(std::move(problem));
}

void EditedShow::Remove(const std::string& song, const std::vector<CL::AnyEdit>& edits) {
    editor_->Remove(music_.GetSongData(song).GetSongNumber(), edits);
    for (const CL::AnyEdit& edit : edits)
        Note_(song, "removed " + CL::DescribeEdit(CL::EventOf(edit), GetPositions(song)));
}

std::vector<std::size_t> EditedShow::GetIds(const std::string& song) {
    if (!ids_) ids_ = EditIds::Read(directory_, kit::path::basename(logPath_));
    ids_->Follow(*GetLog());
    return ids_->GetIds(music_.GetSongData(song).GetSongNumber());
}

void EditedShow::SetAttacca(const std::string& song, unsigned char attacca) {
    editor_->SetAttacca(music_.GetSongData(song).GetSongNumber(), attacca);
    Note_(song, "set to " + DescribeAttacca(attacca));
}

std::vector<std::string> EditedShow::Undo() {
    std::vector<std::string> lines = editor_->Undo();
    changes_.insert(changes_.end(), lines.begin(), lines.end());
    return lines;
}

std::vector<std::string> EditedShow::Redo() {
    std::vector<std::string> lines = editor_->Redo();
    changes_.insert(changes_.end(), lines.begin(), lines.end());
    return lines;
}

void EditedShow::RollBackTo(const CL::ChangeLog& other) {
    const std::vector<std::string> lines = CL::DescribeChange(CL::Compare(*GetLog(), other), music_);
    editor_->RollBackTo(other);
    changes_.insert(changes_.end(), lines.begin(), lines.end());
}

EditedShow::Recovery EditedShow::Recover(const std::string& version) {
    Recovery recovery;
    const CL::ChangeLog before = *GetLog();
    for (const ShowJournal& journal : FindJournals(directory_)) {
        if (version.empty() || journal.version.GetAsString() == version) RecoverFrom_(journal, recovery);
    }
    const std::vector<std::string> lines = CL::DescribeChange(CL::Compare(before, *GetLog()), music_);
    changes_.insert(changes_.end(), lines.begin(), lines.end());
    return recovery;
}

void EditedShow::RecoverFrom_(const ShowJournal& journal, Recovery& recovery) {
    if (journal.isKept)
        throw std::runtime_error(
            fmt::format("the journal of version {} is in use by another program", journal.version.GetAsString()));
    if (journal.changes.empty()) throw std::runtime_error(DescribeJournal(journal));
    std::optional<CL::ChangeLog> base;
    try {
        if (journal.fitsLog) base = CL::ChangeLog::Load(directory_.PathOf(journal.logName));
    } catch (const std::runtime_error&) {
        // The changes say themselves what they add and remove.
    }
    const std::vector<std::string> refusals =
        LayOn(journal.changes, base ? &*base : nullptr, *editor_, holder_, music_);
    recovery.versions.push_back(journal.version.GetAsString());
    recovery.refusals.insert(recovery.refusals.end(), refusals.begin(), refusals.end());
    if (refusals.empty()) recoveredLogs_.push_back(journal.logName);
}

void EditedShow::EndRecovered() {
    for (const std::string& logName : std::exchange(recoveredLogs_, {})) {
        try {
            CL::EditJournal(directory_.PathOf(logName)).EndAsSavedIn(kit::path::basename(logPath_));
        } catch (const std::runtime_error&) {
            // Offered again it adds nothing: its edits are there.
        }
    }
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
    if (!hold_) throw std::logic_error("the show is open for reading only");
    hold_->RequireStillHeld();
    std::string path;
    {
        const CL::LogHolder::Exclusive log(holder_);
        path = SaveVersion(directory_, *log, version, std::exchange(comment_, {}));
    }
    logPath_ = path;
    // Not looked up: the version is saved, and nothing may fail any more that would deny it.
    directory_.logNames[version] = kit::path::basename(path);
    EndRecovered();
    return path;
}

void EditedShow::Note_(const std::string& song, const std::string& change) {
    changes_.push_back(fmt::format("song {}: {}", song, change));
}

}  // namespace stage
