#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace stage::musicxml {

/// A length or position in units of 1 / WrittenScore::unitsPerQuarter of a quarter note: exact, however the score
/// divides its quarters.
using Units = std::int64_t;

/// A meter as it is written: 3+2/8 has two groups. Senza misura has none.
struct WrittenMeter {
    std::vector<int> groups;
    /// 1, 2, 4 ... 64: the note that is counted.
    int beatType = 4;

    bool operator==(const WrittenMeter&) const = default;
};

struct WrittenKey {
    /// Sharps above 0, flats below; -7 to 7.
    int fifths = 0;
    bool isMinor = false;

    bool operator==(const WrittenKey&) const = default;
};

enum class MarkKind {
    Tempo,      ///< value: quarter notes a minute
    Fermata,    ///< over a note or rest that lasts `length`; over a bar line at the bar's end
    Breath,     ///< after the note that ends here
    Caesura,    ///< after the note that ends here
    Rehearsal,  ///< text
    Words,      ///< text: "Vamp", "attacca", "Etwas langsam."; words that order a jump are that mark instead
    Segno,      ///< text: its label, mostly empty
    Coda,       ///< text: its label, mostly empty
    ToCoda,     ///< text: label of the coda that is meant
    DaCapo,
    DalSegno,  ///< text: label of the segno that is meant
    Fine,
};

/// Where a D.C. or D.S. leads besides back, as its words say.
enum class JumpAim { Any, Fine, Coda, FineThenCoda };

/// Something written over a bar. One fermata over several parts is one mark.
struct WrittenMark {
    MarkKind kind = MarkKind::Words;
    /// From the bar's beginning, 0 to its length.
    Units position = 0;
    Units length = 0;
    double value = 0;
    std::string text;
    /// The passes in which a jump or a tempo holds; empty: those that its kind implies.
    std::vector<int> passes;
    /// Of a D.C. or D.S.
    JumpAim aim = JumpAim::Any;
    /// Of a tempo that the score gives in words, or not at all.
    bool isGuessed = false;

    bool operator==(const WrittenMark&) const = default;
};

/// What a bar line says about repeats, at the left or the right end of a bar.
struct WrittenEnding {
    /// "1, 3" is {1, 3}; ascending.
    std::vector<int> numbers;
    bool operator==(const WrittenEnding&) const = default;
};

/// One measure as it is written, for all parts together.
struct WrittenBar {
    /// As it is printed: the text of the number where the score gives one; may be empty.
    std::string label;
    /// Not counted: a pick-up, or the second half of a split bar.
    bool isImplicit = false;
    /// What the parts really fill, above 0; the longest part counts. An empty bar has its meter's length. It may differ
    /// from the meter's: pick-ups, split bars.
    Units length = 0;
    /// Changes at the bar's beginning.
    std::optional<WrittenMeter> meter;
    std::optional<WrittenKey> key;
    /// Whether the score begins a page, or a system, with this bar. The first bar of a score that marks pages does.
    bool startsPage = false;
    bool startsSystem = false;
    /// The page's number where the score prints another than counting gives; text, as "iv".
    std::string pageNumber;

    bool startsRepeat = false;
    bool endsRepeat = false;
    /// How often the passage is played in all, where endsRepeat; 2 unless the score says otherwise.
    int repeatTimes = 2;
    /// Whether this repeat is taken again after a jump.
    bool repeatsAfterJump = false;
    /// An ending begins with this bar; another one, or the same, stops at its end.
    std::optional<WrittenEnding> endingStart;
    std::optional<WrittenEnding> endingStop;

    /// Ascending by position.
    std::vector<WrittenMark> marks;
};

/// What sounds: one MIDI sound of one part.
struct WrittenInstrument {
    std::string name;
    /// General MIDI program, 0 to 127.
    int program = 0;
    bool isPercussion = false;
    /// As the score asks for it, 0 to 15; -1 where it does not.
    int channel = -1;
    /// MIDI volume and pan, 0 to 127; -1 where the score gives none.
    int volume = -1;
    int pan = -1;
};

struct WrittenPart {
    std::string id;
    std::string name;
    /// At least one.
    std::vector<WrittenInstrument> instruments;
};

enum class GraceKind { None, BeforeBeat, OnBeat };

/// A note or one note of a chord, in sounding pitch (transposing instruments are taken back).
struct WrittenNote {
    std::uint32_t bar = 0;
    std::uint16_t part = 0;
    std::uint16_t instrument = 0;
    /// From the bar's beginning; may lie beyond the bar's length only where the score writes it so.
    Units position = 0;
    /// 0 for a grace note.
    Units length = 0;
    /// MIDI key, 0 to 127; for percussion the key of the drum map.
    std::uint8_t key = 60;
    /// 1 to 127, dynamics and accents included.
    std::uint8_t velocity = 80;
    /// Share of the written length that sounds, in hundredths: 50 staccato, 100 as written.
    std::uint8_t soundingPercent = 100;
    std::uint16_t voice = 1;
    bool tieStart = false;
    bool tieStop = false;
    /// A breath mark stands after it.
    bool hasBreath = false;
    GraceKind grace = GraceKind::None;
    /// A grace note that sounds together with the one before it.
    bool joinsGrace = false;
};

/// The sustain pedal.
struct WrittenPedal {
    std::uint32_t bar = 0;
    std::uint16_t part = 0;
    Units position = 0;
    bool isDown = false;
};

/// One song as an arranger wrote it. A value; not thread-safe.
struct WrittenScore {
    std::string title;
    /// 1 to 10^9.
    Units unitsPerQuarter = 480;
    std::vector<WrittenPart> parts;
    std::vector<WrittenBar> bars;
    /// Ascending by bar, part and position; grace notes of one position in the order in which they are played.
    std::vector<WrittenNote> notes;
    /// Ascending by bar, part and position.
    std::vector<WrittenPedal> pedals;
    /// What was odd and read all the same, a sentence each with part and bar.
    std::vector<std::string> warnings;
};

}  // namespace stage::musicxml
