#include "stage/show/version_notes.h"

#include <ctime>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>

#include "kit/appended_file.h"
#include "kit/file.h"
#include "kit/path.h"
#include "stage/show/show_hold.h"

namespace stage {

namespace {

using Json = nlohmann::ordered_json;

// A show has a few thousand versions at most; a file that somebody has filled otherwise is not read whole.
constexpr std::uintmax_t MostBytes = 16U << 20U;

std::string NotesPath(const std::string& showPath) {
    return kit::path::Join(showPath, "versions.notes");
}

std::string TakeText(const Json& note, const char* key) {
    const auto found = note.find(key);
    return found != note.end() && found->is_string() ? found->get<std::string>() : "";
}

/// Adds the note of a line, if it is one.
void TakeLine(const std::string& line, std::map<cmn::TAVOVersion, VersionNote>& notes) {
    const Json note = Json::parse(line, nullptr, false);
    if (!note.is_object()) return;
    try {
        cmn::TAVOVersion version;
        version.SetWithString(TakeText(note, "version"));
        const auto saved = note.find("saved");
        notes[version] = {saved != note.end() && saved->is_number_integer() ? saved->get<std::int64_t>() : 0,
                          TakeText(note, "by"), TakeText(note, "comment")};
    } catch (const std::exception&) {
        // Not a version: somebody else's line.
    }
}

bool EndsInALine(const std::string& path, std::uintmax_t size) {
    if (size == 0) return true;
    std::ifstream file(path, std::ios::binary);
    file.seekg(-1, std::ios::end);
    return file.get() == '\n';
}

}  // namespace

void NoteVersion(const std::string& showPath, const cmn::TAVOVersion& version, const std::string& comment) noexcept {
    try {
        Json note{{"version", version.GetAsString()},
                  {"saved", static_cast<std::int64_t>(std::time(nullptr))},
                  {"by", DescribeUser()}};
        if (!comment.empty()) note["comment"] = comment;
        kit::AppendedFile file(NotesPath(showPath));
        // Behind a line that was broken off this one begins anew.
        const std::string line = note.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
        file.Append(EndsInALine(NotesPath(showPath), file.GetSize()) ? line : "\n" + line);
    } catch (const std::exception&) {
        // The version is saved all the same.
    }
}

std::map<cmn::TAVOVersion, VersionNote> ReadVersionNotes(const std::string& showPath) {
    std::map<cmn::TAVOVersion, VersionNote> notes;
    try {
        std::istringstream lines(kit::ReadFile(NotesPath(showPath), MostBytes));
        for (std::string line; std::getline(lines, line);)
            TakeLine(line, notes);
    } catch (const std::exception&) {
        // Shows of before have none.
    }
    return notes;
}

}  // namespace stage
