#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "handle_table.h"
#include "stage/session/edited_show.h"
#include "stage/session/session_edits.h"
#include "stage/session/show_session.h"
#include "stage/show/log_versions.h"
#include "tavo/tavo.h"
#include "tavo_midi/tempo_map.h"

namespace tavo_c {

/// What stands behind a tavo_show: one that is edited only, or the one of a player. Used with its turn held.
class ShowAccess {
public:
    virtual ~ShowAccess() = default;
    [[nodiscard]] virtual std::mutex& GetTurn() = 0;
    [[nodiscard]] virtual stage::EditTarget& GetEdits() = 0;
    [[nodiscard]] virtual std::string GetPath() = 0;
    [[nodiscard]] virtual std::vector<std::string> GetWarnings() = 0;
    virtual std::vector<std::string> Undo() = 0;
    virtual std::vector<std::string> Redo() = 0;
    virtual std::string Save(bool newMajor, const std::string& comment) = 0;
    virtual void RollBackTo(const std::string& version) = 0;
    [[nodiscard]] virtual bool IsOfPlayer() const { return false; }
};

/// A show as a handle has it: the access, and what text of it was given out.
struct ShowHandle {
    explicit ShowHandle(std::unique_ptr<ShowAccess> show) : access(std::move(show)) {}

    /// Throws where the show has no song of that index.
    [[nodiscard]] const tavo_midi::SongData& GetSong(std::uint32_t song) const;

    struct ListedEdit {
        std::uint32_t id = 0;
        std::uint32_t start = 0;
        std::uint32_t end = 0;
        std::string kind;
        std::string place;
        std::string value;
    };

    const std::unique_ptr<ShowAccess> access;
    std::vector<ListedEdit> edits;
    struct Version {
        stage::LogVersion version;
        std::string number;
    };
    std::vector<Version> versions;
    /// Of the song asked for last.
    struct Tempos {
        const tavo_midi::SongData* song = nullptr;
        tavo_midi::TempoMap map;
    };
    Tempos tempos;
};

[[nodiscard]] HandleTable<ShowHandle>& GetShows();

/// A number for the caller that it cannot follow.
inline tavo_show* AsShow(std::uintptr_t handle) {
    return reinterpret_cast<tavo_show*>(handle);
}
inline std::uintptr_t NumberOf(const tavo_show* show) {
    return reinterpret_cast<std::uintptr_t>(show);
}

/// A show that is edited and not played. Throws as EditedShow does.
[[nodiscard]] std::unique_ptr<ShowAccess> MakeEditedShow(const std::string& path, bool isToChange,
                                                         const std::string& version);
/// The show of a session that is played; `turn` and `session` outlive it.
[[nodiscard]] std::unique_ptr<ShowAccess> MakePlayedShow(stage::ShowSession& session, std::mutex& turn);

}  // namespace tavo_c
