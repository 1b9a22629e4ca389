#pragma once

#include <cstddef>
#include <cstdint>

#include "tavo_midi/tempo_map.h"

namespace stage {

/// A moment of the output: whole frames since the engine began, and 2^-32 parts of a frame.
struct FrameTime {
    std::int64_t frame = 0;
    std::uint32_t fraction = 0;

    /// The frame nearest to the moment, the later one of two equally near.
    [[nodiscard]] std::int64_t Rounded() const { return frame + (fraction >> 31U); }
    bool operator==(const FrameTime&) const = default;
};

/// Turns ticks into frames and back while playback jumps and changes its speed. Between two anchors every moment comes
/// from whole tick-microseconds, so nothing drifts; an anchor itself is exact to 2^-32 of a frame. Not thread-safe;
/// real-time safe.
class FrameClock {
public:
    /// Tempo scales are counted in millionths: 900000 is 90 %.
    static constexpr std::uint32_t UnscaledMillionths = 1000000;

    /// `framesPerSecond` is 8000 to 192000.
    explicit FrameClock(std::uint32_t framesPerSecond) : framesPerSecond_(framesPerSecond) {}

    /// The song's tempos, which must outlive their use. An anchor must follow.
    void SetTempoMap(const tavo_midi::TempoMap& tempoMap) { tempoMap_ = &tempoMap; }

    /// From now on `tick` stands at `moment` and the tempo is scaled by `scaleMillionths`, 1 or more.
    void Anchor(std::uint32_t tick, FrameTime moment, std::uint32_t scaleMillionths);
    /// The place reached at `frame`, between two ticks as a rule, stays where it is; the speed is another from there
    /// on.
    void Rescale(std::int64_t frame, std::uint32_t scaleMillionths);
    /// The place reached at `frame` is reached again at `resumeFrame`: time stood still in between.
    void StandStill(std::int64_t frame, std::int64_t resumeFrame);

    [[nodiscard]] std::uint32_t GetScaleMillionths() const { return scaleMillionths_; }
    [[nodiscard]] FrameTime TimeOfTick(std::uint32_t tick) const;
    /// The last tick that is due at or before `frame`; 0 before the song's first.
    [[nodiscard]] std::uint32_t TickOfFrame(std::int64_t frame) const;
    /// Number of whole ticks that `frames` last from `tick` on at the tempo in force there; at least 1.
    [[nodiscard]] std::uint32_t CountTicks(std::uint32_t tick, std::uint32_t frames) const;

private:
    // 32 fractional bits beyond 64 are needed on both sides of the division.
    __extension__ typedef __int128 Wide;

    [[nodiscard]] static Wide AsWide(FrameTime moment);
    [[nodiscard]] static FrameTime AsFrameTime(Wide moment);
    [[nodiscard]] Wide PlaceAt(Wide moment) const;
    /// Tick-microseconds in a frame, times framesPerSecond_.
    [[nodiscard]] Wide Speed() const { return Wide{tempoMap_->GetTicksPerQuarter()} * scaleMillionths_; }

    const std::uint32_t framesPerSecond_;
    const tavo_midi::TempoMap* tempoMap_ = nullptr;
    std::uint32_t scaleMillionths_ = UnscaledMillionths;
    Wide anchorPlace_ = 0;   // tick-microseconds from tick 0, 32 fractional bits
    Wide anchorMoment_ = 0;  // frames, 32 fractional bits
    mutable std::size_t segmentGuess_ = 0;
};

/// The nearest count of millionths, at least 1.
[[nodiscard]] std::uint32_t AsMillionths(double scale);

}  // namespace stage
