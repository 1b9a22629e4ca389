#pragma once

#include <string>

namespace tavo_midi_io {

/// Whether a client of this process is subscribed to the port of ALSA's sequencer with that address, "20:0": as a
/// receiver of what it sends (`isSource`), or as a sender to it. True where the sequencer cannot be asked. Thread-safe;
/// does not block.
[[nodiscard]] bool IsSubscribedTo(const std::string& address, bool isSource);

}  // namespace tavo_midi_io
