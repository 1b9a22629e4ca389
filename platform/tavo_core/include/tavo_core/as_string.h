#pragma once

#include <string>

#include "tavo_core/timeline.h"

/// The timeline's entries as a display shows them.

/// "12:3", bar label and beat.
[[nodiscard]] std::string as_string(const TL::BarsBeats& entry);
/// "Eb major", "F# minor".
[[nodiscard]] std::string as_string(const TL::Key& entry);
/// "6/8".
[[nodiscard]] std::string as_string(const TL::Meter& entry);
/// "104": metronome clicks of `meter` a minute, two decimals at most and no trailing zeros.
[[nodiscard]] std::string as_string(const TL::Tempo& entry, const TL::Meter& meter);
/// The same in quarter notes a minute.
[[nodiscard]] std::string as_string(const TL::Tempo& entry);
/// "17".
[[nodiscard]] std::string as_string(const TL::PageNum& entry);
