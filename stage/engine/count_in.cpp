#include "stage/engine/count_in.h"

#include <algorithm>
#include <cmath>

namespace stage {

namespace {

/// Beats in the bar that the beat lies in: a bar that has not all of them, as a pick-up, counts on from those before
/// it.
unsigned int CountBeatsPerBar(const TL::Timeline& timeline, std::uint32_t tick) {
    unsigned int beats = 4;
    for (const TL::Meter& meter : timeline.GetMeters()) {
        if (meter.abs_time() > tick) break;
        beats = meter.numerator();
    }
    return std::max(beats, 1U);
}

}  // namespace

BeatAtPlace FindBeatAtPlace(const SongPlan& plan, std::uint32_t tick, std::uint32_t framesPerSecond) {
    const tavo_midi::SongData& song = plan.GetSong();
    const TL::Timeline& timeline = song.GetTimeline();
    const tavo_midi::TempoMap& tempos = plan.GetHeardTempoMap();
    BeatAtPlace place;
    place.tick = tick;
    place.ticks = song.GetTicksPerQuarter();
    place.perBar = CountBeatsPerBar(timeline, tick);
    const auto& beats = timeline.GetBarsBeats();
    for (auto beat = beats.begin(); beat != beats.end() && beat->abs_time() <= tick; ++beat) {
        place.tick = beat->abs_time();
        place.number = beat->beat();
        const auto next = std::next(beat);
        if (next != beats.end() && next->abs_time() > beat->abs_time())
            place.ticks = next->abs_time() - beat->abs_time();
    }
    const double microseconds = tempos.GetSegments()[tempos.FindSegment(tick)].microsecondsPerQuarter;
    place.framesPerTick = microseconds * framesPerSecond / 1e6 / tempos.GetTicksPerQuarter();
    return place;
}

CountIn::CountIn(const BeatAtPlace& place, double framesIntoBeat, unsigned int beats, double tempoScale,
                 std::int64_t frame)
    : beats_(beats),
      perBar_(place.perBar),
      beatFrames_(std::max(1.0, place.ticks * place.framesPerTick / tempoScale)),
      begin_(frame) {
    // Half a frame is no distance.
    const bool isInside = framesIntoBeat >= 0.5;
    lengthFrames_ = isInside ? framesIntoBeat + (beats - 1) * beatFrames_ : beats * beatFrames_;
    const unsigned int before = isInside ? beats - 1 : beats;
    firstNumber_ = (place.number - 1 + perBar_ * ((before + perBar_ - 1) / perBar_) - before) % perBar_;
}

std::int64_t CountIn::GetNextFrame() const {
    const double frames = counted_ < beats_ ? counted_ * beatFrames_ : lengthFrames_;
    return begin_ + std::llround(frames);
}

bool CountIn::IsAccent() const {
    return (firstNumber_ + counted_) % perBar_ == 0;
}

}  // namespace stage
