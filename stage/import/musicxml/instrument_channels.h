#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "stage/import/musicxml/written_score.h"

namespace stage::musicxml {

struct MidiChannel {
    std::uint8_t port = 0;
    std::uint8_t channel = 0;

    auto operator<=>(const MidiChannel&) const = default;
};

/// The channel of each part's instruments.
struct InstrumentChannels {
    std::vector<std::vector<MidiChannel>> ofPart;
    std::vector<std::string> notes;
};

/// Drums share channel 10 of the first port. Any other instrument has a channel of its own: the one that the score asks
/// for if it is free, else the first free one; where sixteen ports are full, a channel of the same program, with a
/// note.
[[nodiscard]] InstrumentChannels AssignChannels(const std::vector<WrittenPart>& parts);

}  // namespace stage::musicxml
