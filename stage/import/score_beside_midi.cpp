#include "stage/import/score_beside_midi.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

#include "stage/import/midi_fit.h"
#include "tavo_core/bar_positions.h"
#include "tavo_midi/smf_reader.h"
#include "tavo_midi/song_builder.h"

namespace stage {

namespace {

class Join {
public:
    Join(SongOfFile midi, SongOfFile score)
        : midi_(std::move(midi)),
          score_(std::move(score)),
          midiSmf_(tavo_midi::ReadSmf(midi_.song.packed.smf, midi_.file)),
          scoreSong_(tavo_midi::BuildSong(tavo_midi::ReadSmf(score_.song.packed.smf, score_.file),
                                          score_.song.packed.options, score_.file)),
          scale_(scoreSong_.GetTicksPerQuarter(), midiSmf_.ticksPerQuarter) {}

    ImportedSong Make() {
        tavo_midi::SongOptions& options = midi_.song.packed.options;
        const MidiBesideScore comparison(midiSmf_, midi_.file, options);
        const MidiFit fit = comparison.Compare(scoreSong_);
        if (!fit.difference.empty())
            throw std::runtime_error(fmt::format("\"{}\" and \"{}\", which beside it is taken for its score, {}{}",
                                                 midi_.file, score_.file, fit.difference, FindWayOut(comparison)));
        options.endTick = fit.endTick;
        options.pickupBeats = fit.pickupBeats;
        if (!fit.otherMeter.empty()) midi_.song.notes.push_back(fmt::format("\"{}\": {}", midi_.file, fit.otherMeter));
        TakeOptions(options);
        TakeEdits();
        midi_.song.printsPageNumbers = score_.song.printsPageNumbers;
        std::move(score_.song.notes.begin(), score_.song.notes.end(), std::back_inserter(midi_.song.notes));
        midi_.song.unplayedBars = std::move(score_.song.unplayedBars);
        midi_.song.scoreFile = std::move(score_.song.scoreFile);
        midi_.song.scoreMeasures = std::move(score_.song.scoreMeasures);
        return std::move(midi_.song);
    }

private:
    /// What to do about a MIDI file that has other bars than the score.
    [[nodiscard]] std::string FindWayOut(const MidiBesideScore& comparison) const {
        if (score_.song.makeOtherOrder) {
            const ImportedSong other = score_.song.makeOtherOrder();
            const tavo_midi::SongData song = tavo_midi::BuildSong(tavo_midi::ReadSmf(other.packed.smf, score_.file),
                                                                  other.packed.options, score_.file);
            const std::size_t bars = TL::BarPositions(song.GetTimeline()).GetBars().size();
            const bool isWritten = TL::BarPositions(scoreSong_.GetTimeline()).GetBars().size() > bars;
            if (comparison.Compare(song).difference.empty())
                return isWritten ? fmt::format(
                                       "; the MIDI file has the written bars, {}: import with --written, or "
                                       "leave it out",
                                       bars)
                                 : fmt::format(
                                       "; the MIDI file has the bars as they are played, {}: import without "
                                       "--written, or leave it out",
                                       bars);
        }
        return "; leave the MIDI file out, or give it a number of its own";
    }

    void TakeOptions(tavo_midi::SongOptions& options) {
        tavo_midi::SongOptions& score = score_.song.packed.options;
        options.title = std::move(score.title);
        options.barLabels = std::move(score.barLabels);
        for (const TL::PageNum& page : score.pages)
            options.pages.emplace_back(scale_(page.abs_time()), page.page_number());
    }

    template <class Edit, class Make>
    void TakeAll(const CL::ChangeLogSequence<Edit>& from, CL::ChangeLogSequence<Edit>& to, Make make) {
        for (const Edit& edit : from)
            to.Add(make(edit, scale_(edit.start()), scale_(edit.end())));
    }

    /// The kinds of edits that a score suggests.
    void TakeEdits() {
        const CL::SongLog& from = score_.song.firstEdits;
        CL::SongLog& to = midi_.song.firstEdits;
        to.SetAttacca(from.GetAttacca());
        TakeAll(from.GetVamps(), to.GetVamps(), [](const CL::Vamp& vamp, unsigned int start, unsigned int end) {
            return CL::Vamp(start, end, vamp.int_value());
        });
        TakeAll(from.GetRepeats(), to.GetRepeats(), [](const CL::Repeat& repeat, unsigned int start, unsigned int end) {
            return CL::Repeat(start, end, repeat.int_value());
        });
        TakeAll(from.GetFermatas(), to.GetFermatas(),
                [](const CL::Fermata&, unsigned int start, unsigned int end) { return CL::Fermata(start, end); });
        TakeAll(from.GetCaesuras(), to.GetCaesuras(), [](const CL::Caesura& caesura, unsigned int tick, unsigned int) {
            return CL::Caesura(tick, caesura.value(), caesura.VersionTarget());
        });
        for (const CL::Marker& marker : scoreSong_.GetScoreMarkers())
            to.GetMarkers().Add(CL::Marker(scale_(marker.abs_time()), marker.value()));
    }

    SongOfFile midi_;
    SongOfFile score_;
    const tavo_midi::Smf midiSmf_;
    const tavo_midi::SongData scoreSong_;
    const TickScale scale_;
};

}  // namespace

ImportedSong JoinMidiAndScore(SongOfFile midi, SongOfFile score) {
    return Join(std::move(midi), std::move(score)).Make();
}

}  // namespace stage
