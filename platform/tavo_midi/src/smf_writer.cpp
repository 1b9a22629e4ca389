#include "tavo_midi/smf_writer.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <limits>
#include <stdexcept>
#include <utility>

#include "tavo_midi/midi_status.h"

namespace tavo_midi {

namespace {

constexpr std::uint32_t LongestDelta = 0x0FFFFFFF;
constexpr std::uint8_t MetaStatus = 0xFF;

enum MetaType : std::uint8_t {
    TrackName = 0x03,
    MarkerText = 0x06,
    MidiPort = 0x21,
    EndOfTrack = 0x2F,
    TempoChange = 0x51,
    TimeSignature = 0x58,
    KeySignature = 0x59,
};

void Demand(bool holds, const char* sentence) {
    if (!holds) throw std::invalid_argument(fmt::format("the music cannot be written as a MIDI file: {}", sentence));
}

void AppendNumber(std::string& bytes, std::uint64_t number, int width) {
    for (int shift = (width - 1) * 8; shift >= 0; shift -= 8)
        bytes += static_cast<char>(number >> shift & 0xFF);
}

void AppendVariableLength(std::string& bytes, std::uint32_t number) {
    for (int shift = 21; shift > 0; shift -= 7) {
        if (number >> shift != 0) bytes += static_cast<char>((number >> shift & 0x7F) | 0x80);
    }
    bytes += static_cast<char>(number & 0x7F);
}

int CountDataBytes(std::uint8_t status) {
    const int kind = status >> 4;
    return kind == 0xC || kind == 0xD ? 1 : 2;
}

/// One event of a track without its delta time.
struct TimedBytes {
    std::uint32_t tick;
    std::string bytes;
};

std::string MakeMeta(MetaType type, const std::string& content) {
    Demand(content.size() <= LongestDelta, "a text is too long");
    std::string bytes;
    bytes += static_cast<char>(MetaStatus);
    bytes += static_cast<char>(type);
    AppendVariableLength(bytes, static_cast<std::uint32_t>(content.size()));
    return bytes + content;
}

std::string MakeTempo(const TL::Tempo& tempo) {
    Demand(tempo.microseconds_per_quarter() > 0 && tempo.microseconds_per_quarter() <= 0xFFFFFF,
           "a tempo is not from 1 to 16777215 microseconds a quarter note");
    std::string content;
    AppendNumber(content, tempo.microseconds_per_quarter(), 3);
    return MakeMeta(TempoChange, content);
}

std::string MakeMeter(const TL::Meter& meter) {
    Demand(meter.numerator() > 0 && std::has_single_bit(meter.denominator()), "a meter is not a time signature");
    std::string content;
    AppendNumber(content, meter.numerator(), 1);
    AppendNumber(content, static_cast<std::uint64_t>(std::countr_zero(meter.denominator())), 1);
    AppendNumber(content, meter.clocks_per_click(), 1);
    AppendNumber(content, meter.thirty_seconds_per_quarter(), 1);
    return MakeMeta(TimeSignature, content);
}

std::string MakeKey(const TL::Key& key) {
    Demand(key.sharps() >= -7 && key.sharps() <= 7, "a key has more than seven accidentals");
    std::string content;
    content += static_cast<char>(key.sharps());
    content += static_cast<char>(key.minor() ? 1 : 0);
    return MakeMeta(KeySignature, content);
}

template <class Entries, class Make>
void AppendMetas(std::vector<TimedBytes>& timed, const Entries& entries, Make make) {
    for (const auto& entry : entries)
        timed.push_back({entry.abs_time(), make(entry)});
}

std::vector<TimedBytes> CollectMetas(const SmfTrack& track) {
    std::vector<TimedBytes> timed;
    if (!track.name.empty()) timed.push_back({0, MakeMeta(TrackName, track.name)});
    AppendMetas(timed, track.tempos, MakeTempo);
    AppendMetas(timed, track.meters, MakeMeter);
    AppendMetas(timed, track.keys, MakeKey);
    AppendMetas(timed, track.markers, [](const CL::Marker& marker) { return MakeMeta(MarkerText, marker.value()); });
    std::stable_sort(timed.begin(), timed.end(),
                     [](const TimedBytes& a, const TimedBytes& b) { return a.tick < b.tick; });
    return timed;
}

/// Writes events one after another with their delta times.
class TrackBytes {
public:
    void Append(std::uint32_t tick, std::string_view bytes) {
        Demand(tick >= tick_, "the events of a track are not in order");
        Demand(tick - tick_ <= LongestDelta, "two events of a track are too far apart");
        AppendVariableLength(bytes_, tick - tick_);
        bytes_ += bytes;
        tick_ = tick;
    }
    void AppendEvent(const MidiEvent& event, const Smf& smf) {
        if (event.status == status_byte::Sysex) {
            AppendSysex(event.tick, smf.sysex.at(SongData::SysexIndex(event)));
            return;
        }
        Demand(event.status >= status_byte::NoteOff && event.status < status_byte::Sysex,
               "an event is not a channel message");
        Demand(event.data1 < 0x80 && event.data2 < 0x80, "a data byte is above 127");
        if (event.port != port_) {
            port_ = event.port;
            Append(event.tick, MakeMeta(MidiPort, std::string(1, static_cast<char>(port_))));
        }
        std::string bytes{static_cast<char>(event.status), static_cast<char>(event.data1)};
        if (CountDataBytes(event.status) == 2) bytes += static_cast<char>(event.data2);
        Append(event.tick, bytes);
    }
    std::string Finish(std::uint32_t endTick) {
        Append(endTick, MakeMeta(EndOfTrack, ""));
        Demand(bytes_.size() <= std::numeric_limits<std::uint32_t>::max(), "a track is too long");
        std::string chunk = "MTrk";
        AppendNumber(chunk, bytes_.size(), 4);
        return chunk + bytes_;
    }

private:
    void AppendSysex(std::uint32_t tick, const std::vector<std::uint8_t>& message) {
        Demand(message.size() >= 2 && message.front() == status_byte::Sysex && message.size() <= LongestDelta,
               "a system-exclusive message is not whole");
        std::string bytes{static_cast<char>(status_byte::Sysex)};
        AppendVariableLength(bytes, static_cast<std::uint32_t>(message.size() - 1));
        bytes.append(message.begin() + 1, message.end());
        Append(tick, bytes);
    }

