#pragma once

#include <cstddef>
#include <cstdint>

namespace tavo_midi {

/// The first bytes of MIDI messages, as MIDI 1.0 numbers them.
namespace status_byte {
// Their low four bits are the channel.
inline constexpr std::uint8_t NoteOff = 0x80;
inline constexpr std::uint8_t NoteOn = 0x90;
inline constexpr std::uint8_t ControlChange = 0xB0;
inline constexpr std::uint8_t ProgramChange = 0xC0;
inline constexpr std::uint8_t ChannelPressure = 0xD0;
inline constexpr std::uint8_t PitchBend = 0xE0;

inline constexpr std::uint8_t Sysex = 0xF0;
inline constexpr std::uint8_t TimeCodeQuarter = 0xF1;
inline constexpr std::uint8_t SongPosition = 0xF2;
inline constexpr std::uint8_t SongSelect = 0xF3;
inline constexpr std::uint8_t TuneRequest = 0xF6;
inline constexpr std::uint8_t SysexEnd = 0xF7;

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
