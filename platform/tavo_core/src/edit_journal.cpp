#include "tavo_core/edit_journal.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <optional>
#include <stdexcept>

#include "journal_text.h"
#include "kit/appended_file.h"
#include "kit/file.h"
#include "kit/path.h"

namespace CL {

namespace {

namespace journal = tavo_core::journal;

std::string DirectoryOf(const std::string& logPath) {
    const std::string directory = std::filesystem::path(logPath).parent_path().string();
    return directory.empty() ? "." : directory;
}

std::optional<cmn::TAVOVersion> VersionIn(const std::string& name) {
    cmn::TAVOVersion version;
    try {
        version.SetWithFileName(name);
    } catch (const std::invalid_argument&) {
        return std::nullopt;
    }
    return version;
}

/// The newer versions beside `logPath`.
std::vector<std::string> FindNewerLogs(const std::string& logPath) {
    std::vector<std::string> newer;
    const auto ownVersion = VersionIn(kit::path::basename(logPath));
    for (const std::string& name : kit::listdir(DirectoryOf(logPath))) {
        if (kit::path::extension(name) != ".logdata") continue;
        const auto version = VersionIn(name);
        if (ownVersion && version && *ownVersion < *version) newer.push_back(name);
    }
    return newer;
}

/// Whether the log at `logPath`, or a newer one that was not there when its journal began, holds just these edits: one
/// that was there may be alike by chance, and is not what opens.
bool IsStateSaved(const std::string& logPath, const std::string& state, const std::vector<std::string>& knownLogs) {
    std::vector<std::string> names = FindNewerLogs(logPath);
    names.push_back(kit::path::basename(logPath));
    for (const std::string& name : names) {
        if (std::find(knownLogs.begin(), knownLogs.end(), name) != knownLogs.end()) continue;
        try {
            if (journal::HashOfEdits(ChangeLog::Load(kit::path::Join(DirectoryOf(logPath), name))) == state)
                return true;
        } catch (const std::runtime_error&) {
            // A log that cannot be read holds nothing that could be relied on.
        }
    }
    return false;
}

bool AreChangesSaved(const journal::Text& text, const std::string& logPath) {
    if (text.changes.empty()) return true;
    if (!text.savedIn.empty() &&
        std::filesystem::exists(std::filesystem::path(kit::path::Join(DirectoryOf(logPath), text.savedIn))))
        return true;
    return IsStateSaved(logPath, text.stateAfter, text.newerLogs);
}

journal::Text ReadFileOf(const std::string& logPath) {
    const std::string path = EditJournal::PathFor(logPath);
    return journal::Read(kit::ReadFile(path, journal::LongestFile), path);
}

std::string RefuseForeign(const std::string& logPath, const journal::Text& text) {
    return fmt::format("the journal \"{}\" holds changes to another content of {} than there is now",
                       EditJournal::PathFor(logPath), text.origin->logName);
}

}  // namespace

struct EditJournal::Impl {
    explicit Impl(std::string path) : logPath(std::move(path)) { Open(); }

    void Open() {
        // Before anything throws: a file that was only begun goes again.
        hasOrigin = hasChanges = false;
        chain = 0;
        refusal.clear();
        file.emplace(PathFor(logPath));
        origin = journal::FindOrigin(logPath);
        newerLogs = FindNewerLogs(logPath);
        if (file->GetSize() != 0) ReadWhatIsThere();
    }

    void ReadWhatIsThere() {
        journal::Text text;
        try {
            text = ReadFileOf(logPath);
        } catch (const std::runtime_error& problem) {
            refusal = problem.what();
            hasChanges = true;
            return;
        }
        if (AreChangesSaved(text, logPath)) {
            file->Truncate(0);
        } else if (text.origin != origin) {
            refusal = RefuseForeign(logPath, text);
            hasChanges = true;
        } else {
            if (text.goodBytes != file->GetSize()) file->Truncate(text.goodBytes);
            chain = text.chain;
            hasOrigin = hasChanges = true;
            newerLogs = std::move(text.newerLogs);
            changesAtOpening = std::move(text.changes);
        }
    }

