#include "stage/import/midi_fit.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <optional>
#include <vector>

#include "tavo_core/bar_positions.h"

namespace stage {

namespace {

using Bars = std::vector<TL::BarPositions::Bar>;
using tavo_midi::MidiEvent;

/// Bars with notes at either end whose notes are compared.
constexpr std::size_t BarsCompared = 4;
/// Fewer notes say nothing.
constexpr std::size_t FewestNotes = 6;
/// Of the notes of one side those that the other has, at least: ornaments that are played out, and parts that one side
/// does not have, leave more than this; another song leaves less.
constexpr double LeastInCommon = 0.5;

bool IsNoteOn(const MidiEvent& event) {
    return event.status >> 4U == 9;
}

/// A note by its pitch class, since octaves are written in many ways.
struct Onset {
    std::uint32_t tick = 0;
    int pitchClass = 0;

    auto operator<=>(const Onset&) const = default;
};

std::vector<Onset> FindOnsets(const tavo_midi::SongData& song, const TickScale& scale) {
    std::vector<Onset> onsets;
    for (const MidiEvent& event : song.GetEvents())
        if (IsNoteOn(event) && (event.status & 0x0FU) != 9) onsets.push_back({scale(event.tick), event.data1 % 12});
    std::sort(onsets.begin(), onsets.end());
    onsets.erase(std::unique(onsets.begin(), onsets.end()), onsets.end());
    return onsets;
}

/// The share of `ones` that `others` have within `tolerance`.
double FindShare(const std::vector<Onset>& ones, const std::vector<Onset>& others, std::uint32_t tolerance) {
    std::array<std::vector<std::uint32_t>, 12> ticks;
    for (const Onset& onset : others)
        ticks[static_cast<std::size_t>(onset.pitchClass)].push_back(onset.tick);
    const auto found = std::count_if(ones.begin(), ones.end(), [&](const Onset& onset) {
        const auto& of = ticks[static_cast<std::size_t>(onset.pitchClass)];
        const std::uint32_t from = onset.tick - std::min(onset.tick, tolerance);
        const auto next = std::lower_bound(of.begin(), of.end(), from);
        return next != of.end() && *next <= onset.tick + tolerance;
    });
    return static_cast<double>(found) / static_cast<double>(ones.size());
}

class Comparison {
public:
    Comparison(const tavo_midi::Smf& smf, const std::string& file, const tavo_midi::SongOptions& options,
               const tavo_midi::SongData& score)
        : smf_(smf),
          file_(file),
          score_(score),
          scale_(score.GetTicksPerQuarter(), smf.ticksPerQuarter),
          scoreBars_(TL::BarPositions(score.GetTimeline()).GetBars()),
          options_(options) {
        for (TL::BarPositions::Bar& bar : scoreBars_) {
            bar.startTick = scale_(bar.startTick);
            bar.endTick = scale_(bar.endTick);
        }
        options_.endTick = scale_(score.GetTimeline().GetEndTickIndex());
        song_ = Build();
    }

    MidiFit Compare() {
        MidiFit fit;
        fit.endTick = *options_.endTick;
        if (!FindOtherBar().empty() && SetPickup()) song_ = Build();
        fit.pickupBeats = options_.pickupBeats;
        fit.difference = FindOtherBar();
        if (fit.difference.empty()) fit.difference = FindOtherEnd();
        if (fit.difference.empty()) fit.difference = FindOtherNotes();
        if (fit.difference.empty()) fit.otherMeter = FindOtherMeter();
        return fit;
    }

private:
    [[nodiscard]] tavo_midi::SongData Build() const { return tavo_midi::BuildSong(smf_, options_, file_); }

    [[nodiscard]] std::string FindOtherBar() const {
        const Bars midiBars = TL::BarPositions(song_->GetTimeline()).GetBars();
        for (std::size_t i = 0; i < std::max(scoreBars_.size(), midiBars.size()); ++i) {
            if (i >= scoreBars_.size() || i >= midiBars.size())
                return fmt::format("disagree after bar {}: one of them has {} bars and the other {}",
                                   scoreBars_[std::min(i, scoreBars_.size()) - 1].label, midiBars.size(),
                                   scoreBars_.size());
            if (midiBars[i].startTick != scoreBars_[i].startTick)
                return fmt::format(
                    "disagree at bar {}: it begins at tick {} in the MIDI file and at tick {} in the score",
                    scoreBars_[i].label, midiBars[i].startTick, scoreBars_[i].startTick);
        }
        return {};
    }

    /// Finds the pick-up of a MIDI file that does not mark it.
    bool SetPickup() {
        const std::uint32_t pickup = scoreBars_.front().endTick - scoreBars_.front().startTick;
        const TL::Meter& meter = song_->GetTimeline().GetMeters()[0];
        const double beat = 4.0 * smf_.ticksPerQuarter / meter.denominator();
        if (pickup == 0 || pickup >= beat * meter.numerator()) return false;
        options_.pickupBeats = pickup / beat;
        return true;
    }

    [[nodiscard]] std::size_t FindScoreBar(std::uint32_t tick) const {
        const auto after = std::partition_point(scoreBars_.begin(), scoreBars_.end(),
                                                [tick](const auto& bar) { return bar.startTick <= tick; });
        return after == scoreBars_.begin() ? 0 : static_cast<std::size_t>(after - scoreBars_.begin()) - 1;
    }

