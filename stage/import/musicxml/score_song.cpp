#include "stage/import/musicxml/score_song.h"

#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "stage/import/musicxml/played_notes.h"
#include "stage/import/musicxml/song_layout.h"
#include "stage/import/musicxml/written_edits.h"
#include "stage/import/musicxml/written_order.h"
#include "tavo_midi/smf_writer.h"
#include "tavo_midi/song_builder.h"

namespace stage::musicxml {

namespace {

void AppendAll(std::vector<std::string>& to, const std::vector<std::string>& from) {
    to.insert(to.end(), from.begin(), from.end());
}

void AppendTrack(tavo_midi::Smf& smf, const std::string& name, const std::vector<tavo_midi::MidiEvent>& events,
                 std::uint32_t endTick) {
    tavo_midi::SmfTrack track;
    track.name = name;
    track.firstEvent = smf.events.size();
    track.eventCount = events.size();
    track.endTick = endTick;
    smf.events.insert(smf.events.end(), events.begin(), events.end());
    smf.tracks.push_back(std::move(track));
}

tavo_midi::Smf MakeSmf(const WrittenScore& score, SongLayout& layout, const PlayedNotes& played,
                       std::uint32_t endTick) {
    tavo_midi::Smf smf;
    smf.format = 1;
    smf.ticksPerQuarter = ScoreTicksPerQuarter;
    AppendTrack(smf, score.title, {}, endTick);
    for (const tavo_midi::SongTempo& tempo : layout.tempos)
        smf.tracks.front().tempos.emplace_back(tempo.tick, tempo.microsecondsPerQuarter);
    smf.tracks.front().meters = std::move(layout.meters);
    smf.tracks.front().keys = std::move(layout.keys);
    smf.tracks.front().markers = std::move(layout.markers);
    for (std::size_t part = 0; part < score.parts.size(); ++part)
        AppendTrack(smf, score.parts[part].name, played.eventsOfPart[part], endTick);
    return smf;
}

}  // namespace

PlayedOrder OrderBars(const WrittenScore& score, BarOrder barOrder) {
    const std::size_t most = FindMostPlayedBars(score.bars.size());
    if (barOrder == BarOrder::AsPlayed) return FindPlayedOrder(score.bars, most);
    const RepeatPlan plan = PlanRepeats(score.bars);
    return OrderAsWritten(score.bars, plan, FindVamps(score.bars, plan), most).order;
}

ImportedSong MakeScoreSong(const WrittenScore& score, BarOrder barOrder, Breaths breaths) {
    if (score.bars.empty()) throw std::runtime_error("the score has no bars");
    const PlayedOrder order = OrderBars(score, barOrder);
    const SongGrid grid(score, order);
    SongLayout layout = LayOutSong(score, order, grid);
    const PlayedNotes played = PlayNotes(score, order, grid, breaths == Breaths::Lift);

    ImportedSong song;
    AppendAll(song.notes, order.notes);
    for (const PlayedBar& bar : order.bars)
        song.scoreMeasures.push_back(bar.bar);
    song.unplayedBars = order.unplayed;
    AppendAll(song.notes, layout.notes);
    AppendAll(song.notes, played.notes);
    song.packed.options.title = score.title;
    song.packed.options.endTick = grid.GetEndTick();
    song.packed.options.barLabels = std::move(layout.labels);
    song.packed.options.pages = std::move(layout.pages);
    song.printsPageNumbers = layout.printsPageNumbers;
    // Only what the MIDI form cannot say.
    if (std::any_of(layout.tempos.begin(), layout.tempos.end(), [](const auto& tempo) { return tempo.isGuessed; }))
        song.packed.options.tempos = layout.tempos;
    tavo_midi::Smf smf = MakeSmf(score, layout, played, grid.GetEndTick());
    song.packed.smf = tavo_midi::WriteSmf(smf);
    if (song.packed.smf.size() > tavo_midi::MaxShowMemberBytes)
        throw std::runtime_error(fmt::format("the music needs {} bytes as a MIDI file, more than {}",
                                             song.packed.smf.size(), tavo_midi::MaxShowMemberBytes));
    if (barOrder == BarOrder::AsWritten) {
        const tavo_midi::SongData built = tavo_midi::BuildSong(std::move(smf), song.packed.options, score.title);
        WrittenEdits edits = FindWrittenEdits(score, grid, built.GetTimeline(), breaths == Breaths::Stop);
        song.firstEdits = std::move(edits.log);
        AppendAll(song.notes, edits.notes);
    }
    return song;
}

}  // namespace stage::musicxml
