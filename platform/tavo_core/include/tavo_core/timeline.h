#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "tavo_core/sequence.h"

/// The musical timeline of one song: what the score prescribes, before the production's edits. All positions are tick
/// indices. Plain values; not thread-safe.
namespace TL {

/// One beat: its number within the bar (1 is the bar's first) and the label of its bar. Labels are text.
class BarsBeats {
public:
    BarsBeats() = default;
    BarsBeats(unsigned int tick, unsigned int beat, std::string&& barLabel)
        : tick_(tick), beat_(beat), barLabel_(std::move(barLabel)) {}
    /// The same, with one copy of the label and nothing else.
    BarsBeats(unsigned int tick, unsigned int beat, const std::string& barLabel)
        : tick_(tick), beat_(beat), barLabel_(barLabel) {}

    [[nodiscard]] unsigned int abs_time() const { return tick_; }
    [[nodiscard]] unsigned char code() const;
    [[nodiscard]] unsigned int beat() const { return beat_; }
    void beat(unsigned int number) { beat_ = number; }
    [[nodiscard]] const std::string& bar_number() const { return barLabel_; }
    void bar_number(std::string label) { barLabel_ = std::move(label); }
    bool operator==(const BarsBeats&) const = default;

private:
    unsigned int tick_ = 0;
    unsigned int beat_ = 1;
    std::string barLabel_;
};

/// A time signature in force from its tick. The two last fields are those of a MIDI time-signature event.
class Meter {
public:
    Meter() = default;
    Meter(unsigned int tick, std::uint8_t numerator, std::uint8_t denominator, std::uint8_t clocksPerClick = 24,
          std::uint8_t thirtySecondsPerQuarter = 8)
        : tick_(tick),
          numerator_(numerator),
          denominator_(denominator),
          clocksPerClick_(clocksPerClick),
          thirtySecondsPerQuarter_(thirtySecondsPerQuarter) {}

    [[nodiscard]] unsigned int abs_time() const { return tick_; }
    [[nodiscard]] unsigned char code() const;
    /// Beats in a bar, 1 to 255.
    [[nodiscard]] unsigned int numerator() const { return numerator_; }
    /// The note value of a beat: 1, 2, 4 ... 128.
    [[nodiscard]] unsigned int denominator() const { return denominator_; }
    /// MIDI clocks (24 a quarter note) in one metronome click.
    [[nodiscard]] unsigned char clocks_per_click() const { return clocksPerClick_; }
    /// Notated thirty-second notes in 24 MIDI clocks; 8 nearly always.
    [[nodiscard]] unsigned char thirty_seconds_per_quarter() const { return thirtySecondsPerQuarter_; }
    bool operator==(const Meter&) const = default;

private:
    unsigned int tick_ = 0;
    std::uint8_t numerator_ = 4;
    std::uint8_t denominator_ = 4;
    std::uint8_t clocksPerClick_ = 24;
    std::uint8_t thirtySecondsPerQuarter_ = 8;
};

/// A key signature in force from its tick.
class Key {
public:
    Key() = default;
    Key(unsigned int tick, int sharps, bool minor) : tick_(tick), sharps_(sharps), minor_(minor) {}

    [[nodiscard]] unsigned int abs_time() const { return tick_; }
    [[nodiscard]] unsigned char code() const;
    /// Sharps when positive, flats when negative; -7 to 7.
    [[nodiscard]] int sharps() const { return sharps_; }
    [[nodiscard]] bool minor() const { return minor_; }
    bool operator==(const Key&) const = default;

private:
    unsigned int tick_ = 0;
    int sharps_ = 0;
    bool minor_ = false;
};

/// A tempo in force from its tick, in microseconds per quarter note (1 to 16777215, as in a MIDI tempo event).
class Tempo {
public:
    Tempo() = default;
    Tempo(unsigned int tick, std::uint32_t microsecondsPerQuarter)
        : tick_(tick), microsecondsPerQuarter_(microsecondsPerQuarter) {}

