#pragma once

#include <string>
#include <vector>

#include "tavo_core/change_log_events.h"

namespace stage {

/// MIDI messages at a place of a song are kept as OSC edits: their target is a MIDI port, their address says which
/// message, their arguments what is in it.
///
///     /midi/program       channel 1 to 16, program 0 to 127
///     /midi/control       channel 1 to 16, controller 0 to 127, value 0 to 127
///     /midi/show-control  command, device 0 to 127, kind of device, and for most commands the cue's number, its list
///                         and its path (MIDI Show Control 1.0)
///
/// Throws std::invalid_argument with one sentence without a full stop for what is no such message.
[[nodiscard]] std::vector<unsigned char> MakeMidiCue(const CL::Osc& edit);

}  // namespace stage
