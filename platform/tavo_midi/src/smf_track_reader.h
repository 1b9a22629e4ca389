#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tavo_midi/smf_reader.h"

namespace tavo_midi {

/// Reads the tracks of one file, one after the other, into an Smf.
class SmfTrackReader {
public:
    /// All arguments outlive the object. `bytes` is the whole file.
    SmfTrackReader(std::string_view bytes, const std::string& name, Smf& smf) : bytes_(bytes), name_(name), smf_(smf) {}

    /// Reads the track, numbered from 1, in [begin, end) of the file; `isCutOff` says that the file ends before the
    /// track does by its own word. Throws std::runtime_error and leaves the Smf as it was.
    void Read(std::size_t number, std::size_t begin, std::size_t end, bool isCutOff);

    /// Adds a sentence to the warnings, unless there are enough.
    void Warn(const std::string& sentence);

private:
    /// The notes of one key that sound, to tell a note of no length from the end of an earlier one.
    struct KeyState {
        std::uint32_t latestTick = 0;
        std::uint16_t sounding = 0;
        std::uint16_t startedAtLatestTick = 0;
    };

    /// Answers whether there was an end of track.
    [[nodiscard]] bool ReadEvents();
    void ReadPlainChannelMessages();
    void ReadChannelMessage(std::uint8_t status);
    void AddChannelMessage(const MidiEvent& event);
    void AddNoteOn(const MidiEvent& event);
    void AddNoteOff(const MidiEvent& event);
    void DropLateNoteOff(const MidiEvent& noteOn);
    /// Answers whether the track goes on.
    bool ReadMeta();
    void ReadTempo(std::size_t at, std::size_t length);
    void ReadMeter(std::size_t at, std::size_t length);
    void ReadKey(std::size_t at, std::size_t length);
    void ReadPort(std::size_t at, std::size_t length);
    void ReadSysexPacket(std::uint8_t status);
    void FinishSysex();
    void SkipSystemMessage(std::uint8_t status);
    void DropUnfinishedSysex();
    void PutLateNoteOffsInPlace();

    [[nodiscard]] std::uint8_t ReadByte();
    [[nodiscard]] std::uint8_t ReadDataByte();
    [[nodiscard]] std::uint32_t ReadVariableLength();
    /// Reads the length of a meta event or a system-exclusive packet and steps over its bytes; answers where they
    /// begin.
    [[nodiscard]] std::size_t ReadLengthAndSkip(const char* what, std::size_t& length);
    [[nodiscard]] std::uint8_t ByteAt(std::size_t at) const { return static_cast<std::uint8_t>(bytes_[at]); }
    [[nodiscard]] std::string Place(std::size_t at) const;
    /// Adds a sentence about the place to the warnings, unless there are enough.
    void WarnAt(std::size_t at, const char* what);
    [[noreturn]] void Fail(std::size_t at, const std::string& what) const;

    std::string_view bytes_;
    const std::string& name_;
    Smf& smf_;

    // Of the track being read.
    SmfTrack track_;
    std::size_t number_ = 0;
    std::size_t at_ = 0;
    std::size_t end_ = 0;
    std::size_t eventStart_ = 0;
    std::uint32_t tick_ = 0;
    std::uint8_t runningStatus_ = 0;
    std::uint8_t port_ = 0;
    bool isInSysex_ = false;
    std::vector<std::uint8_t> unfinishedSysex_;
    /// The ends of notes of no length.
    std::vector<MidiEvent> lateNoteOffs_;
    /// Index there of the latest one of each key.
    std::array<std::uint32_t, 16 * 128> lateNoteOffOfKey_{};
    std::array<KeyState, 16 * 128> keys_{};
};

}  // namespace tavo_midi