    std::string bytes_;
    std::uint32_t tick_ = 0;
    std::uint8_t port_ = 0;
};

std::string WriteTrack(const SmfTrack& track, const Smf& smf) {
    Demand(track.firstEvent <= smf.events.size() && track.eventCount <= smf.events.size() - track.firstEvent,
           "a track's events are not among the file's");
    const std::vector<TimedBytes> metas = CollectMetas(track);
    auto meta = metas.begin();
    TrackBytes bytes;
    for (std::size_t i = track.firstEvent; i < track.firstEvent + track.eventCount; ++i) {
        for (; meta != metas.end() && meta->tick <= smf.events[i].tick; ++meta)
            bytes.Append(meta->tick, meta->bytes);
        bytes.AppendEvent(smf.events[i], smf);
    }
    for (; meta != metas.end(); ++meta)
        bytes.Append(meta->tick, meta->bytes);
    return bytes.Finish(track.endTick);
}

}  // namespace

std::string WriteSmf(const Smf& smf) {
    Demand(smf.format >= 0 && smf.format <= 2, "its format is not 0, 1 or 2");
    Demand(smf.format != 0 || smf.tracks.size() == 1, "format 0 has one track");
    Demand(smf.tracks.size() <= 0xFFFF, "it has too many tracks");
    Demand(smf.ticksPerQuarter > 0 && smf.ticksPerQuarter <= 0x7FFF, "its resolution is not from 1 to 32767");
    std::string bytes = "MThd";
    AppendNumber(bytes, 6, 4);
    AppendNumber(bytes, static_cast<std::uint64_t>(smf.format), 2);
    AppendNumber(bytes, smf.tracks.size(), 2);
    AppendNumber(bytes, smf.ticksPerQuarter, 2);
    for (const SmfTrack& track : smf.tracks)
        bytes += WriteTrack(track, smf);
    return bytes;
}

}  // namespace tavo_midi
