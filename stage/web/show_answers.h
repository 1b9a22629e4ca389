#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "stage/pages/page_package.h"
#include "stage/show/edit_ids.h"
#include "stage/show/settings.h"
#include "stage/web/web_server.h"
#include "tavo_core/change_log.h"
#include "tavo_midi/show_data.h"

namespace stage {

/// What the API tells of a show: its songs with their edits, pictures, scores and versions. `Answer` belongs to one
/// thread, may compute for a good part of a second and wait for the disk, and where it lists MIDI inputs for the MIDI
/// system (two seconds at the most where that does not respond); the rest is thread-safe.
class ShowAnswers {
public:
    /// `show` outlives the object; the cues of its edits are looked for in `settings`. `pages` are the images of the
    /// score's pages, null where there are none; the object is their only user.
    ShowAnswers(const tavo_midi::ShowData& show, std::string showPath, bool isLocked, Settings settings,
                std::unique_ptr<PagePackage> pages = nullptr);

    /// The edits from now on, and the bare name of the log that they were read from or saved as last.
    void SetLog(std::shared_ptr<const CL::ChangeLog> log, std::string logName);
    /// The state as JSON from now on.
    void SetState(std::shared_ptr<const std::string> state);
    /// As `GET /api/show` answers: it does not change while the show is open.
    [[nodiscard]] const std::string& GetShow() const { return showJson_; }

    [[nodiscard]] WebAnswer Answer(const WebRequest& request);

private:
    struct Now {
        std::shared_ptr<const CL::ChangeLog> log;
        std::string logName;
        std::shared_ptr<const std::string> state;
    };
    [[nodiscard]] Now GetNow_() const;
    [[nodiscard]] std::string MakeShow_(bool isLocked) const;
    [[nodiscard]] WebAnswer AnswerSong_(const std::vector<std::string>& parts);
    [[nodiscard]] WebAnswer AnswerPage_(const std::string& number);
    [[nodiscard]] std::string MakeSong_(const tavo_midi::SongData& song);
    [[nodiscard]] std::string MakeSettings_() const;
    [[nodiscard]] std::string MakeVersions_() const;
    [[nodiscard]] std::string MakeDifference_(const std::string& from, const std::string& to) const;
    [[nodiscard]] CL::ChangeLog LoadVersion_(const std::string& version) const;

    // Constant after construction.
    const tavo_midi::ShowData& show_;
    const std::string showPath_;
    const Settings settings_;
    const std::unique_ptr<PagePackage> pages_;  // null, or used by the thread that answers
    const std::string showJson_;

    mutable std::mutex mutex_;
    Now now_;  // guarded by mutex_

    // Used by the thread that answers: the ids as the versions up to this log left them.
    std::string idsOf_;
    EditIds ids_;
};

}  // namespace stage
