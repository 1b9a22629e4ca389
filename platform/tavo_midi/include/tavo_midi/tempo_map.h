#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "tavo_core/timeline.h"

namespace tavo_midi {

/// A song's ticks in time, through its written tempos. All sums are kept in whole tick-microseconds (ticks times
/// microseconds a quarter note; a second is GetTickMicrosecondsPerSecond() of them), so that nothing drifts over any
/// length. The look-ups that are const are real-time safe.
class TempoMap {
public:
    /// The tempo before the first tempo event, as a Standard MIDI File has it: 120 quarter notes a minute.
    static constexpr std::uint32_t DefaultMicrosecondsPerQuarter = 500000;
    /// The resolution where none is given.
    static constexpr unsigned int DefaultTicksPerQuarter = 480;

    /// The ticks from `tick` up to the next segment's run at one tempo.
    struct Segment {
        /// Its first one.
        std::uint32_t tick = 0;
        /// At least 1.
        std::uint32_t microsecondsPerQuarter = DefaultMicrosecondsPerQuarter;
        /// Time from tick 0 to `tick`.
        std::uint64_t tickMicroseconds = 0;

        /// All fields count.
        bool operator==(const Segment&) const = default;
    };

    /// One tempo, the default one.
    TempoMap();
    /// Of several tempos at one tick the last is in force; a tempo of 0 is left out. `ticksPerQuarter` is 1 to 32767; 0
    /// is taken as 480.
    TempoMap(const TL::TimelineSequence<TL::Tempo>& tempos, unsigned int ticksPerQuarter);

    /// At least 1.
    [[nodiscard]] unsigned int GetTicksPerQuarter() const { return ticksPerQuarter_; }
    /// A million times GetTicksPerQuarter: what to divide a time of this class by for seconds.
    [[nodiscard]] std::uint64_t GetTickMicrosecondsPerSecond() const { return ticksPerQuarter_ * 1000000ULL; }

    /// In ascending order, never empty; the first begins at tick 0.
    [[nodiscard]] std::span<const Segment> GetSegments() const { return {segments_.data(), times_.size()}; }
    /// Index of the segment that holds `tick`.
    [[nodiscard]] std::size_t FindSegment(std::uint32_t tick) const;
    /// The same. A right or nearly right `guess`, the last answer for instance, makes it cheap whatever the number of
    /// tempos; any guess gives the right answer.
    [[nodiscard]] std::size_t FindSegment(std::uint32_t tick, std::size_t guess) const;

    /// Time from tick 0 to `tick`, exactly.
    [[nodiscard]] std::uint64_t GetTickMicroseconds(std::uint32_t tick) const;
    /// The same in seconds, to the precision of a double.
    [[nodiscard]] double GetSeconds(std::uint32_t tick) const;
    /// The last tick whose time is not after `tickMicroseconds`; 0xFFFFFFFF where that lies beyond.
    [[nodiscard]] std::uint32_t GetTick(std::uint64_t tickMicroseconds) const;

    /// The frame nearest to `tick`, the later one of two equally near, at `framesPerSecond` (1 to 1 000 000).
    [[nodiscard]] std::uint64_t FrameOfTick(std::uint32_t tick, std::uint32_t framesPerSecond) const;
    /// The last tick whose FrameOfTick is not after `frame`; 0xFFFFFFFF where that lies beyond.
    [[nodiscard]] std::uint32_t TickOfFrame(std::uint64_t frame, std::uint32_t framesPerSecond) const;
    /// Where `frame` stands between ticks, to the precision of a double.
    [[nodiscard]] double FractionalTickOfFrame(std::uint64_t frame, std::uint32_t framesPerSecond) const;

private:
    // A block of segments is as long as a cache line.
    static constexpr std::size_t BlockSize = 64 / sizeof(Segment);

    void AddTempo(std::uint32_t tick, std::uint32_t microsecondsPerQuarter);
    void AppendSegment(std::uint32_t tick, std::uint32_t microsecondsPerQuarter);
    void BuildSearch();
    /// FindSegment, or a piece that fills the last block up.
    [[nodiscard]] std::size_t FindInBlocks(std::uint32_t tick) const;
    [[nodiscard]] const Segment& SegmentAtTime(std::uint64_t tickMicroseconds) const;

    unsigned int ticksPerQuarter_ = DefaultTicksPerQuarter;
    // Filled up to whole blocks with pieces of the last run that begin at the very last tick.
    std::vector<Segment> segments_;
    // The ticks of each block's first segment and the times of all, packed for the searches.
    std::vector<std::uint32_t> blockTicks_;
    std::vector<std::uint64_t> times_;
};

}  // namespace tavo_midi
