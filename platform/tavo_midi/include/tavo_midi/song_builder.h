#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tavo_core/timeline.h"
#include "tavo_midi/smf_reader.h"
#include "tavo_midi/song_data.h"

namespace tavo_midi {

/// The label of one bar where it is not the one that counting gives. Behind a label that is a whole number counting
/// goes on from it; any other label ("12a") is not counted.
struct BarLabel {
    /// Index of the bar in playing order; the first bar is 0.
    std::size_t bar = 0;
    /// Any text; two bars may have the same.
    std::string label;

    /// Both fields count.
    bool operator==(const BarLabel&) const = default;
};

/// A tempo that the file does not give, or gives differently.
struct SongTempo {
    /// From where on it is in force, counted as the file's ticks are.
    std::uint32_t tick = 0;
    /// 1 to 16777215, as a Standard MIDI File can say it.
    std::uint32_t microsecondsPerQuarter = 500000;
    /// Nobody has given it as a number: it was taken from words, or is what is usual.
    bool isGuessed = false;

    /// All fields count.
    bool operator==(const SongTempo&) const = default;
};

/// What a Standard MIDI File does not say about the song that it holds.
struct SongOptions {
    /// The song's name in the show, which no other song of it has: "1", "12a". Not empty.
    std::string number;
    /// For the display; may be empty.
    std::string title;
    /// Which of the file's sequences the song is; below CountSequences.
    std::size_t sequence = 0;
    /// Length of a pick-up that the file does not mark, in beats of the first meter: above 0 and shorter than a bar, or
    /// 0 for none.
    double pickupBeats = 0;
    /// Where the first bar begins.
    std::uint32_t startTick = 0;
    /// Where the song ends, if not at the end of the last bar that holds notes; after startTick.
    std::optional<std::uint32_t> endTick;
    /// Ascending by bar. Without them the bars count "1", "2" and so on, a pick-up "0".
    std::vector<BarLabel> barLabels;
    /// Ascending by tick.
    std::vector<TL::PageNum> pages;
    /// Ascending by tick. Where there are any, those of the file are not used.
    std::vector<SongTempo> tempos;
};

/// A song with more beats is refused.
inline constexpr std::size_t MaxSongBeats = 250000;

/// Makes a song from a file. Every meter event begins a bar. The first bar is a pick-up if the options say so or if a
/// meter of its own makes it shorter than the second bar. A beat is a note of the meter's denominator; in a
/// pick-up of the options the beats lie as they do before the next bar line, and what is left over comes first. Where
/// no meter stands at the start or before, 4/4 begins there; where no tempo does, 120 quarter notes a minute at tick 0.
/// Throws std::runtime_error with one sentence that names `name` if the options do not fit the file or the song would
/// have too many beats. Any thread.
[[nodiscard]] SongData BuildSong(Smf smf, const SongOptions& options, const std::string& name);

}  // namespace tavo_midi
