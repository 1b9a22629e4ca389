#pragma once

#include <cstddef>
#include <cstdint>

namespace tavo_midi {

/// The first bytes of MIDI messages, as MIDI 1.0 numbers them.
namespace status_byte {
// Channel messages: the low four bits are the channel.
inline constexpr std::uint8_t NoteOff = 0x80;          ///< key, release velocity
inline constexpr std::uint8_t NoteOn = 0x90;           ///< key, velocity; velocity 0 is a note-off
inline constexpr std::uint8_t ControlChange = 0xB0;    ///< controller, value
inline constexpr std::uint8_t ProgramChange = 0xC0;    ///< program, counted from 0
inline constexpr std::uint8_t ChannelPressure = 0xD0;  ///< pressure, of all keys of the channel
inline constexpr std::uint8_t PitchBend = 0xE0;        ///< low seven bits, high seven; 0x2000 is the middle

// System messages.
inline constexpr std::uint8_t Sysex = 0xF0;            ///< any number of data bytes up to SysexEnd
inline constexpr std::uint8_t TimeCodeQuarter = 0xF1;  ///< one byte: piece and its four bits
inline constexpr std::uint8_t SongPosition = 0xF2;     ///< sixteenth notes, low seven bits, high seven
inline constexpr std::uint8_t SongSelect = 0xF3;       ///< the song's number
inline constexpr std::uint8_t TuneRequest = 0xF6;      ///< without data
inline constexpr std::uint8_t SysexEnd = 0xF7;         ///< ends a system-exclusive message

/// From here on a message is one byte, which may stand within any other.
inline constexpr std::uint8_t FirstRealTime = 0xF8;
}  // namespace status_byte

/// Bytes of a message with that first byte; 0 for a system-exclusive one, whose end is marked, and for what MIDI does
/// not define. `status` is 0x80 or more. Real-time safe.
[[nodiscard]] constexpr std::size_t CountMessageBytes(std::uint8_t status) {
    switch (status & 0xF0U) {
        case status_byte::ProgramChange:
        case status_byte::ChannelPressure:
            return 2;
        case status_byte::Sysex:
            break;
        default:
            return 3;
    }
    switch (status) {
        case status_byte::TimeCodeQuarter:
        case status_byte::SongSelect:
            return 2;
        case status_byte::SongPosition:
            return 3;
        case status_byte::TuneRequest:
            return 1;
        default:
            return status >= status_byte::FirstRealTime && status != 0xF9 && status != 0xFD ? 1 : 0;
    }
}

}  // namespace tavo_midi
