// Change logs and their versions.

#include <ostream>
#include <sstream>

#include "kit/path.h"
#include "player_core/interface.h"
#include "player_core/player.h"
#include "tavo_core/active_change_log.h"
#include "tavo_core/directories.h"
#include "tavo_core/editor.h"

namespace {

void WriteModifiedClick(std::ostream& text, const CL::Editor& editor, const std::string& song,
                        const CL::ModifiedClick& modified) {
    const CL::Click& click = modified.click;
    text << "  Click(start=" << editor.GetBarString(song, click.start())
         << ", end=" << editor.GetBarString(song, click.end()) << ", value=" << click.int_value()
         << "), Reason: " << modified.reason << std::endl;
}

}  // namespace

std::string Interface::SaveAs_(void (*raise)(cmn::TAVOVersion& version)) {
    {
        const ActiveChangeLogExclusive changeLog;
        // A save that fails leaves the version raised: the next one then tries a name that nobody has taken.
        raise(changeLog->GetVersion());
        changeLogFileName_ = kit::path::basename(changeLog->Save(""));
        logFilesByVersion_[changeLog->GetVersion()] = changeLogFileName_;
    }
    // From here on edits belong to the journal of the new file.
    if (changeLogEditor_ != nullptr) changeLogEditor_->NoteSaved(GetChangelogFilename());
    return GetLogVersion();
}

std::string Interface::SaveChangelog(bool newMajor) {
    if (!newMajor) return SaveAs_([](cmn::TAVOVersion& version) { ++version.minor_number; });
    return SaveAs_([](cmn::TAVOVersion& version) {
        ++version.major_number;
        version.minor_number = 0;
    });
}

std::string Interface::SaveChangelogCopy() {
    // Unlike a new major version, a copy keeps its minor number, which tells what it was copied from.
    return SaveAs_([](cmn::TAVOVersion& version) { ++version.major_number; });
}

void Interface::SetChangelogFilename(std::string name) {
    GetPlayer()->HaltOutput();
    changeLogFileName_ = std::move(name);
    CreateChangeLog(kit::path::Join(Directories::GetShowDirectory(), changeLogFileName_));
    // The description is not cleared: it goes on telling what was repaired in the logs before.
    invertedLoopEventCount_ = CL::FixInvertedPairedEvents(*showData_, &invertedLoopEventDescription_);
    LoadChangeLogEditor();
    const ActiveChangeLogShared changeLog;
    logFilesByVersion_[changeLog->GetVersion()] = changeLogFileName_;
}

std::string Interface::GetLogVersion() {
    const ActiveChangeLogShared changeLog;
    return changeLog->GetVersion().GetAsString();
}

void Interface::SetLogVersion(std::string text) {
    const ActiveChangeLogExclusive changeLog;
    changeLog->GetVersion().SetWithString(text);
}

void Interface::SetVersionTarget(long target) {
    CL::SetCaesuraVersionTarget(static_cast<unsigned int>(target));
}

std::map<std::string, std::string, kit::NumericStringCompare> Interface::GetLogMap() {
    std::map<std::string, std::string, kit::NumericStringCompare> logs;
    for (const auto& [version, name] : logFilesByVersion_)
        logs[version.GetAsString()] = name;
    return logs;
}

std::string Interface::GetTempoScaleWarnings() {
    std::ostringstream text;
    const ActiveChangeLogShared changeLog;
    for (const auto& [song, songLog] : changeLog->GetSongLogs()) {
        for (const CL::TempoScale& scale : songLog.GetTempoScales()) {
            if (scale.ValueWithinRange()) continue;
            text << "Song " << song << " contains an out-of-range tempo edit of " << scale.value() << std::endl
                 << "This software will play the closest possible value of "
                 << (scale.float_value() < 0.5F ? "50.00%" : "200.00%") << std::endl
                 << std::endl;
        }
    }
    return text.str();
}

std::string Interface::GetModifiedClickEditLog() {
    const auto modifiedClicks = changeLogEditor_->GetModifiedClickEdits();
    if (modifiedClicks.empty()) return {};
    std::ostringstream text;
    text << "The following Click edits were modified or deleted to conform to current requirements:" << std::endl;
    for (const auto& [song, clicks] : modifiedClicks) {
        text << "SongNumber: " << song << ":" << std::endl;
        for (const CL::ModifiedClick& modified : clicks)
            WriteModifiedClick(text, *changeLogEditor_, song, modified);
    }
    return text.str();
}
