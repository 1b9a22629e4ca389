#pragma once

#include <fmt/format.h>

#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "stage/show/show_directory.h"
#include "tavo_core/bar_positions.h"
#include "tavo_core/change_log.h"
#include "tavo_core/edit_rules.h"
#include "tavo_core/edit_text.h"
#include "tavo_midi/show_data.h"

namespace stage {

/// One edit as a list shows it. It points into the song log and is valid until that changes.
struct ListedEdit {
    /// Counts from 1 in the order of the list: by place, then by kind.
    std::size_t id = 0;
    const cmn::TavoEvent* edit = nullptr;
};

/// The edits of a song in the order of their ids.
[[nodiscard]] std::vector<ListedEdit> ListEdits(const CL::SongLog& songLog);

/// "normal", "attacca", "skip" for the byte of a song log; "unknown" for any other.
[[nodiscard]] std::string DescribeAttacca(unsigned char attacca);

/// Changes the change log in use of a show and saves the result as a new version; the files that are there stay. Every
/// operation that cannot be done throws an exception of the standard library with one sentence and changes nothing.
/// Not thread-safe.
class EditSession {
public:
    /// Reads the show data and the change log in use.
    explicit EditSession(const std::string& showPath);

    [[nodiscard]] const tavo_midi::ShowData& GetShowData() const { return showData_; }
    [[nodiscard]] const CL::ChangeLog& GetLog() const { return log_; }
    /// What a session that ended early left in the journal of this version, and what of it cannot be read; a sentence
    /// each. Such changes are not among the log's edits.
    [[nodiscard]] std::vector<std::string> DescribeJournal() const;
    /// An unknown song throws.
    [[nodiscard]] const TL::BarPositions& GetPositions(const std::string& song);
    /// The song's edits; a song that the log does not know yet is added to it.
    CL::SongLog& GetSongLog(const std::string& song);

    /// Adds the edit if the rules allow it.
    template <class Edit>
    void Add(const std::string& song, const Edit& edit) {
        CL::SongLog& songLog = GetSongLog(song);
        const std::string problem = CL::CheckEdit(edit, songLog, showData_.GetSongData(song).GetTimeline());
        if (!problem.empty()) throw std::invalid_argument(fmt::format("song {}: {}", song, problem));
        AddTo(songLog, edit);
        Note(song, "added " + CL::DescribeEdit(edit, GetPositions(song)));
    }
    /// Removes the edits with these ids of ListEdits, all of them or none.
    void Remove(const std::string& song, const std::vector<std::size_t>& ids);
    void SetAttacca(const std::string& song, unsigned char attacca);

    /// What was done, one line for each operation.
    [[nodiscard]] const std::vector<std::string>& GetChanges() const { return changes_; }
    /// Saves the next minor version, or the next major one with minor 0, makes it the one in use, and returns the
    /// file's path.
    std::string Save(bool newMajor);

private:
    template <class Edit>
    static void AddTo(CL::SongLog& songLog, const Edit& edit) {
        songLog.ForEachSequence([&](auto& sequence) {
            using Element = typename std::decay_t<decltype(sequence)>::value_type;
            if constexpr (std::is_same_v<Element, Edit>) sequence.Add(edit);
        });
    }
    void Note(const std::string& song, const std::string& change);

    ShowDirectory directory_;
    tavo_midi::ShowData showData_;
    CL::ChangeLog log_;
    std::map<std::string, TL::BarPositions> positions_;
    std::vector<std::string> changes_;
};

}  // namespace stage
