#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "player_core/interface.h"
#include "stage/engine/output_groups.h"
#include "tavo_midi/show_data.h"

namespace stage {

/// Where the show is when a command comes.
struct CommandPlace {
    std::string song;  ///< empty before one is loaded
    std::uint32_t tick = 0;
    std::int64_t frame = 0;  ///< rendered since the engine began

    bool operator==(const CommandPlace&) const = default;
};

/// Whatever obeys commands: the façade, and what a host does beyond it. Thread-safe; operations may block as the
/// façade's do, and throw what its do, one sentence.
class CommandPerformer {
public:
    [[nodiscard]] virtual Interface& GetFacade() = 0;
    [[nodiscard]] virtual const tavo_midi::ShowData& GetMusic() = 0;
    [[nodiscard]] virtual CommandPlace GetPlace() = 0;
    /// Ends the sound at once, releases included, and goes back to the song's beginning.
    virtual void Panic() = 0;
    /// Goes to where time code stands at `time`, in the song that is loaded or else in the first that has it; throws
    /// std::runtime_error where none has.
    virtual void LocateTimeCode(std::chrono::nanoseconds time) = 0;
    /// A beat of the conductor's, on the clock of the command's moment.
    virtual void ConductBeat(std::chrono::nanoseconds moment) = 0;
    /// Puts the song that is loaded where `state` was taken, as ToText of FlowState writes it; playback is stopped.
    virtual void Restore(const std::string& state) = 0;
    /// From the next start on so many beats are counted in.
    virtual void SetCountIn(unsigned int beats) = 0;
    /// Makes a change of the edits, as CL::WriteLogChange writes it.
    virtual void Edit(const std::string& change) = 0;
    virtual void UndoEdit() = 0;
    virtual void RedoEdit() = 0;
    /// Saves the edits as the next minor version.
    virtual void SaveEdits() = 0;
    /// The show is to end.
    virtual void Quit() = 0;
    /// The output groups; null where there can be none.
    [[nodiscard]] virtual OutputGroups* GetGroups() { return nullptr; }

protected:
    ~CommandPerformer() = default;
};

}  // namespace stage
