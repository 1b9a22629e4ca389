#pragma once

#include "player_core/flow_state.h"

namespace flow_state {

/// "vamp", "repeat", "cut" or "fermata"; empty for any other code.
[[nodiscard]] const char* KindName(unsigned char code);
/// The code of such a name; 0 for any other.
[[nodiscard]] unsigned char KindOf(std::string_view name);

/// Throws std::invalid_argument, in one sentence, for what no flow control can be in, whatever the song.
void RequireSound(const FlowState& state);

}  // namespace flow_state
