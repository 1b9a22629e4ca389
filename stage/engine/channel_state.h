#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "tavo_midi/song_data.h"

namespace stage {

/// What a MIDI channel is set to besides the notes that sound, as General MIDI starts it. A plain value.
struct ChannelState {
    /// Registered parameters that are kept: pitch-bend range, fine tuning, coarse tuning (RPN 0, 1, 2).
    static constexpr std::size_t ParameterCount = 3;

    ChannelState();

    std::array<std::uint8_t, 120> controllers;  ///< by controller number; those above are messages, not settings
    std::array<std::uint16_t, ParameterCount> parameters;  ///< 14 bits each
    std::uint16_t pitchBend = 8192;                        ///< 14 bits
    std::uint8_t pressure = 0;
    /// The program and, above its seven bits, the bank that was selected when it was changed to: low, then high byte.
    std::uint32_t program = 0;

    bool operator==(const ChannelState&) const = default;
};

/// MIDI controllers that are told apart by name.
namespace controller {
inline constexpr std::uint8_t BankHigh = 0;
inline constexpr std::uint8_t DataEntryHigh = 6;
inline constexpr std::uint8_t BankLow = 32;
inline constexpr std::uint8_t DataEntryLow = 38;
inline constexpr std::uint8_t Sustain = 64;
inline constexpr std::uint8_t Sostenuto = 66;
inline constexpr std::uint8_t ParameterLow = 100;
inline constexpr std::uint8_t ParameterHigh = 101;
inline constexpr std::uint8_t FirstMessage = 120;
inline constexpr std::uint8_t AllSoundOff = 120;
inline constexpr std::uint8_t ResetControllers = 121;
inline constexpr std::uint8_t AllNotesOff = 123;
}  // namespace controller

/// Number of the channel over all ports, 0 to 255.
[[nodiscard]] inline std::size_t ChannelOf(const tavo_midi::MidiEvent& event) {
    return event.port * std::size_t{16} + (event.status & 0x0FU);
}

/// The registered parameter that the channel's selection names; ParameterCount for any other.
[[nodiscard]] std::size_t SelectedParameter(const ChannelState& state);

/// Applies one channel message that is not a note to its channel's state.
void ApplyMessage(ChannelState& state, const tavo_midi::MidiEvent& event);

/// Every setting of a song's channels over time, so that the state at any tick is found without playing there.
class ChannelHistory {
public:
    /// Events in ascending order of tick; system-exclusive ones and notes are passed over.
    explicit ChannelHistory(const std::vector<tavo_midi::MidiEvent>& events);

    /// Writes what playing from the song's first tick up to, but not including, `tick` leaves. Channels that `states`
    /// has beyond those of the song are set to how they start. A logarithmic search for each setting that the song
    /// uses. Real-time safe.
    void FindStateBefore(std::uint32_t tick, std::span<ChannelState> states) const;

    /// One more than the highest channel that the song's messages use, notes included.
    [[nodiscard]] std::size_t CountChannels() const { return channelCount_; }

private:
    /// One setting of one channel: its values in order of their ticks.
    struct Track {
        std::size_t channel = 0;
        std::size_t setting = 0;
        std::vector<std::uint32_t> ticks;
        std::vector<std::uint32_t> values;
    };

    std::size_t channelCount_ = 0;
    std::vector<Track> tracks_;
};

}  // namespace stage
