#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "stage/show/edit_ids.h"
#include "stage/words/edit_target.h"

namespace stage {

class ShowSession;

/// Edits in words upon a show that plays; a song that is not named is the one that is loaded. For the thread that
/// edits.
class SessionEdits : public EditTarget {
public:
    /// `session` outlives the object.
    explicit SessionEdits(ShowSession& session) : session_(session) {}

    [[nodiscard]] const tavo_midi::ShowData& GetMusic() override;
    [[nodiscard]] std::shared_ptr<const CL::ChangeLog> GetLog() const override;
    [[nodiscard]] const TL::BarPositions& GetPositions(const std::string& song) override;
    [[nodiscard]] std::vector<std::size_t> GetIds(const std::string& song) override;
    [[nodiscard]] std::string GetUnnamedSong() override;
    void Add(const std::string& song, const CL::AnyEdit& edit) override;
    void Change(const std::string& song, const CL::AnyEdit& from, const CL::AnyEdit& to) override;
    void Remove(const std::string& song, const std::vector<CL::AnyEdit>& edits) override;
    void SetAttacca(const std::string& song, unsigned char attacca) override;

private:
    ShowSession& session_;
    std::map<std::string, TL::BarPositions> positions_;
    std::optional<EditIds> ids_;
};

}  // namespace stage
