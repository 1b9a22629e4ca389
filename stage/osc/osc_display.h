#pragma once

#include <map>
#include <string>
#include <vector>

#include "stage/control/command_desk.h"
#include "stage/live/live_status.h"
#include "stage/osc/osc_message.h"
#include "tavo_core/gui_dispatcher.h"

/// What a display shows, as messages; docs/osc.md lists them.
namespace stage {

/// All values of a moment, each with an address of its own.
[[nodiscard]] std::vector<OscMessage> MakeDisplayValues(const LiveStatus& status);

/// What must not be missed: statuses of flow control, the lamp. No address for what is not reported.
[[nodiscard]] OscMessage MakeDisplayEvent(const notify::GuiNotification& notification);
/// What the desk has decided.
[[nodiscard]] OscMessage MakePressEvent(const CommandRecord& record);

/// Tells which values have changed. Not thread-safe.
class OscDisplay {
public:
    /// Those that differ from the last ones; with `all` every one.
    [[nodiscard]] std::vector<OscMessage> TakeChanges(const LiveStatus& status, bool all);

private:
    std::map<std::string, std::vector<OscValue>> last_;  // by address
};

}  // namespace stage
