#pragma once

#include <memory>
#include <string>

#include "tavo_midi/show_data.h"

namespace tavo_midi {

/// Maps a song's ticks to time and back through its tempos and a tempo scale. The arithmetic is exact: no drift over
/// any length. Not thread-safe: flow control guards it with its seek lock.
class TimeCodeConverter {
public:
    /// `showData` must outlive the object.
    explicit TimeCodeConverter(const ShowData& showData);
    ~TimeCodeConverter();
    TimeCodeConverter(const TimeCodeConverter&) = delete;
    TimeCodeConverter& operator=(const TimeCodeConverter&) = delete;

    /// Takes the tempos of `song`, whose resolution is `ticksPerQuarter`. An unknown song throws std::out_of_range and
    /// changes nothing.
    void UpdateToNewSong(const std::string& song, unsigned int ticksPerQuarter);

    /// Seconds from tick 0 to `tickIndex` as written, times 1 / `tempoScale` (above 0).
    [[nodiscard]] double GetSeconds(unsigned int tickIndex, double tempoScale = 1.0) const;
    /// The last tick whose time is not after `seconds`.
    [[nodiscard]] unsigned int GetTickIndex(double seconds, double tempoScale = 1.0) const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace tavo_midi

using tavo_midi::TimeCodeConverter;
