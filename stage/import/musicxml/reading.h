#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <pugixml.hpp>
#include <set>
#include <string>
#include <vector>

#include "stage/import/musicxml/written_score.h"

namespace stage::musicxml {

/// How a part's written pitch becomes what sounds.
struct Transposition {
    int semitones = 0;
    /// What is added to the sharps of a written key.
    int fifths = 0;
};

/// A dynamic mark, a sudden one, or an end of a hairpin, where it stands.
struct DynamicEvent {
    enum class Kind { Level, Sudden, Crescendo, Diminuendo, WedgeStop };
    Kind kind = Kind::Level;
    std::uint32_t bar = 0;
    Units position = 0;
    /// Level, Sudden: the velocity.
    int velocity = 0;
    /// Hairpins: which one.
    int number = 1;
};

struct OpenSlur {
    std::string voice;
    std::uint32_t bar = 0;
    Units position = 0;
};

/// A bar that a part counts in a longer meter than it lasts, both in units.
struct BarFit {
    Units length = 0;
    Units meterLength = 0;
};

/// What the reader knows of a part: where its measures stand in the file, and the state that goes from bar to bar.
struct PartReading {
    std::uint16_t index = 0;
    /// "part P1 (Violin)".
    std::string place;
    std::vector<pugi::xml_node> measures;

    std::map<std::string, std::uint16_t> instrumentsById;
    /// Key of the drum map by instrument; -1 where the score gives none.
    std::vector<int> unpitchedKeys;

    /// Of a quarter; 0 before the part states any.
    std::int64_t divisions = 0;
    Transposition transposition;
    std::map<int, Transposition> staffTranspositions;
    /// In force at the place of the reader; none before the part states one.
    std::optional<WrittenMeter> meter;
    /// Stated inside a bar, for the next one.
    std::optional<WrittenMeter> nextMeter;
    /// Whether the meter is stated for the bar that is read.
    bool statesMeter = false;
    /// Whether a warning has said that its meters are its own.
    bool hasOwnMeter = false;
    std::map<std::uint32_t, BarFit> fittedBars;
    std::map<int, OpenSlur> slurs;
    std::map<int, OpenSlur> slurStopsAhead;
    std::vector<DynamicEvent> dynamics;
    /// Oddities that are reported once a part.
    std::set<std::string> told;
};

/// What becomes a note's velocity once the whole part's dynamics are known.
struct NoteLoudness {
    /// Added for accents.
    std::int8_t accent = 0;
    /// As the note itself says; 0 where it does not.
    std::uint8_t velocity = 0;
};

struct DraftNote {
    WrittenNote note;
    NoteLoudness loudness;
};

struct DraftMark {
    WrittenMark mark;
    /// Of several tempos at one place the highest rank holds.
    int rank = 0;
    std::uint16_t part = 0;
    /// On a right bar line, at the bar's end wherever that will be.
    bool isAtEnd = false;
};

/// A bar while its parts are read, one after another.
struct BarDraft {
    std::uint32_t index = 0;
    WrittenBar bar;
    /// How far the parts have filled it.
    Units filled = 0;
    /// Whether a part has given its label.
    bool hasHead = false;
    std::vector<DraftMark> marks;
    /// Of the part that is being read.
    std::vector<DraftNote> notes;
    std::vector<WrittenPedal> pedals;
};

/// Holds before any meter is stated.
inline const WrittenMeter CommonTime{{4}, 4};

/// Most marks, dynamics and pedals of a whole score.
inline constexpr std::size_t MaxMarks = 200'000;

/// The reading of one score: what is read so far, and where the reader stands.
struct Reading {
    std::string name;
    WrittenScore score;
    std::vector<PartReading> parts;
    /// Beside score.notes.
    std::vector<NoteLoudness> loudness;

    /// The score's, of the last bar that is finished.
    WrittenMeter meter = CommonTime;
    /// What holds at the place of the reader.
    WrittenKey key;
    /// Quarter notes a minute.
    double tempo = 120;
    /// Stated inside or at the end of a bar, for the next one.
    std::optional<WrittenKey> nextKey;
    bool nextStartsRepeat = false;
    std::optional<WrittenEnding> nextEndingStart;
    bool marksPages = false;
    bool marksSystems = false;
    /// Marks, dynamics and pedals so far.
    std::size_t marks = 0;
    std::size_t instruments = 0;

    /// The part and the measure that sentences name; no part: none.
    const PartReading* part = nullptr;
    std::string label;
    std::size_t bar = 0;

    /// "measure 12"; where it has no label, "measure at place 12", counted from 1.
    [[nodiscard]] std::string GetMeasure() const;
    /// "\"a.xml\", part P1 (Violin), measure 12".
    [[nodiscard]] std::string GetPlace() const;
    [[noreturn]] void Fail(const std::string& problem) const;
    /// Before anything is added of which a score may have MaxMarks in all; fails beyond.
    void CountMark();
    void Warn(const std::string& oddity);
    /// The first time in the part that is being read.
    void WarnOnce(PartReading& reader, const std::string& oddity);
};

}  // namespace stage::musicxml