    void AppendLine(const std::string& line, std::uint64_t chainBefore, std::uint64_t chainAfter) {
        if (line.size() > journal::LongestFile - file->GetSize())
            throw std::runtime_error(
                fmt::format("the journal \"{}\" would become larger than {} bytes: save the change log first",
                            PathFor(logPath), journal::LongestFile));
        const std::uintmax_t size = file->GetSize();
        file->Append(line);
        lastSize = size;
        lastChain = chainBefore;
        chain = chainAfter;
    }

    std::string logPath;
    std::optional<kit::AppendedFile> file;
    journal::Origin origin;
    /// Those that were there when the journal began.
    std::vector<std::string> newerLogs;
    std::uint64_t chain = 0;
    bool hasOrigin = false;
    bool hasChanges = false;
    std::string refusal;
    std::vector<LogChange> changesAtOpening;
    /// Where what was appended last begins, and the checksum before it.
    std::optional<std::uintmax_t> lastSize;
    std::uint64_t lastChain = 0;
};

EditJournal::EditJournal(const std::string& logPath) : impl_(std::make_unique<Impl>(logPath)) {}

EditJournal::~EditJournal() {
    if (!impl_->file || impl_->hasChanges) return;
    try {
        impl_->file->Remove();
    } catch (const std::runtime_error&) {
        // A journal without changes that stays does no harm.
    }
}

const std::vector<LogChange>& EditJournal::GetChangesAtOpening() const {
    return impl_->changesAtOpening;
}

const std::string& EditJournal::GetRefusal() const {
    return impl_->refusal;
}

void EditJournal::Append(const LogChange& change, const ChangeLog& after) {
    if (!impl_->refusal.empty()) throw std::runtime_error(impl_->refusal);
    if (!impl_->file) impl_->Open();
    const std::uint64_t before = impl_->chain;
    std::uint64_t chain = before;
    std::string lines = impl_->hasOrigin ? "" : journal::WriteOrigin(impl_->origin, impl_->newerLogs, chain);
    lines += journal::WriteChange(change, journal::HashOfEdits(after), chain);
    // Nobody notices a line that cannot be read back until the evening it is needed: better refuse it now.
    std::uint64_t trial = 0;
    const std::string origin = journal::WriteOrigin(impl_->origin, impl_->newerLogs, trial);
    const std::string alone = origin + journal::WriteChange(change, "", trial);
    static_cast<void>(journal::Read(alone, PathFor(impl_->logPath)));

    impl_->AppendLine(lines, before, chain);
    impl_->hasOrigin = impl_->hasChanges = true;
}

void EditJournal::TakeBackLast() {
    if (!impl_->lastSize) throw std::runtime_error("the journal has no line to be taken back");
    impl_->file->Truncate(*impl_->lastSize);
    impl_->chain = impl_->lastChain;
    impl_->hasOrigin = *impl_->lastSize != 0;
    impl_->hasChanges = impl_->hasOrigin;
    impl_->lastSize.reset();
}

void EditJournal::EndAsSavedIn(const std::string& logName) {
    if (impl_->file && impl_->hasChanges && impl_->refusal.empty()) {
        std::uint64_t chain = impl_->chain;
        const std::string line = journal::WriteSavedIn(logName, chain);
        try {
            impl_->AppendLine(line, impl_->chain, chain);
        } catch (const std::runtime_error&) {
            // Without the note the saved log itself shows that the changes are in it.
        }
    }
    Discard();
}

void EditJournal::Discard() {
    if (!impl_->file) return;
    impl_->file->Remove();
    impl_->file.reset();
    impl_->refusal.clear();
    impl_->changesAtOpening.clear();
    impl_->lastSize.reset();
}

EditJournal::Contents EditJournal::Read(const std::string& logPath) {
    Contents contents;
    if (!std::filesystem::exists(PathFor(logPath))) return contents;
    journal::Text text = ReadFileOf(logPath);
    contents.problems = std::move(text.problems);
    if (AreChangesSaved(text, logPath)) return contents;
    if (text.origin != journal::FindOrigin(logPath)) {
        contents.problems.push_back(RefuseForeign(logPath, text));
        contents.foreignChanges = std::move(text.changes);
        return contents;
    }
    contents.changes = std::move(text.changes);
    return contents;
}

std::string EditJournal::PathFor(const std::string& logPath) {
    return logPath + ".journal";
}

}  // namespace CL
