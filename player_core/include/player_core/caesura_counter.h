#pragma once

#include <functional>
#include <list>
#include <vector>

#include "tavo_core/change_log_events.h"
#include "tavo_core/song_log.h"
#include "tavo_core/timeline.h"

/// A caesura with the beats that count down to it: at most five, of which the last is the beat at the caesura or the
/// first one after it. Ticks are indices from the start of the song's data. Not thread-safe.
class CountdownCaesura : public CL::Caesura {
public:
    CountdownCaesura() = default;
    /// `beatTicks` are all beats of the song, ascending.
    CountdownCaesura(unsigned int tickIndex, std::list<unsigned int> beatTicks);

    /// Where the caesura stands.
    [[nodiscard]] unsigned int GetTickIndex() const { return abs_time(); }
    /// The caesura ends where it stands.
    unsigned int end() const override { return GetTickIndex(); }
    /// Where the countdown begins; the caesura's own tick where it has none.
    [[nodiscard]] unsigned int GetFirstCountdownTickIndex() const;
    /// The beats of the countdown, ascending.
    [[nodiscard]] const std::list<unsigned int>& GetCountdownTickIndices() const { return countdownTickIndices_; }
    /// Whether `tickIndex` is from the first beat of the countdown up to, but not including, the caesura.
    [[nodiscard]] bool WithinCountdownRange(unsigned int tickIndex) const;
    /// Number of countdown beats after `tickIndex`.
    [[nodiscard]] int GetCountdown(unsigned int tickIndex) const;
    /// The same where `tickIndex` is one of the beats; -1 elsewhere.
    [[nodiscard]] int GetCountdownAtTickIndex(unsigned int tickIndex) const;

    /// Whether the display has been told of this object's zero. Nothing takes it back: a copy carries its own mark.
    [[nodiscard]] bool GetZeroCountHasBeenReported() const { return zeroCountHasBeenReported_; }
    /// For good, and for this object only: a copy that was made before stays unmarked.
    void SetZeroCountHasBeenReported() { zeroCountHasBeenReported_ = true; }

    /// Caesuras at one tick are equal, whatever their countdowns.
    bool operator==(const CountdownCaesura& other) const { return GetTickIndex() == other.GetTickIndex(); }

    /// One line, flushed: the tick and the range of the countdown.
    void WriteString(std::basic_ostream<char>& os) const override;

private:
    friend class CaesuraCounter;
    explicit CountdownCaesura(unsigned int tickIndex);
    void CollectCountdown_(const std::vector<unsigned int>& beatTicks);

    std::list<unsigned int> countdownTickIndices_;
    bool zeroCountHasBeenReported_ = false;
};

/// The countdowns of a song's caesuras, in the order of the song log. Not thread-safe: flow control guards its counter
/// with the seek lock.
class CaesuraCounter {
public:
    CaesuraCounter() = default;
    /// `songValue` is the song's ticks per quarter note. `mapTickIndex` may move a caesura; an empty one throws
    /// std::bad_function_call if there is a caesura to build. Caesuras with the ignored version target are left out.
    /// Linear in caesuras plus beats.
    CaesuraCounter(const CL::SongLog& songLog, const TL::Timeline& timeline, unsigned int songValue,
                   const std::function<unsigned int(unsigned int)>& mapTickIndex);

    /// The countdowns themselves; a mark set here stays.
    std::vector<CountdownCaesura>& GetCountdownCaesuras() { return countdownCaesuras_; }
    /// Whether a caesura stands at exactly this tick.
    [[nodiscard]] bool HasCaesuraAtTickIndex(unsigned int tickIndex) const;
    /// Asks the caesuras in order and gives up at the first one that stands after `tickIndex`.
    [[nodiscard]] bool HasCaesuraWithinCountdownRange(unsigned int tickIndex) const;
    /// The first caesura at `tickIndex`; if there is none, throws std::logic_error "There is no CountdownCaesura at
    /// requested tick index.".
    [[nodiscard]] const CountdownCaesura& GetCountdownCaesuraAtTickIndex(unsigned int tickIndex) const;
    /// Writes all countdowns, with the objects' addresses, to the console in one piece.
    void PrintCaesuras() const;

private:
    std::vector<CountdownCaesura> countdownCaesuras_;
};
