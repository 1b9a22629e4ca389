#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "tavo_core/bar_positions.h"
#include "tavo_core/change_log.h"
#include "tavo_core/log_change.h"
#include "tavo_midi/show_data.h"

namespace stage {

/// What edits that are given in words are made upon: a show that is open for editing, or one that plays. Each operation
/// is done whole or throws an exception of the standard library with one sentence. An unknown song throws.
class EditTarget {
public:
    [[nodiscard]] virtual const tavo_midi::ShowData& GetMusic() = 0;
    /// The edits as they are now; they stay what they are when more are made.
    [[nodiscard]] virtual std::shared_ptr<const CL::ChangeLog> GetLog() const = 0;
    [[nodiscard]] virtual const TL::BarPositions& GetPositions(const std::string& song) = 0;
    /// The ids of the song's edits, in the order of ListEdits.
    [[nodiscard]] virtual std::vector<std::size_t> GetIds(const std::string& song) = 0;
    /// The song that words without one mean; empty where they have to name it.
    [[nodiscard]] virtual std::string GetUnnamedSong() = 0;

    virtual void Add(const std::string& song, const CL::AnyEdit& edit) = 0;
    virtual void Change(const std::string& song, const CL::AnyEdit& from, const CL::AnyEdit& to) = 0;
    virtual void Remove(const std::string& song, const std::vector<CL::AnyEdit>& edits) = 0;
    virtual void SetAttacca(const std::string& song, unsigned char attacca) = 0;

protected:
    ~EditTarget() = default;
};

}  // namespace stage
