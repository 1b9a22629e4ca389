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
    std::string name;
    /// The track's events: a range of Smf::events, ascending in tick.
    std::size_t firstEvent = 0;
    std::size_t eventCount = 0;
    std::vector<TL::Tempo> tempos;
    std::vector<TL::Meter> meters;
    std::vector<TL::Key> keys;
    /// Markers and cue points.
    std::vector<CL::Marker> markers;
    /// Where the track ends, which may be later than its last event.
    std::uint32_t endTick = 0;
};

/// What a Standard MIDI File (RP-001) holds. A plain value.
struct Smf {
    /// 0: one track; 1: tracks that sound together; 2: tracks that are sequences of their own.
    int format = 0;
    std::uint16_t ticksPerQuarter = 480;
    std::vector<SmfTrack> tracks;
    /// A note-on of velocity 0 has become a note-off; a note of no length ends one tick later, so that playing
    /// note-offs first leaves nothing hanging.
    std::vector<MidiEvent> events;
    /// The messages that system-exclusive events refer to, each from 0xF0 to 0xF7.
    std::vector<std::vector<std::uint8_t>> sysex;
    /// What was wrong and could be read all the same, a sentence each; at most MaxSmfWarnings of them.
    std::vector<std::string> warnings;
};

inline constexpr std::size_t MaxSmfWarnings = 20;

/// Reads a file of format 0, 1 or 2 from its bytes; `name` stands in the sentences. Memory stays within a small
/// multiple of the bytes. What is clearly meant is read: wrong numbers of tracks, alien chunks, running status after
/// meta events and system-exclusive messages, split system-exclusive messages, stray system messages, a missing end of
/// track. Anything else throws std::runtime_error with one sentence that names file, track and byte. Any thread.
[[nodiscard]] Smf ReadSmf(std::string_view bytes, const std::string& name);

/// How many songs the file makes: its tracks in format 2, otherwise one.
[[nodiscard]] std::size_t CountSequences(const Smf& smf);

}  // namespace tavo_midi
