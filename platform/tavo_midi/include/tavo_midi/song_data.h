#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "tavo_core/change_log_events.h"
#include "tavo_core/timeline.h"

namespace tavo_midi {

/// One MIDI channel message at its tick, or a system-exclusive one. Eight bytes, so that a show of a million notes
/// stays small.
struct MidiEvent {
    /// From the start of the song's data.
    std::uint32_t tick = 0;
    /// 0x80 to 0xEF; 0xF0 for a system-exclusive message, whose bytes SongData::GetSysex gives.
    std::uint8_t status = 0;
    /// 0 to 127, and so is data2; of a system-exclusive message part of its index (SongData::SysexIndex).
    std::uint8_t data1 = 0;
    /// 0 for a message that has no second data byte.
    std::uint8_t data2 = 0;
    /// MIDI port, 0 to 15: sixteen channels each.
    std::uint8_t port = 0;

    /// All fields count.
    bool operator==(const MidiEvent&) const = default;
};

/// What one player has in a song: a named track of its file. A plain value.
struct SongPart {
    std::string name;                    ///< of the track; two may have the same
    std::vector<std::uint8_t> channels;  ///< that its events use, over all ports, 16 each; ascending

    /// Both fields count.
    bool operator==(const SongPart&) const = default;
};

/// One song of a show: its timeline and its music. A value; not thread-safe.
class SongData {
public:
    SongData() = default;
    /// A song without music yet. `ticksPerQuarter` is 1 to 32767; nothing is checked.
    SongData(std::string number, TL::Timeline timeline, std::uint16_t ticksPerQuarter)
        : number_(std::move(number)), timeline_(std::move(timeline)), ticksPerQuarter_(ticksPerQuarter) {}

    /// The song's name in the show: "1", "12a".
    [[nodiscard]] const std::string& GetSongNumber() const { return number_; }
    /// The timeline's.
    [[nodiscard]] const std::string& GetTitle() const { return timeline_.GetSongTitle(); }
    /// Beats, meters, tempos, keys and pages as written, without the production's edits.
    [[nodiscard]] const TL::Timeline& GetTimeline() const { return timeline_; }
    /// For whoever makes the song: flow control and display go on with what they took when the song was loaded.
    TL::Timeline& GetTimeline() { return timeline_; }
    /// Ticks in a quarter note, 1 to 32767.
    [[nodiscard]] std::uint16_t GetTicksPerQuarter() const { return ticksPerQuarter_; }
    /// The timeline's: where the song begins.
    [[nodiscard]] unsigned int GetSongStartTickIndex() const { return timeline_.GetStartTickIndex(); }

    /// First tick after the music as it was recorded, the ringing of its last notes included. The timeline's end tick
    /// is never earlier: it completes the last bar.
    [[nodiscard]] unsigned int GetMusicEndTickIndex() const { return musicEndTick_; }
    /// Not checked against the timeline's end.
    void SetMusicEndTickIndex(unsigned int tick) { musicEndTick_ = tick; }

    /// The music in ascending order of tick; at one tick note-offs come before what is not a note, and that before
    /// note-ons.
    [[nodiscard]] const std::vector<MidiEvent>& GetEvents() const { return events_; }
    /// They are taken as they stand: to be in that order (PutInPlayingOrder).
    void SetEvents(std::vector<MidiEvent> events) { events_ = std::move(events); }

    /// The whole message of a system-exclusive event, 0xF0 to 0xF7. Throws std::out_of_range if there is none of its
    /// index.
    [[nodiscard]] const std::vector<std::uint8_t>& GetSysex(const MidiEvent& event) const {
        return sysex_.at(SysexIndex(event));
    }
    /// Index of a system-exclusive event's bytes, kept in the event's three data bytes.
    [[nodiscard]] static std::size_t SysexIndex(const MidiEvent& event) {
        return static_cast<std::size_t>(event.data1) | static_cast<std::size_t>(event.data2) << 8 |
               static_cast<std::size_t>(event.port) << 16;
    }
    /// By index.
    void SetSysex(std::vector<std::vector<std::uint8_t>> messages) { sysex_ = std::move(messages); }

    /// In the order of the file's tracks; those without a name or an event are left out.
    [[nodiscard]] const std::vector<SongPart>& GetParts() const { return parts_; }
    /// They are taken as they stand.
    void SetParts(std::vector<SongPart> parts) { parts_ = std::move(parts); }

    /// The markers written in the music itself, as a first change log takes them over.
    [[nodiscard]] const std::vector<CL::Marker>& GetScoreMarkers() const { return scoreMarkers_; }
    /// Ascending by tick.
    void SetScoreMarkers(std::vector<CL::Marker> markers) { scoreMarkers_ = std::move(markers); }

    /// Whether the tempo of the timeline that begins at this tick was guessed when the song was imported.
    [[nodiscard]] bool IsGuessedTempo(unsigned int tick) const {
        return std::binary_search(guessedTempos_.begin(), guessedTempos_.end(), tick);
    }
    /// Their ticks, ascending.
    void SetGuessedTempos(std::vector<unsigned int> ticks) { guessedTempos_ = std::move(ticks); }

    /// The song's Standard MIDI File as it is packed into the show; empty for a song that was not read from one.
    [[nodiscard]] const std::string& GetSmfName() const { return smfName_; }
    /// The name of a member of the show's archive.
    void SetSmfName(std::string name) { smfName_ = std::move(name); }

private:
    std::string number_;
    TL::Timeline timeline_;
    std::uint16_t ticksPerQuarter_ = 480;
    unsigned int musicEndTick_ = 0;
    std::vector<MidiEvent> events_;
    std::vector<std::vector<std::uint8_t>> sysex_;
    std::vector<SongPart> parts_;
    std::vector<CL::Marker> scoreMarkers_;
    std::vector<unsigned int> guessedTempos_;
    std::string smfName_;
};

}  // namespace tavo_midi
