#pragma once

#include <cstdint>
#include <string>

#include "tavo_midi/smf_reader.h"
#include "tavo_midi/song_builder.h"
#include "tavo_midi/song_data.h"

namespace stage {

/// Takes ticks of one resolution to another.
class TickScale {
public:
    TickScale(std::uint16_t from, std::uint16_t to) : from_(from), to_(to) {}

    [[nodiscard]] std::uint32_t operator()(std::uint32_t tick) const {
        return static_cast<std::uint32_t>((std::uint64_t{tick} * to_ + from_ / 2U) / from_);
    }

private:
    std::uint64_t from_;
    std::uint64_t to_;
};

/// How a MIDI file fits a score. Ticks are the MIDI file's.
struct MidiFit {
    /// The end of a sentence that names the first bar where they disagree; empty where they agree.
    std::string difference;
    std::uint32_t endTick = 0;
    double pickupBeats = 0;
    /// A sentence for the first bar that is as long in both and is counted in another way; mostly empty.
    std::string otherMeter;
};

/// A MIDI file that is compared with scores. Keeps references to what it is made of.
class MidiBesideScore {
public:
    MidiBesideScore(const tavo_midi::Smf& smf, const std::string& file, const tavo_midi::SongOptions& options)
        : smf_(smf), file_(file), options_(options) {}

    /// Compares bars, the end of the music and, where there are enough of them, the notes of the first and last bars.
    /// A pick-up that the MIDI file does not mark is taken from the score.
    [[nodiscard]] MidiFit Compare(const tavo_midi::SongData& score) const;

private:
    const tavo_midi::Smf& smf_;
    const std::string& file_;
    const tavo_midi::SongOptions& options_;
};

}  // namespace stage
