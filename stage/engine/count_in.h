#pragma once

#include <cstdint>

#include "stage/engine/song_plan.h"

namespace stage {

/// The beat of a song that a place lies in.
struct BeatAtPlace {
    std::uint32_t tick = 0;    ///< where it begins
    std::uint32_t ticks = 0;   ///< its length
    unsigned int number = 1;   ///< in its bar, from 1
    unsigned int perBar = 4;   ///< beats of the bar
    double framesPerTick = 0;  ///< at the tempo of the place, edits included
};

[[nodiscard]] BeatAtPlace FindBeatAtPlace(const SongPlan& plan, std::uint32_t tick, std::uint32_t framesPerSecond);

/// Beats that are counted before playback begins, as the beats of the place go: the first at once, the last a beat
/// before the beat that comes first. Inside a beat, the last is that beat itself. Not thread-safe; real-time safe.
class CountIn {
public:
    /// `beats` is 1 or more; `framesIntoBeat` is how far inside the beat playback will begin, at most its length.
    /// `tempoScale` is the operator's.
    CountIn(const BeatAtPlace& place, double framesIntoBeat, unsigned int beats, double tempoScale, std::int64_t frame);

    /// Of the next beat; once all were counted of the place where playback begins.
    [[nodiscard]] std::int64_t GetNextFrame() const;
    [[nodiscard]] unsigned int CountBeatsLeft() const { return beats_ - counted_; }
    /// Whether the next beat is the first of its bar.
    [[nodiscard]] bool IsAccent() const;
    void TakeBeat() { ++counted_; }

private:
    unsigned int beats_;
    unsigned int counted_ = 0;
    unsigned int firstNumber_;  // in its bar, from 0
    unsigned int perBar_;
    double beatFrames_;
    double lengthFrames_;
    std::int64_t begin_;
};

}  // namespace stage
