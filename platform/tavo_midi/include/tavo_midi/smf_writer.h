#pragma once

#include <string>

#include "tavo_midi/smf_reader.h"

namespace tavo_midi {

/// The bytes of a Standard MIDI File (RP-001) that ReadSmf reads back as the same contents. Every status byte is
/// written, and each track ends with its end of track. At one tick name, tempo, meter, key and marker come before the
/// track's events. Throws std::invalid_argument with one sentence for contents that no file can hold: events out of
/// order or after their track's end, a range outside the events, a resolution of 0 or above 32767, values that do not
/// fit their fields. Any thread.
[[nodiscard]] std::string WriteSmf(const Smf& smf);

}  // namespace tavo_midi