    [[nodiscard]] unsigned int abs_time() const { return tick_; }
    [[nodiscard]] unsigned char code() const;
    [[nodiscard]] std::uint32_t microseconds_per_quarter() const { return microsecondsPerQuarter_; }
    /// Quarter notes a minute.
    [[nodiscard]] double quarters_per_minute() const { return 60e6 / microsecondsPerQuarter_; }
    /// Equal when all fields are, the tick included.
    bool operator==(const Tempo&) const = default;

private:
    unsigned int tick_ = 0;
    std::uint32_t microsecondsPerQuarter_ = 500000;
};

/// The score page that begins at its tick.
class PageNum {
public:
    PageNum() = default;
    PageNum(unsigned int tick, unsigned int page) : tick_(tick), page_(page) {}

    [[nodiscard]] unsigned int abs_time() const { return tick_; }
    [[nodiscard]] unsigned char code() const;
    [[nodiscard]] unsigned int page_number() const { return page_; }
    bool operator==(const PageNum&) const = default;

private:
    unsigned int tick_ = 0;
    unsigned int page_ = 0;
};

/// One song's timeline.
class Timeline {
public:
    Timeline() = default;
    Timeline(unsigned int startTick, unsigned int endTick) : startTick_(startTick), endTick_(endTick) {}

    /// First tick of the song's music.
    [[nodiscard]] unsigned int GetStartTickIndex() const { return startTick_; }
    /// First tick after the song's music.
    [[nodiscard]] unsigned int GetEndTickIndex() const { return endTick_; }
    void SetStartTickIndex(unsigned int tick) { startTick_ = tick; }
    void SetEndTickIndex(unsigned int tick) { endTick_ = tick; }

    [[nodiscard]] const std::string& GetSongTitle() const { return songTitle_; }
    void SetSongTitle(std::string title) { songTitle_ = std::move(title); }

    [[nodiscard]] const TimelineSequence<Tempo>& GetTempos() const { return tempos_; }
    [[nodiscard]] const TimelineSequence<BarsBeats>& GetBarsBeats() const { return barsBeats_; }
    [[nodiscard]] const TimelineSequence<Key>& GetKeys() const { return keys_; }
    [[nodiscard]] const TimelineSequence<PageNum>& GetPageNums() const { return pageNums_; }
    [[nodiscard]] const TimelineSequence<Meter>& GetMeters() const { return meters_; }

    TimelineSequence<Tempo>& GetTempos() { return tempos_; }
    TimelineSequence<BarsBeats>& GetBarsBeats() { return barsBeats_; }
    TimelineSequence<Key>& GetKeys() { return keys_; }
    TimelineSequence<PageNum>& GetPageNums() { return pageNums_; }
    TimelineSequence<Meter>& GetMeters() { return meters_; }

    /// The sequences themselves for readers that hold the timeline only as const or by a mutable reference alike.
    [[nodiscard]] const TimelineSequence<BarsBeats>& GetBarsBeats_() const { return barsBeats_; }
    [[nodiscard]] const TimelineSequence<Meter>& GetMeters_() const { return meters_; }

    /// The click lengths, in thirty-second notes and ascending, that divide the bar of the meter in force at
    /// `tickIndex` evenly. A tick before the first meter takes the first; no meter at all answers as 4/4.
    [[nodiscard]] std::vector<int> GetAllowedClickValuesAtTickIndex(unsigned int tickIndex) const;

private:
    unsigned int startTick_ = 0;
    unsigned int endTick_ = 0;
    std::string songTitle_;
    TimelineSequence<Tempo> tempos_;
    TimelineSequence<BarsBeats> barsBeats_;
    TimelineSequence<Key> keys_;
    TimelineSequence<PageNum> pageNums_;
    TimelineSequence<Meter> meters_;
};

}  // namespace TL
