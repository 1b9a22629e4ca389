#include "tavo_midi/smf_reader.h"

#include <fmt/format.h>

#include <stdexcept>

#include "smf_track_reader.h"

namespace tavo_midi {

namespace {

constexpr std::size_t ChunkHeadBytes = 8;
constexpr std::size_t HeaderBytes = 6;
constexpr std::size_t MostTracks = 65535;
/// About what an event takes in a file; nothing depends on it but the number of times that memory is taken.
constexpr std::size_t UsualEventBytes = 3;

std::uint32_t BigEndian(std::string_view bytes, std::size_t at, std::size_t count) {
    std::uint32_t value = 0;
    for (std::size_t index = at; index < at + count; ++index)
        value = value << 8U | static_cast<std::uint8_t>(bytes[index]);
    return value;
}

[[noreturn]] void Fail(const std::string& name, const std::string& what) {
    throw std::runtime_error(fmt::format("\"{}\" {}", name, what));
}

/// Reads the header chunk into `smf`; answers where the next chunk begins and sets the number of tracks announced.
std::size_t ReadHeader(std::string_view bytes, const std::string& name, Smf& smf, std::size_t& trackCount) {
    if (bytes.empty()) Fail(name, "is empty");
    if (bytes.substr(0, 4) != "MThd") Fail(name, "is not a Standard MIDI File: it does not begin with MThd");
    if (bytes.size() < ChunkHeadBytes + HeaderBytes) Fail(name, "breaks off inside its header");
    const std::size_t length = BigEndian(bytes, 4, 4);
    if (length < HeaderBytes) Fail(name, fmt::format("has a header of {} bytes, where 6 is the least", length));
    smf.format = static_cast<int>(BigEndian(bytes, 8, 2));
    trackCount = BigEndian(bytes, 10, 2);
    const std::uint32_t division = BigEndian(bytes, 12, 2);
    if (smf.format > 2) Fail(name, fmt::format("has format {}, but only the formats 0, 1 and 2 exist", smf.format));
    if (division >= 0x8000)
        Fail(name,
             "cannot be used: its division counts SMPTE frames, but every position here is a tick per quarter note");
    if (division == 0) Fail(name, "has a division of 0 ticks per quarter note");
    smf.ticksPerQuarter = static_cast<std::uint16_t>(division);
    if (length > bytes.size() - ChunkHeadBytes) Fail(name, "breaks off inside its header");
    return ChunkHeadBytes + length;
}

/// Reads every track chunk from `at` on.
void ReadChunks(std::string_view bytes, const std::string& name, std::size_t at, std::size_t announced, Smf& smf) {
    SmfTrackReader reader(bytes, name, smf);
    std::size_t number = 0;
    while (bytes.size() - at >= ChunkHeadBytes) {
        const std::size_t begin = at + ChunkHeadBytes;
        const std::size_t length = BigEndian(bytes, at + 4, 4);
        const bool isCutOff = length > bytes.size() - begin;
        const std::size_t end = isCutOff ? bytes.size() : begin + length;
        const bool isTrack = bytes.substr(at, 4) == "MTrk";
        at = end;
        if (!isTrack) continue;
        if (++number > MostTracks) Fail(name, fmt::format("has more than {} tracks", MostTracks));
        try {
            reader.Read(number, begin, end, isCutOff);
        } catch (const std::runtime_error& error) {
            // A track that the header does not count is often a program's own data in disguise.
            if (number <= announced || number == 1) throw;
            reader.Warn(std::string(error.what()) + "; the header does not count this track, so it is left out");
        }
    }
    if (number != announced) reader.Warn(fmt::format("\"{}\" announces {} tracks and has {}", name, announced, number));
}

}  // namespace

Smf ReadSmf(std::string_view bytes, const std::string& name) {
    Smf smf;
    std::size_t announced = 0;
    const std::size_t firstChunk = ReadHeader(bytes, name, smf, announced);
    smf.events.reserve(bytes.size() / UsualEventBytes);
    ReadChunks(bytes, name, firstChunk, announced, smf);
    if (smf.tracks.empty() && announced != 0) Fail(name, fmt::format("announces {} tracks and has none", announced));
    return smf;
}

std::size_t CountSequences(const Smf& smf) {
    return smf.format == 2 ? smf.tracks.size() : 1;
}

}  // namespace tavo_midi
