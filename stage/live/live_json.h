#pragma once

#include <cstdint>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

#include "stage/control/command_desk.h"
#include "stage/live/live_event.h"
#include "stage/live/live_status.h"
#include "tavo_core/bar_positions.h"
#include "tavo_core/gui_dispatcher.h"

namespace stage {

/// "playing"; "no song" before one is loaded.
[[nodiscard]] const char* NameOf(LiveStatus::Motion motion);
/// "taken", "refused" or "failed".
[[nodiscard]] const char* NameOf(CommandRecord::Outcome outcome);

/// What happens in a performance as JSON objects (RFC 8259), one a line without its line end; docs/live.md lists them.
/// Not thread-safe.
class LiveJson {
public:
    LiveJson(const tavo_midi::ShowData& show, std::uint32_t framesPerSecond)
        : show_(show), framesPerSecond_(framesPerSecond) {}

    /// Empty for what is not reported.
    [[nodiscard]] std::string Write(const LiveEvent& event);
    [[nodiscard]] std::string Write(const CommandRecord& record) const;
    /// Only what no event tells: statuses, the vamp lamp, page, key, meter, marker, tempo.
    [[nodiscard]] std::string Write(const notify::GuiNotification& notification);
    [[nodiscard]] static std::string WriteMessage(const std::string& event, const std::string& sentence);
    [[nodiscard]] static std::string WriteStatus(const LiveStatus& status);
    /// The same before it is written.
    [[nodiscard]] static nlohmann::ordered_json MakeStatus(const LiveStatus& status);

private:
    [[nodiscard]] static std::string WriteValue_(const notify::GuiNotification& notification);

    const tavo_midi::ShowData& show_;
    const std::uint32_t framesPerSecond_;
    const tavo_midi::SongData* song_ = nullptr;
    std::map<notify::GuiNotificationType, std::string> last_;  // what a display already shows is not told again
    std::optional<TL::BarPositions> positions_;
};

}  // namespace stage
