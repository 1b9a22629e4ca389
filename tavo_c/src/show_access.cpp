#include "show_access.h"

#include "guard.h"
#include "stage/show/version_notes.h"

namespace tavo_c {

namespace {

class EditedAccess final : public ShowAccess {
public:
    EditedAccess(const std::string& path, stage::EditedShow::Access access, const std::string& version)
        : show_(path, access, version) {}

    std::mutex& GetTurn() override { return turn_; }
    stage::EditTarget& GetEdits() override { return show_; }
    std::string GetPath() override { return show_.GetDirectory().path; }
    std::vector<std::string> GetWarnings() override {
        std::vector<std::string> warnings = show_.GetMusic().GetWarnings();
        for (const auto& more : {show_.GetRepairs(), show_.GetWarnings()})
            warnings.insert(warnings.end(), more.begin(), more.end());
        return warnings;
    }
    std::vector<std::string> Undo() override { return show_.Undo(); }
    std::vector<std::string> Redo() override { return show_.Redo(); }
    std::string Save(bool newMajor, const std::string& comment) override {
        show_.SetComment(comment);
        static_cast<void>(show_.Save(newMajor));
        return show_.GetLog()->GetVersion().GetAsString();
    }
    void RollBackTo(const std::string& version) override {
        const stage::ShowDirectory& directory = show_.GetDirectory();
        show_.RollBackTo(CL::ChangeLog::Load(directory.PathOf(stage::FindLogName(directory, version))));
    }

private:
    std::mutex turn_;
    stage::EditedShow show_;
};

class PlayedAccess final : public ShowAccess {
public:
    PlayedAccess(stage::ShowSession& session, std::mutex& turn) : session_(session), turn_(turn), edits_(session) {}

    std::mutex& GetTurn() override { return turn_; }
    stage::EditTarget& GetEdits() override { return edits_; }
    std::string GetPath() override { return session_.GetShowDirectory(); }
    std::vector<std::string> GetWarnings() override { return session_.GetWarnings(); }
    std::vector<std::string> Undo() override { return session_.Undo(); }
    std::vector<std::string> Redo() override { return session_.Redo(); }
    std::string Save(bool newMajor, const std::string& comment) override {
        std::string version = session_.Save(newMajor);
        if (!comment.empty()) stage::NoteVersion(session_.GetShowDirectory(), edits_.GetLog()->GetVersion(), comment);
        return version;
    }
    void RollBackTo(const std::string& version) override { session_.RollBackTo(version); }
    bool IsOfPlayer() const override { return true; }

private:
    stage::ShowSession& session_;
    std::mutex& turn_;
    stage::SessionEdits edits_;
};

}  // namespace

std::unique_ptr<ShowAccess> MakePlayedShow(stage::ShowSession& session, std::mutex& turn) {
    return std::make_unique<PlayedAccess>(session, turn);
}

std::unique_ptr<ShowAccess> MakeEditedShow(const std::string& path, bool isToChange, const std::string& version) {
    using Access = stage::EditedShow::Access;
    return std::make_unique<EditedAccess>(path, isToChange ? Access::Change : Access::Read, version);
}

const tavo_midi::SongData& ShowHandle::GetSong(std::uint32_t song) const {
    const auto& songs = access->GetEdits().GetMusic().GetSongs();
    if (song >= songs.size())
        throw Problem(TAVO_NOT_FOUND, "the show has " + std::to_string(songs.size()) +
                                          " songs, counted from 0, and none is " + std::to_string(song));
    return songs[song];
}

HandleTable<ShowHandle>& GetShows() {
    // Never destroyed: calls of other threads may come until the process ends.
    static auto& shows = *new HandleTable<ShowHandle>;
    return shows;
}

}  // namespace tavo_c
