#pragma once

#include <string>

#include "stage/control/command_desk.h"
#include "tavo_midi/show_data.h"

namespace stage {

/// A press as a person reads it: "seek 12:3", "go (MIDI port Pedal)". Thread-safe; does not block.
[[nodiscard]] std::string DescribePress(const CommandRecord& record, const tavo_midi::ShowData& show);
/// "REFUSED go: " and why; empty for what was taken. `press` is what DescribePress made of it.
[[nodiscard]] std::string DescribeRefusal(const CommandRecord& record, const std::string& press);

}  // namespace stage
