#include "stage/import/score_beside_midi.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

#include "tavo_core/bar_positions.h"
#include "tavo_midi/smf_reader.h"
#include "tavo_midi/song_builder.h"

namespace stage {

namespace {

using Bars = std::vector<TL::BarPositions::Bar>;

/// Takes ticks of the score's resolution to the MIDI file's.
class TickScale {
public:
    TickScale(std::uint16_t from, std::uint16_t to) : from_(from), to_(to) {}

    [[nodiscard]] std::uint32_t operator()(std::uint32_t tick) const {
        return static_cast<std::uint32_t>((std::uint64_t{tick} * to_ + from_ / 2U) / from_);
    }

private:
    std::uint64_t from_;
    std::uint64_t to_;
};

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
        options.endTick = scale_(scoreSong_.GetTimeline().GetEndTickIndex());
        AgreeOnBars();
        TakeOptions(options);
        TakeEdits();
        midi_.song.printsPageNumbers = score_.song.printsPageNumbers;
        std::move(score_.song.notes.begin(), score_.song.notes.end(), std::back_inserter(midi_.song.notes));
        return std::move(midi_.song);
    }

private:
    [[nodiscard]] tavo_midi::SongData BuildFromMidi() const {
        return tavo_midi::BuildSong(midiSmf_, midi_.song.packed.options, midi_.file);
    }

    /// Finds the pick-up of a MIDI file that does not mark it.
    void AgreeOnBars() {
        const Bars scoreBars = TL::BarPositions(scoreSong_.GetTimeline()).GetBars();
        tavo_midi::SongData song = BuildFromMidi();
        if (FindDifference(scoreBars, song) && SetPickup(scoreBars, song)) song = BuildFromMidi();
        if (const std::optional<std::string> difference = FindDifference(scoreBars, song))
            throw std::runtime_error(fmt::format("\"{}\" and \"{}\", which beside it is taken for its score, {}",
                                                 midi_.file, score_.file, *difference));
        const auto& events = song.GetEvents();
        const std::uint32_t end = song.GetTimeline().GetEndTickIndex();
        const bool goesOn = std::any_of(events.begin(), events.end(), [end](const tavo_midi::MidiEvent& event) {
            return event.status >> 4U == 9 && event.tick >= end;
        });
        if (goesOn)
            throw std::runtime_error(fmt::format(
                "\"{}\" goes on after bar {}, the last one of \"{}\", which beside it is taken for its score",
                midi_.file, scoreBars.back().label, score_.file));
    }

    [[nodiscard]] std::optional<std::string> FindDifference(const Bars& scoreBars,
                                                            const tavo_midi::SongData& song) const {
        const Bars midiBars = TL::BarPositions(song.GetTimeline()).GetBars();
        for (std::size_t i = 0; i < std::max(scoreBars.size(), midiBars.size()); ++i) {
            if (i >= scoreBars.size() || i >= midiBars.size())
                return fmt::format("disagree after bar {}: one of them has {} bars and the other {}",
                                   scoreBars[std::min(i, scoreBars.size()) - 1].label, midiBars.size(),
                                   scoreBars.size());
            const std::uint32_t scoreTick = scale_(scoreBars[i].startTick);
            if (midiBars[i].startTick != scoreTick)
                return fmt::format(
                    "disagree at bar {}: it begins at tick {} in the MIDI file and at tick {} in the score",
                    scoreBars[i].label, midiBars[i].startTick, scoreTick);
        }
        return std::nullopt;
    }

    bool SetPickup(const Bars& scoreBars, const tavo_midi::SongData& song) {
        const std::uint32_t pickup = scale_(scoreBars.front().endTick) - scale_(scoreBars.front().startTick);
        const TL::Meter& meter = song.GetTimeline().GetMeters()[0];
        const double beat = 4.0 * midiSmf_.ticksPerQuarter / meter.denominator();
        if (pickup == 0 || pickup >= beat * meter.numerator()) return false;
        midi_.song.packed.options.pickupBeats = pickup / beat;
        return true;
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
