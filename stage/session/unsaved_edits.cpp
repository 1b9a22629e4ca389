#include "stage/session/unsaved_edits.h"

#include <utility>

#include "tavo_core/edit_journal.h"

namespace stage {

UnsavedEdits ReadUnsavedEdits(const std::string& logPath, const TL::ShowTimelines& timelines) {
    CL::EditJournal::Contents contents = CL::EditJournal::Read(logPath);
    UnsavedEdits unsaved{std::move(contents.changes), {}, std::move(contents.problems)};
    for (const CL::LogChange& change : unsaved.changes) {
        for (std::string& line : CL::DescribeChange(change, timelines))
            unsaved.lines.push_back(std::move(line));
    }
    return unsaved;
}

}  // namespace stage
