#pragma once

#include <algorithm>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "tavo_midi/song_data.h"

namespace test_support {

/// MIDI events told in words that a musician can read, separated by blanks: "60@0-456" is a key and the ticks at which
/// it is struck and let go, "2:60@0-456" the same on the second channel, "pedal@0-470" likewise, "quiet@470" a message
/// that ends all notes.
inline std::vector<tavo_midi::MidiEvent> ReadNotes(const std::string& text) {
    std::vector<tavo_midi::MidiEvent> events;
    std::istringstream words(text);
    for (std::string word; words >> word;) {
        std::uint8_t channel = 0;
        if (const auto colon = word.find(':'); colon != std::string::npos) {
            channel = static_cast<std::uint8_t>(std::stoi(word) - 1);
            word.erase(0, colon + 1);
        }
        const auto place = word.find('@');
        const auto dash = word.find('-', place);
        if (place == std::string::npos) throw std::invalid_argument("no place in " + word);
        const auto begin = static_cast<std::uint32_t>(std::stoul(word.substr(place + 1)));
        const auto add = [&](std::uint32_t tick, int status, int data1, int data2) {
            events.push_back({tick, static_cast<std::uint8_t>(status | channel), static_cast<std::uint8_t>(data1),
                              static_cast<std::uint8_t>(data2), 0});
        };
        const bool isPedal = word.starts_with("pedal");
        if (word.starts_with("quiet")) {
            add(begin, 0xB0, 123, 0);
            continue;
        }
        const int key = isPedal ? 64 : std::stoi(word);
        add(begin, isPedal ? 0xB0 : 0x90, key, isPedal ? 127 : 90);
        if (dash == std::string::npos) continue;
        add(static_cast<std::uint32_t>(std::stoul(word.substr(dash + 1))), isPedal ? 0xB0 : 0x80, key, 0);
    }
    // Of one tick ends come first.
    std::stable_sort(events.begin(), events.end(), [](const auto& a, const auto& b) {
        const auto isStrike = [](const tavo_midi::MidiEvent& event) { return (event.status & 0xF0U) == 0x90; };
        return a.tick != b.tick ? a.tick < b.tick : isStrike(a) < isStrike(b);
    });
    return events;
}

/// A song of such notes in 4/4 at 120 to the quarter note and 480 ticks, played by these programs: one a channel.
inline tavo_midi::SongData MakeNoteSong(const std::string& number, unsigned int bars, const std::string& notes,
                                        const std::vector<int>& programs) {
    TL::Timeline timeline(0, bars * 1920);
    timeline.GetMeters().Append(TL::Meter(0, 4, 4));
    timeline.GetTempos().Append(TL::Tempo(0, 500000));
    for (unsigned int beat = 0; beat < bars * 4; ++beat)
        timeline.GetBarsBeats().Append(TL::BarsBeats(beat * 480, beat % 4 + 1, std::to_string(beat / 4 + 1)));
    std::vector<tavo_midi::MidiEvent> events;
    for (std::size_t channel = 0; channel < programs.size(); ++channel)
        events.push_back(
            {0, static_cast<std::uint8_t>(0xC0 | channel), static_cast<std::uint8_t>(programs[channel]), 0, 0});
    for (const tavo_midi::MidiEvent& event : ReadNotes(notes))
        events.push_back(event);
    tavo_midi::SongData song(number, timeline, 480);
    song.SetEvents(std::move(events));
    return song;
}

}  // namespace test_support