    /// The MIDI file goes on after the last bar, or ends before the score's last bar with notes begins.
    [[nodiscard]] std::string FindOtherEnd() const {
        std::uint32_t midiEnd = 0;
        std::uint32_t lastNoteOn = 0;
        for (const MidiEvent& event : song_->GetEvents()) {
            const bool isNote = IsNoteOn(event) || event.status >> 4U == 8;
            if (isNote) midiEnd = std::max(midiEnd, event.tick);
            if (IsNoteOn(event)) lastNoteOn = std::max(lastNoteOn, event.tick);
        }
        if (lastNoteOn >= *options_.endTick)
            return fmt::format("disagree at the end: the MIDI file goes on after bar {}, the last one of the score",
                               scoreBars_.back().label);
        std::uint32_t lastOfScore = 0;
        for (const MidiEvent& event : score_.GetEvents())
            if (IsNoteOn(event)) lastOfScore = std::max(lastOfScore, scale_(event.tick));
        const std::size_t lastBar = FindScoreBar(lastOfScore);
        // Notes may be written a tick too long.
        if (midiEnd > scoreBars_[lastBar].startTick + 1 || lastOfScore == 0) return {};
        const std::size_t endBar = FindScoreBar(midiEnd - std::min<std::uint32_t>(midiEnd, 2));
        return fmt::format("disagree after bar {}: the MIDI file ends there, and the score has music up to bar {}",
                           scoreBars_[endBar].label, scoreBars_[lastBar].label);
    }

    /// The first bars that have notes in the score and in the MIDI file, or the last.
    [[nodiscard]] std::pair<std::size_t, std::size_t> ChooseBars(const std::vector<Onset>& score, bool atEnd) const {
        std::vector<std::size_t> bars;
        for (const Onset& onset : score) {
            const std::size_t bar = FindScoreBar(onset.tick);
            if (bars.empty() || bars.back() != bar) bars.push_back(bar);
        }
        const std::size_t count = std::min(BarsCompared, bars.size());
        if (atEnd) return {bars[bars.size() - count], bars.back()};
        return {bars.front(), bars[count - 1]};
    }

    [[nodiscard]] std::string FindOtherNotes() const {
        const std::vector<Onset> score = FindOnsets(score_, scale_);
        const std::vector<Onset> midi = FindOnsets(*song_, TickScale(1, 1));
        if (score.empty() || midi.empty()) return {};
        for (const bool atEnd : {false, true}) {
            const auto [first, last] = ChooseBars(score, atEnd);
            const std::vector<Onset> ofScore = Cut(score, first, last);
            const std::vector<Onset> ofMidi = Cut(midi, first, last);
            if (ofScore.size() < FewestNotes || ofMidi.size() < FewestNotes) continue;
            const std::uint32_t tolerance = smf_.ticksPerQuarter / 6U;
            const double share = std::max(FindShare(ofScore, ofMidi, tolerance), FindShare(ofMidi, ofScore, tolerance));
            if (share >= LeastInCommon) continue;
            return fmt::format("disagree at bar {}: of the notes of bars {} to {} they have {:.0f} percent in common",
                               scoreBars_[first].label, scoreBars_[first].label, scoreBars_[last].label, share * 100);
        }
        return {};
    }

    [[nodiscard]] std::vector<Onset> Cut(const std::vector<Onset>& onsets, std::size_t first, std::size_t last) const {
        std::vector<Onset> found;
        for (const Onset& onset : onsets)
            if (onset.tick >= scoreBars_[first].startTick && onset.tick < scoreBars_[last].endTick)
                found.push_back(onset);
        return found;
    }

    /// Three beats or two in a bar of one length.
    [[nodiscard]] std::string FindOtherMeter() const {
        const auto& midi = song_->GetTimeline().GetMeters();
        const auto& score = score_.GetTimeline().GetMeters();
        std::size_t i = 0;
        for (const TL::Meter& meter : score) {
            while (i + 1 < midi.size() && midi[i + 1].abs_time() <= scale_(meter.abs_time()))
                ++i;
            const bool isSame = (meter.numerator() % 3 == 0) == (midi[i].numerator() % 3 == 0) &&
                                (meter.numerator() % 3 != 0 || meter.denominator() == midi[i].denominator());
            if (isSame || meter.numerator() < 3 || midi[i].numerator() < 3) continue;
            return fmt::format("bar {} is counted in {}/{}, in the score in {}/{}; the MIDI file's meters are taken",
                               scoreBars_[FindScoreBar(scale_(meter.abs_time()))].label, midi[i].numerator(),
                               midi[i].denominator(), meter.numerator(), meter.denominator());
        }
        return {};
    }

    const tavo_midi::Smf& smf_;
    const std::string& file_;
    const tavo_midi::SongData& score_;
    const TickScale scale_;
    Bars scoreBars_;
    tavo_midi::SongOptions options_;
    std::optional<tavo_midi::SongData> song_;
};

}  // namespace

MidiFit MidiBesideScore::Compare(const tavo_midi::SongData& score) const {
    return Comparison(smf_, file_, options_, score).Compare();
}

}  // namespace stage
