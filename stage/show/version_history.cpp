#include "stage/show/version_history.h"

#include <exception>
#include <stdexcept>
#include <unordered_map>
#include <vector>

#include "tavo_core/change_log.h"

namespace stage {

namespace {

struct Version {
    std::string name;
    /// The first version that has its edits: itself where they are new.
    std::size_t like = 0;
};

/// A text that versions with the same edits have in common.
std::string MakeTextOfEdits(CL::ChangeLog log) {
    log.SetShowName("");
    log.GetVersion() = {1, 0};
    // A song without edits is like one that the log does not have.
    std::erase_if(log.GetSongLogs(), [](const auto& song) {
        bool isEmpty = song.second.GetAttacca() == CL::AttaccaNormal;
        song.second.ForEachSequence([&isEmpty](const auto& sequence) { isEmpty = isEmpty && sequence.empty(); });
        return isEmpty;
    });
    return log.AsText();
}

/// The versions up to `name`; one that cannot be read is passed over.
std::vector<Version> ReadHistory(const ShowDirectory& directory, const std::string& name) {
    std::vector<Version> versions;
    std::unordered_map<std::string, std::size_t> firstWith;
    for (const auto& [version, file] : directory.logNames) {
        try {
            std::string edits = MakeTextOfEdits(CL::ChangeLog::Load(directory.PathOf(file)));
            const std::size_t like = firstWith.try_emplace(std::move(edits), versions.size()).first->second;
            versions.push_back({file, like});
        } catch (const std::exception&) {
            // It is told of where versions are listed.
        }
        if (file == name) break;
    }
    if (versions.empty()) throw std::logic_error("the show has no version that can be read");
    return versions;
}

}  // namespace

std::string FindVersionBefore(const ShowDirectory& directory, const std::string& name) {
    const std::vector<Version> versions = ReadHistory(directory, name);
    const std::size_t here = versions.back().like;
    if (here == 0) throw std::logic_error("there is nothing to undo: these are the edits of the first version");
    return versions[versions[here - 1].like].name;
}

std::string FindVersionAfter(const ShowDirectory& directory, const std::string& name) {
    const std::vector<Version> versions = ReadHistory(directory, name);
    std::size_t changed = versions.size() - 1;
    while (changed > 0 && versions[changed].like != changed)
        --changed;
    // What the steps since the last change left behind them, the newest last.
    std::vector<std::size_t> left;
    std::size_t here = changed;
    for (std::size_t i = changed + 1; i < versions.size(); ++i) {
        const std::size_t next = versions[i].like;
        if (!left.empty() && left.back() == next) {
            left.pop_back();
        } else if (next != here) {
            left.push_back(here);
        }
        here = next;
    }
    if (left.empty()) throw std::logic_error("there is nothing to redo: no edits were undone since the last change");
    return versions[left.back()].name;
}

}  // namespace stage
