#include "stage/show/show_journals.h"

#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>

#include "kit/appended_file.h"
#include "tavo_core/edit_journal.h"

namespace stage {

namespace {

void Read(const std::string& logPath, ShowJournal& journal) {
    try {
        CL::EditJournal::Contents contents = CL::EditJournal::Read(logPath);
        journal.fitsLog = contents.foreignChanges.empty();
        journal.changes = std::move(journal.fitsLog ? contents.changes : contents.foreignChanges);
        if (!contents.problems.empty()) journal.problem = contents.problems.front();
    } catch (const std::runtime_error& problem) {
        journal.problem = problem.what();
    }
}

}  // namespace

std::vector<ShowJournal> FindJournals(const ShowDirectory& directory) {
    std::vector<ShowJournal> journals;
    for (const auto& [version, logName] : directory.journaledLogs) {
        const std::string logPath = directory.PathOf(logName);
        ShowJournal journal;
        journal.version = version;
        journal.logName = logName;
        journal.isKept = kit::AppendedFile::IsHeld(CL::EditJournal::PathFor(logPath));
        Read(logPath, journal);
        if (!journal.changes.empty() || !journal.problem.empty()) journals.push_back(std::move(journal));
    }
    return journals;
}

std::string DescribeJournal(const ShowJournal& journal) {
    if (journal.isKept) return "";
    const std::string version = journal.version.GetAsString();
    const std::size_t count = journal.changes.size();
    const std::string forgets = fmt::format("`stage log SHOW forget {}` removes the journal", version);
    if (count == 0) return fmt::format("{}; {}", journal.problem, forgets);
    std::string sentence = fmt::format(
        "a session that ended early left {} unsaved change{} to version {}; `stage log SHOW recover {}` saves {}",
        count, count == 1 ? "" : "s", version, version, count == 1 ? "it" : "them");
    if (!journal.problem.empty()) sentence += "; " + journal.problem;
    return sentence;
}

std::vector<std::string> DescribeJournals(const ShowDirectory& directory) {
    std::vector<std::string> sentences;
    for (const ShowJournal& journal : FindJournals(directory)) {
        std::string sentence = DescribeJournal(journal);
        if (!sentence.empty()) sentences.push_back(std::move(sentence));
    }
    return sentences;
}

}  // namespace stage
