#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tavo_core/change_log_events.h"
#include "tavo_core/timeline.h"
#include "tavo_midi/song_data.h"

namespace tavo_midi {

/// One track chunk of a Standard MIDI File. Ticks count from the start of the track.
struct SmfTrack {
    /// The first track name (meta event 0x03) on one line of UTF-8 (kit::ToUtf8Line); empty for none.
    std::string name;
    /// The track's events: a range of Smf::events, ascending in tick.
    std::size_t firstEvent = 0;
    /// How many they are.
    std::size_t eventCount = 0;
    /// Meta events 0x51, ascending; all of several at one tick, as in the next three.
    std::vector<TL::Tempo> tempos;
    /// Meta events 0x58. Where one leaves the click out, that is the note of its denominator.
    std::vector<TL::Meter> meters;
    /// Meta events 0x59.
    std::vector<TL::Key> keys;
    /// Markers and cue points (meta events 0x06 and 0x07), their texts on one line of UTF-8.
    std::vector<CL::Marker> markers;
    /// Where the track ends, which may be later than its last event.
    std::uint32_t endTick = 0;
};

/// What a Standard MIDI File (RP-001) holds. A plain value.
struct Smf {
    /// 0: one track; 1: tracks that sound together; 2: tracks that are sequences of their own.
    int format = 0;
    /// The header's division, 1 to 32767; a division in SMPTE frames is refused.
    std::uint16_t ticksPerQuarter = 480;
    /// In the order of the file, without those that could not be read and that the header does not count.
    std::vector<SmfTrack> tracks;
    /// A note-on of velocity 0 has become a note-off; a note of no length ends one tick later, so that playing
    /// note-offs first leaves nothing hanging.
    std::vector<MidiEvent> events;
    /// The messages that system-exclusive events refer to, each from 0xF0 to 0xF7.
    std::vector<std::vector<std::uint8_t>> sysex;
    /// What was wrong and could be read all the same, a sentence each; at most MaxSmfWarnings of them.
    std::vector<std::string> warnings;
};

/// What is wrong beyond so many is not said.
inline constexpr std::size_t MaxSmfWarnings = 20;

/// Reads a file of format 0, 1 or 2 from its bytes; `name` stands in the sentences. Memory stays within a small
/// multiple of the bytes. What is clearly meant is read: wrong numbers of tracks, alien chunks, running status after
/// meta events and system-exclusive messages, split system-exclusive messages, stray system messages, a missing end of
/// track. Anything else throws std::runtime_error with one sentence that names file, track and byte. Any thread.
[[nodiscard]] Smf ReadSmf(std::string_view bytes, const std::string& name);

/// How many songs the file makes: its tracks in format 2, otherwise one.
[[nodiscard]] std::size_t CountSequences(const Smf& smf);

}  // namespace tavo_midi
