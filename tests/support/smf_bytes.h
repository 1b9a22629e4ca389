#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// Hand-made Standard MIDI Files for tests.
namespace test_support {

/// The bytes that hexadecimal digits name; blanks between them are passed over.
inline std::string Hex(std::string_view digits) {
    std::string bytes;
    int half = -1;
    for (const char digit : digits) {
        if (digit == ' ') continue;
        const int value = digit <= '9' ? digit - '0' : digit - 'A' + 10;
        if (half < 0) {
            half = value;
            continue;
        }
        bytes += static_cast<char>(half * 16 + value);
        half = -1;
    }
    return bytes;
}

inline std::string BigEndian(std::uint32_t value, int bytes) {
    std::string text;
    for (int index = bytes - 1; index >= 0; --index)
        text += static_cast<char>(value >> (8 * index) & 0xFFU);
    return text;
}

inline std::string Chunk(const std::string& type, const std::string& bytes) {
    return type + BigEndian(static_cast<std::uint32_t>(bytes.size()), 4) + bytes;
}

inline std::string SmfHeader(unsigned int format, unsigned int tracks, unsigned int division = 96) {
    return Chunk("MThd", BigEndian(format, 2) + BigEndian(tracks, 2) + BigEndian(division, 2));
}

/// A track of the given events, in hexadecimal, with an end-of-track event behind them.
inline std::string SmfTrackChunk(std::string_view events) {
    return Chunk("MTrk", Hex(events) + Hex("00 FF 2F 00"));
}

/// A whole file of such tracks.
inline std::string SmfFile(unsigned int format, const std::vector<std::string_view>& tracks,
                           unsigned int division = 96) {
    std::string file = SmfHeader(format, static_cast<unsigned int>(tracks.size()), division);
    for (const std::string_view events : tracks)
        file += SmfTrackChunk(events);
    return file;
}

}  // namespace test_support
