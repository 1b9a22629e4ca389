#include "tavo_midi/song_builder.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <stdexcept>
#include <utility>

#include "bar_walk.h"
#include "tavo_midi/playing_order.h"
#include "tavo_midi/tempo_map.h"

namespace tavo_midi {

namespace {

/// The tracks that make up one song of a file.
struct TrackRange {
    std::size_t begin;
    std::size_t end;
};

TrackRange GetTracks(const Smf& smf, std::size_t sequence, const std::string& name) {
    if (sequence >= CountSequences(smf))
        throw std::runtime_error(
            fmt::format("\"{}\" has no sequence {}, only {} of them", name, sequence + 1, CountSequences(smf)));
    if (smf.format == 2) return {sequence, sequence + 1};
    return {0, smf.tracks.size()};
}

/// The tracks' entries of one kind in order of tick; of several at one tick the last.
template <class Entry>
std::vector<Entry> Collect(const Smf& smf, TrackRange tracks, std::vector<Entry> SmfTrack::*kind) {
    std::vector<Entry> entries;
    for (std::size_t index = tracks.begin; index < tracks.end; ++index) {
        const std::vector<Entry>& ofTrack = smf.tracks[index].*kind;
        entries.insert(entries.end(), ofTrack.begin(), ofTrack.end());
    }
    std::stable_sort(entries.begin(), entries.end(),
                     [](const Entry& left, const Entry& right) { return left.abs_time() < right.abs_time(); });
    return entries;
}

template <class Entry>
void KeepLastAtEachTick(std::vector<Entry>& entries) {
    std::size_t kept = 0;
    for (std::size_t index = 0; index < entries.size(); ++index)
        if (index + 1 == entries.size() || entries[index + 1].abs_time() != entries[index].abs_time())
            entries[kept++] = std::move(entries[index]);
    entries.resize(kept);
}

std::vector<MidiEvent> TakeEvents(Smf& smf, TrackRange tracks) {
    if (tracks.begin == tracks.end) return {};
    const SmfTrack& last = smf.tracks[tracks.end - 1];
    const std::size_t begin = smf.tracks[tracks.begin].firstEvent;
    const std::size_t end = last.firstEvent + last.eventCount;
    if (begin == 0 && end == smf.events.size()) return PutInPlayingOrder(std::move(smf.events));
    return PutInPlayingOrder({smf.events.begin() + static_cast<std::ptrdiff_t>(begin),
                              smf.events.begin() + static_cast<std::ptrdiff_t>(end)});
}

std::vector<SongPart> CollectParts(const Smf& smf, TrackRange tracks) {
    std::vector<SongPart> parts;
    for (std::size_t index = tracks.begin; index < tracks.end; ++index) {
        const SmfTrack& track = smf.tracks[index];
        if (track.name.empty()) continue;
        std::array<bool, 256> isUsed{};
        for (std::size_t i = track.firstEvent; i < track.firstEvent + track.eventCount; ++i)
            if (const MidiEvent& event = smf.events[i]; event.status < 0xF0)
                isUsed.at(event.port % 16U * 16U + (event.status & 0x0FU)) = true;
        SongPart part{track.name, {}};
        for (std::size_t channel = 0; channel < isUsed.size(); ++channel)
            if (isUsed.at(channel)) part.channels.push_back(static_cast<std::uint8_t>(channel));
        if (!part.channels.empty()) parts.push_back(std::move(part));
    }
    return parts;
}

/// First tick after the last note; 0 if there is none.
std::uint32_t EndOfNotes(const std::vector<MidiEvent>& events) {
    for (auto event = events.rbegin(); event != events.rend(); ++event) {
        const unsigned int kind = event->status >> 4U;
        if (kind == 9) return std::max(event->tick, event->tick + 1);
        if (kind == 8) return event->tick;
    }
    return 0;
}

std::uint32_t EndOfTracks(const Smf& smf, TrackRange tracks) {
    std::uint32_t end = 0;
    for (std::size_t index = tracks.begin; index < tracks.end; ++index)
        end = std::max(end, smf.tracks[index].endTick);
    return end;
}

template <class Entry>
void AppendAll(std::vector<Entry> entries, TL::TimelineSequence<Entry>& sequence) {
    for (Entry& entry : entries)
        sequence.Append(std::move(entry));
}

}  // namespace

SongData BuildSong(Smf smf, const SongOptions& options, const std::string& name) {
    if (options.endTick && *options.endTick <= options.startTick)
        throw std::runtime_error(
            fmt::format("\"{}\" would be a song that ends at tick {}, not after its start", name, *options.endTick));
    const TrackRange tracks = GetTracks(smf, options.sequence, name);
    std::vector<TL::Meter> meters = Collect(smf, tracks, &SmfTrack::meters);
    KeepLastAtEachTick(meters);
    if (meters.empty() || meters.front().abs_time() > options.startTick)
        meters.insert(meters.begin(), TL::Meter(options.startTick, 4, 4));
    std::vector<TL::Tempo> tempos = Collect(smf, tracks, &SmfTrack::tempos);
    KeepLastAtEachTick(tempos);
    if (!options.tempos.empty()) tempos.clear();
    std::vector<unsigned int> guessedTempos;
    for (const SongTempo& tempo : options.tempos) {
        tempos.emplace_back(tempo.tick, tempo.microsecondsPerQuarter);
        if (tempo.isGuessed) guessedTempos.push_back(tempo.tick);
    }
    if (tempos.empty() || tempos.front().abs_time() > options.startTick)
        tempos.insert(tempos.begin(), TL::Tempo(0, TempoMap::DefaultMicrosecondsPerQuarter));
    std::vector<TL::Key> keys = Collect(smf, tracks, &SmfTrack::keys);
    KeepLastAtEachTick(keys);
    std::vector<CL::Marker> markers = Collect(smf, tracks, &SmfTrack::markers);

    const std::uint32_t endOfTracks = EndOfTracks(smf, tracks);
    std::vector<SongPart> parts = CollectParts(smf, tracks);
    std::vector<MidiEvent> events = TakeEvents(smf, tracks);
    const std::uint32_t endOfNotes = EndOfNotes(events);

    TL::Timeline timeline;
    timeline.SetSongTitle(options.title);
    timeline.SetStartTickIndex(options.startTick);
    const std::uint32_t lastTick = options.endTick.value_or(endOfNotes == 0 ? endOfTracks : endOfNotes);
    const std::uint32_t endOfBars =
        BarWalk(meters, smf.ticksPerQuarter, options, name).AppendBeats(lastTick, timeline.GetBarsBeats());
    timeline.SetEndTickIndex(options.endTick.value_or(endOfBars));
    AppendAll(std::move(meters), timeline.GetMeters());
    AppendAll(std::move(tempos), timeline.GetTempos());
    AppendAll(std::move(keys), timeline.GetKeys());
    AppendAll(options.pages, timeline.GetPageNums());

    const std::uint32_t end = timeline.GetEndTickIndex();
    SongData song(options.number, std::move(timeline), smf.ticksPerQuarter);
    song.SetMusicEndTickIndex(std::min(std::max(endOfTracks, endOfNotes), end));
    song.SetEvents(std::move(events));
    song.SetSysex(std::move(smf.sysex));
    song.SetParts(std::move(parts));
    song.SetScoreMarkers(std::move(markers));
    song.SetGuessedTempos(std::move(guessedTempos));
    return song;
}

}  // namespace tavo_midi
