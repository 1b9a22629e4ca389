#pragma once

#include <span>
#include <vector>

namespace tavo_midi {

/// The commands in the data of a machine control message (MIDI Machine Control 1.0: what is behind `F0 7F device 06`,
/// without the end), each with its number, which 00 may precede, and what follows. One that is cut off is left out. The
/// spans are into `data`. Any thread.
[[nodiscard]] std::vector<std::span<const unsigned char>> SplitMachineControl(std::span<const unsigned char> data);

}  // namespace tavo_midi
