#include "tavo_core/log_change_text.h"

#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>
#include <type_traits>
#include <variant>
#include <vector>

#include "change_log_reader.h"
#include "change_log_writer.h"
#include "edit_variant.h"
#include "tavo_core/change_log.h"

namespace CL {

namespace {

// Quotation marks inside a JSON text are escaped, so that these stand nowhere else.
constexpr std::string_view RemovedKey = "{\"removed\":";
constexpr std::string_view AddedKey = ",\"added\":";

/// Edits as a change log on one line: its writer and reader are the only ones for edits.
std::string WriteEdits(const LogChange& change, bool removed) {
    ChangeLog log;
    for (const SongChange& song : change.songs) {
        SongLog& songLog = log.GetSongLogs()[song.songNumber];
        for (const AnyEdit& any : removed ? song.removed : song.added) {
            std::visit(
                [&songLog](const auto& edit) { SequenceOf<std::remove_cvref_t<decltype(edit)>>(songLog).Add(edit); },
                any);
        }
        // Two states that differ say that it changes.
        if (song.attacca) songLog.SetAttacca(removed ? song.attacca->before : song.attacca->after);
    }
    std::string text = tavo_core::WriteChangeLog(log);
    // Line ends stand only between the parts of the text: those inside texts are escaped.
    std::replace(text.begin(), text.end(), '\n', ' ');
    return text;
}

}  // namespace

std::string WriteLogChange(const LogChange& change) {
    return fmt::format("{}{}{}{}}}", RemovedKey, WriteEdits(change, true), AddedKey, WriteEdits(change, false));
}

LogChange ReadLogChange(std::string_view text, const std::string& name) {
    const std::size_t addedAt = text.find(AddedKey);
    if (!text.starts_with(RemovedKey) || addedAt == std::string_view::npos || text.back() != '}')
        throw std::runtime_error(name + ": the line is not a change");
    const std::size_t addedFrom = addedAt + AddedKey.size();
    const ChangeLog removed =
        tavo_core::ReadChangeLog(std::string(text.substr(RemovedKey.size(), addedAt - RemovedKey.size())), name);
    const ChangeLog added =
        tavo_core::ReadChangeLog(std::string(text.substr(addedFrom, text.size() - 1 - addedFrom)), name);

    LogChange change = Compare(removed, added);
    // What is taken out and put in again at its tick stands in both lists, and Compare leaves it out.
    for (SongChange& song : change.songs)
        song.removed.clear(), song.added.clear();
    const auto gather = [&change](const ChangeLog& log, std::vector<AnyEdit> SongChange::*edits) {
        for (const auto& [number, songLog] : log.GetSongLogs()) {
            const auto named = [&songNumber = number](const SongChange& song) { return song.songNumber == songNumber; };
            auto song = std::find_if(change.songs.begin(), change.songs.end(), named);
            if (song == change.songs.end()) song = change.songs.insert(song, {number, {}, {}, {}});
            songLog.ForEachSequence([&](const auto& sequence) {
                for (const auto& edit : sequence)
                    ((*song).*edits).emplace_back(edit);
            });
        }
    };
    gather(removed, &SongChange::removed);
    gather(added, &SongChange::added);
    return change;
}

}  // namespace CL
