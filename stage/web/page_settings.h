#pragma once

#include <string_view>

#include "stage/session/show_session.h"

namespace stage {

/// Changes what the page's view Set up may change, at once and for the next time: "press-guard 300", "time-code on",
/// "time-code-rate 25", "time-code-output Desk", "time-code-jumps locate". The host's thread; waits for the disk, and
/// for the MIDI system as MidiTimeCodeController says. Throws std::invalid_argument with one sentence without a full
/// stop for what cannot be read, and std::runtime_error where it cannot be kept.
void ChangeSetting(ShowSession& session, std::string_view words);

}  // namespace stage
