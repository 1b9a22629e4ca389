#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tavo_core/timeline.h"
#include "tavo_midi/song_builder.h"

namespace tavo_midi {

/// The bars of a song, from its meters.
class BarWalk {
public:
    /// `meters` ascend; the first stands at or before the start. All arguments outlive the object; `name` stands in
    /// sentences.
    BarWalk(const std::vector<TL::Meter>& meters, unsigned int ticksPerQuarter, const SongOptions& options,
            const std::string& name);

    /// Appends the beats of whole bars until one ends at or after `lastTick`, of one bar at least; answers the end of
    /// the last bar. Throws std::runtime_error if there are too many beats or a bar is shorter than a tick.
    std::uint32_t AppendBeats(std::uint32_t lastTick, TL::TimelineSequence<TL::BarsBeats>& beats);

private:
    struct Bar {
        std::uint64_t begin;
        std::uint64_t end;
    };

    void TakeMetersUpTo(std::uint64_t tick);
    [[nodiscard]] std::uint64_t BarLine(std::uint64_t bars) const;
    [[nodiscard]] std::uint64_t TicksOfBeats(std::uint64_t beats) const;
    [[nodiscard]] std::uint64_t CheckedPickupTicks() const;
    [[nodiscard]] bool FirstMeterIsPickup() const;
    [[nodiscard]] Bar NextBar(std::uint64_t begin);
    [[nodiscard]] std::string NextLabel();
    void AppendBar(const Bar& bar, bool isPickup, TL::TimelineSequence<TL::BarsBeats>& beats);
    [[noreturn]] void Fail(const std::string& what) const;

    const std::vector<TL::Meter>& meters_;
    const std::uint64_t ticksPerQuarter_;
    const SongOptions& options_;
    const std::string& name_;
    std::size_t nextMeter_ = 0;
    TL::Meter meter_;
    /// The bars of the meter in force are counted from here, so that rounding never adds up.
    std::uint64_t origin_ = 0;
    std::uint64_t barsSinceOrigin_ = 0;
    std::size_t barIndex_ = 0;
    std::size_t nextLabel_ = 0;
    std::uint64_t count_ = 1;
};

}  // namespace tavo_midi
