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
    /// `beat` counts from 1; `barLabel` is any text, and beats with the same label side by side are one bar until the
    /// next beat 1.
    BarsBeats(unsigned int tick, unsigned int beat, std::string&& barLabel)
        : tick_(tick), beat_(beat), barLabel_(std::move(barLabel)) {}
    /// The same, with one copy of the label and nothing else.
    BarsBeats(unsigned int tick, unsigned int beat, const std::string& barLabel)
        : tick_(tick), beat_(beat), barLabel_(barLabel) {}

    /// Tick index of the beat.
    [[nodiscard]] unsigned int abs_time() const { return tick_; }
    /// codes::BarsBeats.
    [[nodiscard]] unsigned char code() const;
    /// From 1; where a click edit is in force the number of the click. In a pick-up they count from 1 as well.
    [[nodiscard]] unsigned int beat() const { return beat_; }
    /// Gives the beat another number; its tick and its bar stay.
    void beat(unsigned int number) { beat_ = number; }
    /// Label of the bar, as in the score: not always a number, and several bars may have the same.
    [[nodiscard]] const std::string& bar_number() const { return barLabel_; }
    /// Puts the beat into the bar of that label; its number stays.
    void bar_number(std::string label) { barLabel_ = std::move(label); }
    /// Equal when all fields are, the tick included.
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
    /// `denominator` is the note value itself, not its power of two. Nothing is checked.
    Meter(unsigned int tick, std::uint8_t numerator, std::uint8_t denominator, std::uint8_t clocksPerClick = 24,
          std::uint8_t thirtySecondsPerQuarter = 8)
        : tick_(tick),
          numerator_(numerator),
          denominator_(denominator),
          clocksPerClick_(clocksPerClick),
          thirtySecondsPerQuarter_(thirtySecondsPerQuarter) {}

    /// Tick index of the bar line from which it is in force.
    [[nodiscard]] unsigned int abs_time() const { return tick_; }
    /// codes::Meter.
    [[nodiscard]] unsigned char code() const;
    /// Beats in a bar, 1 to 255.
    [[nodiscard]] unsigned int numerator() const { return numerator_; }
    /// The note value of a beat: 1, 2, 4 ... 128.
    [[nodiscard]] unsigned int denominator() const { return denominator_; }
    /// MIDI clocks (24 a quarter note) in one metronome click.
    [[nodiscard]] unsigned char clocks_per_click() const { return clocksPerClick_; }
    /// Notated thirty-second notes in 24 MIDI clocks; 8 nearly always.
    [[nodiscard]] unsigned char thirty_seconds_per_quarter() const { return thirtySecondsPerQuarter_; }
    /// Equal when all fields are, the tick included.
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
    /// `sharps` is -7 to 7, negative for flats, as in a MIDI key signature; texts clamp what lies beyond.
    Key(unsigned int tick, int sharps, bool minor) : tick_(tick), sharps_(sharps), minor_(minor) {}

    /// Tick index from which it is in force.
    [[nodiscard]] unsigned int abs_time() const { return tick_; }
    /// codes::Key.
    [[nodiscard]] unsigned char code() const;
    /// Sharps when positive, flats when negative; -7 to 7.
    [[nodiscard]] int sharps() const { return sharps_; }
    /// Three flats are C minor if true, E flat major if not.
    [[nodiscard]] bool minor() const { return minor_; }
    /// Equal when all fields are, the tick included.
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
    /// Takes 0 as well: playback passes such a tempo over, and quarters_per_minute is infinite.
    Tempo(unsigned int tick, std::uint32_t microsecondsPerQuarter)
        : tick_(tick), microsecondsPerQuarter_(microsecondsPerQuarter) {}

    /// Tick index from which it is in force.
    [[nodiscard]] unsigned int abs_time() const { return tick_; }
    /// codes::Tempo.
    [[nodiscard]] unsigned char code() const;
    /// As written: 500000 is 120 quarter notes a minute, and what a song without tempos has.
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
    /// `page` is 0 to 1000000 in a file; a display shows 0 before the first page.
    PageNum(unsigned int tick, unsigned int page) : tick_(tick), page_(page) {}

    /// Tick index of the music at the top of the page.
    [[nodiscard]] unsigned int abs_time() const { return tick_; }
    /// codes::PageNum.
    [[nodiscard]] unsigned char code() const;
    /// The printed number; in scores without any, counted through the whole show.
    [[nodiscard]] unsigned int page_number() const { return page_; }
    /// Equal when both fields are.
    bool operator==(const PageNum&) const = default;

private:
    unsigned int tick_ = 0;
    unsigned int page_ = 0;
};

/// One song's timeline. Nothing is checked or moved when a part of it is set; entries are to be appended in ascending
/// order of tick.
class Timeline {
public:
    Timeline() = default;
    /// The music is [startTick, endTick); the sequences begin empty.
    Timeline(unsigned int startTick, unsigned int endTick) : startTick_(startTick), endTick_(endTick) {}

    /// First tick of the song's music.
    [[nodiscard]] unsigned int GetStartTickIndex() const { return startTick_; }
    /// First tick after the song's music.
    [[nodiscard]] unsigned int GetEndTickIndex() const { return endTick_; }
    /// Entries before it stay, and are in force as ever.
    void SetStartTickIndex(unsigned int tick) { startTick_ = tick; }
    /// Playback ends there, whatever stands after it.
    void SetEndTickIndex(unsigned int tick) { endTick_ = tick; }

    /// UTF-8, as a display shows it; without the song's number.
    [[nodiscard]] const std::string& GetSongTitle() const { return songTitle_; }
    /// Empty for none.
    void SetSongTitle(std::string title) { songTitle_ = std::move(title); }

    /// Written tempos; before the first, 120 quarter notes a minute.
    [[nodiscard]] const TimelineSequence<Tempo>& GetTempos() const { return tempos_; }
    /// Every beat of every bar as written, no click edits applied (beat_ticks.h applies them).
    [[nodiscard]] const TimelineSequence<BarsBeats>& GetBarsBeats() const { return barsBeats_; }
    /// Written keys; before the first, that one. Empty where the music has no key signature.
    [[nodiscard]] const TimelineSequence<Key>& GetKeys() const { return keys_; }
    /// Empty for a score that has no pages, or none that are known.
    [[nodiscard]] const TimelineSequence<PageNum>& GetPageNums() const { return pageNums_; }
    /// Before the first, that one; where there is none, 4/4.
    [[nodiscard]] const TimelineSequence<Meter>& GetMeters() const { return meters_; }

    /// To be filled while the song is built.
    TimelineSequence<Tempo>& GetTempos() { return tempos_; }
    /// Likewise.
    TimelineSequence<BarsBeats>& GetBarsBeats() { return barsBeats_; }
    /// Likewise.
    TimelineSequence<Key>& GetKeys() { return keys_; }
    /// Likewise.
    TimelineSequence<PageNum>& GetPageNums() { return pageNums_; }
    /// Likewise.
    TimelineSequence<Meter>& GetMeters() { return meters_; }

    /// These two read through a mutable reference as well, where the overload without `_` would be the one for writing.
    [[nodiscard]] const TimelineSequence<BarsBeats>& GetBarsBeats_() const { return barsBeats_; }
    /// See GetBarsBeats_.
    [[nodiscard]] const TimelineSequence<Meter>& GetMeters_() const { return meters_; }

    /// The click lengths, in thirty-second notes (1 to 128) and ascending, that divide the bar of the meter in force at
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
