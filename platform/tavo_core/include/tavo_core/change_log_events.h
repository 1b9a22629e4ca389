#pragma once

#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "tavo_core/tavo_event.h"

/// The production's edits. Ticks are indices from the start of the song's data; ranges are half-open. Plain values; not
/// thread-safe. Values are checked by the reader of a log and by whoever adds an edit (edit_rules.h), not here; a range
/// given below is the rules'. Texts are UTF-8, at most 4096 bytes. An edit takes effect when playback arrives at its
/// start; one with a range also when a seek leads into it, but an effect never begins late.
namespace CL {

/// An edit that stands at one tick.
class PointEvent : public cmn::TavoEvent {
public:
    unsigned int abs_time() const override { return tick_; }

protected:
    PointEvent() = default;
    /// start() and end() are the tick as well: it covers nothing.
    explicit PointEvent(unsigned int tick) : tick_(tick) {}

private:
    unsigned int tick_ = 0;
};

/// An edit that covers the ticks from its start up to but not including its end.
class PairedEvent : public cmn::TavoEvent {
public:
    unsigned int abs_time() const override { return start_; }
    unsigned int end() const override { return end_; }

protected:
    PairedEvent() = default;
    /// Takes any two ticks: in a log that was read the end may come before the start (FixInvertedPairedEvents).
    PairedEvent(unsigned int startTick, unsigned int endTick) : start_(startTick), end_(endTick) {}

private:
    unsigned int start_ = 0;
    unsigned int end_ = 0;
};

/// Plays its range again and again until released; with a maximum count above 0 it leaves by itself after that many
/// passes. Releasing it makes the pass under way the last: playback runs on at the end.
class Vamp : public PairedEvent {
public:
    Vamp() = default;
    /// `maxCount` is 0 to 9999, the first pass counted: 1 plays the range once.
    Vamp(unsigned int startTick, unsigned int endTick, int maxCount = 0)
        : PairedEvent(startTick, endTick), maxCount_(maxCount) {}
    unsigned char code() const override;
    /// The maximum count; 0 is unlimited.
    int int_value() const override { return maxCount_; }
    /// The maximum count; empty where it is unlimited.
    std::string value() const override;

private:
    int maxCount_ = 0;
};

/// Plays its range `count` times in all; the operator's press does not end it sooner.
class Repeat : public PairedEvent {
public:
    /// Two passes.
    Repeat() = default;
    /// `count` is 2 to 9999. A file may hold 1, which plays on, and 0, which goes round until a stop or a seek.
    Repeat(unsigned int startTick, unsigned int endTick, int count) : PairedEvent(startTick, endTick), count_(count) {}
    unsigned char code() const override;
    /// Passes in all, the first one counted.
    int int_value() const override { return count_; }
    std::string value() const override;

private:
    int count_ = 2;
};

/// Skips its range: the notes end at its start, and playback goes on from its end. A seek into it leads to its end.
class Cut : public PairedEvent {
public:
    Cut() = default;
    /// `endTick` is the first tick that is played again; the song's end is allowed, and ends the song at the cut.
    Cut(unsigned int startTick, unsigned int endTick) : PairedEvent(startTick, endTick) {}
    unsigned char code() const override;
};

/// Holds its range until released: the music waits just short of the end. Released before, it skips to the end at once.
class Fermata : public PairedEvent {
public:
    Fermata() = default;
    /// As a rule the note or chord under the sign: `endTick` is where it ends as written, and what is held.
    Fermata(unsigned int startTick, unsigned int endTick) : PairedEvent(startTick, endTick) {}
    unsigned char code() const override;
};

/// A stop at its tick, until the operator goes on, with a countdown before it: up to four beats, as they are clicked,
/// show 4 3 2 1, and the stop shows 0. Going on during the countdown drops the stop. Inside a vamp it stops every pass.
class Caesura : public PointEvent {
public:
    Caesura() = default;
    /// `text` is a word for the operator and may be empty; lists of edits show it, the countdown does not.
    Caesura(unsigned int tick, const std::string& text, unsigned int versionTarget)
        : PointEvent(tick), text_(text), versionTarget_(versionTarget) {}
    unsigned char code() const override;
    std::string value() const override { return text_; }
    /// Which of the production's versions the caesura is meant for; 0 is every version. Kept and shown only: playback
    /// stops at all caesuras but those of GetCaesuraIgnoredVersionTarget, whatever SetCaesuraVersionTarget chose.
    [[nodiscard]] unsigned int VersionTarget() const { return versionTarget_; }

private:
    std::string text_;
    unsigned int versionTarget_ = 0;
};

/// Multiplies the written tempo in its range; the operator's scale comes on top.
class TempoScale : public PairedEvent {
public:
    static constexpr float LowestPlayable = 0.5F;   ///< half as fast; a lower factor in a file is played as this
    static constexpr float HighestPlayable = 2.0F;  ///< twice as fast; a higher factor in a file is played as this

    TempoScale() = default;
    /// `scale` is a factor, LowestPlayable to HighestPlayable; a file may hold all above 0 and up to 100.
    TempoScale(unsigned int startTick, unsigned int endTick, float scale)
        : PairedEvent(startTick, endTick), scale_(scale) {}
    unsigned char code() const override;
    /// "90.00%": the factor as it was set, playable or not.
    std::string value() const override;
    /// The factor: 1 is as written, 2 twice as fast.
    [[nodiscard]] float float_value() const { return scale_; }
    /// Whether the factor is from LowestPlayable to HighestPlayable, ends included.
    [[nodiscard]] bool ValueWithinRange() const { return scale_ >= LowestPlayable && scale_ <= HighestPlayable; }

private:
    float scale_ = 1.0F;
};

/// Transposes the notes that begin in its range; percussion stays as written. The operator's transposition comes on
/// top.
class Transposition : public PairedEvent {
public:
    static constexpr int LowestSemitones = -24;  ///< two octaves down; neither files nor the rules allow more
    static constexpr int HighestSemitones = 24;  ///< two octaves up, likewise

    Transposition() = default;
    /// `semitones` is positive for up.
    Transposition(unsigned int startTick, unsigned int endTick, int semitones)
        : PairedEvent(startTick, endTick), semitones_(semitones) {}
    unsigned char code() const override;
    /// Semitones, up when positive.
    int int_value() const override { return semitones_; }
    /// "+2", "-3", "0".
    std::string value() const override;

private:
    int semitones_ = 0;
};

/// Sets the length of the click in its range: from the first written beat on, beats come at that distance, for the
/// display, for countdowns and for the tempo's clicks a minute; an audible click sounds there.
class Click : public PairedEvent {
public:
    /// A click every quarter note.
    Click() = default;
    /// `thirtySecondsPerClick` is 1 to 128 and divides the bar (TL::Timeline::GetAllowedClickValuesAtTickIndex).
    Click(unsigned int startTick, unsigned int endTick, int thirtySecondsPerClick)
        : PairedEvent(startTick, endTick), value_(thirtySecondsPerClick) {}
    unsigned char code() const override;
    /// The length of one click in thirty-second notes.
    int int_value() const override { return value_; }
    std::string value() const override;
    /// The length of one click in MIDI clocks (24 a quarter note), rounded down, in a meter with that many notated
    /// thirty-second notes to 24 clocks; 0 where they are 0, or the length is not above 0.
    [[nodiscard]] unsigned int ClocksPerClick(unsigned char thirtySecondsPerQuarter) const;

private:
    int value_ = 8;
};

/// A named place: the display shows its name from there to the next marker, and steps from marker to marker stop at it.
class Marker : public PointEvent {
public:
    Marker() = default;
    /// `text` is not empty. Playback does nothing at the tick.
    Marker(unsigned int tick, std::string text) : PointEvent(tick), text_(std::move(text)) {}
    unsigned char code() const override;
    std::string value() const override { return text_; }

private:
    std::string text_;
};

/// A sound effect, fired once at its start and cut off at its end; an end equal to the start lets it ring out.
class Sfx : public PairedEvent {
public:
    Sfx() = default;
    /// `sound` and `gainDb` as below. The end is a place, not a length: a cut or a tempo scale moves it in time.
    Sfx(unsigned int startTick, unsigned int endTick, std::string sound, float gainDb = 0.0F)
        : PairedEvent(startTick, endTick), sound_(std::move(sound)), gainDb_(gainDb) {}
    unsigned char code() const override;
    std::string value() const override { return sound_; }
    /// Name of the sound: a file name relative to the show directory, which it does not leave.
    [[nodiscard]] const std::string& sound() const { return sound_; }
    /// Gain in decibels, -60 to 12; 0 is as recorded.
    [[nodiscard]] float gain_db() const { return gainDb_; }

private:
    std::string sound_;
    float gainDb_ = 0.0F;
};

/// A sound that goes round for as long as its range lasts. A seek into the range takes it up where it would be by then.
class SfxAmbient : public Sfx {
public:
    SfxAmbient() = default;
    /// As an effect, but the end lies after the start.
    using Sfx::Sfx;
    unsigned char code() const override;
};

/// One argument of an OSC message: int32, float32 or string (OSC 1.0 type tags i, f, s).
using OscArgument = std::variant<int, float, std::string>;

/// An OSC message sent when playback reaches its tick.
class Osc : public PointEvent {
public:
    Osc() = default;
    /// The message leaves when the tick is heard. At most 256 `arguments`; floats are finite.
    Osc(unsigned int tick, std::string target, std::string address, std::vector<OscArgument> arguments = {})
        : PointEvent(tick),
          target_(std::move(target)),
          address_(std::move(address)),
          arguments_(std::move(arguments)) {}
    unsigned char code() const override;
    /// The address followed by the arguments, separated by blanks.
    std::string value() const override;
    /// Name of a target of the show's settings; empty for the default one, the first.
    [[nodiscard]] const std::string& target() const { return target_; }
    /// OSC address pattern, beginning with '/'; no blank and no '#' in it.
    [[nodiscard]] const std::string& address() const { return address_; }
    /// In the order of the message; each is sent with its own type tag.
    [[nodiscard]] const std::vector<OscArgument>& arguments() const { return arguments_; }

private:
    std::string target_;
    std::string address_;
    std::vector<OscArgument> arguments_;
};

/// The version target that marks a caesura to be left out, in playback and in the façade's list of edits: 0xFFFFFFFF.
/// Constant.
[[nodiscard]] unsigned int GetCaesuraIgnoredVersionTarget();

/// The production's choice of version target, process-wide. Thread-safe; 0 until set. Kept for the host that asks for
/// it: nothing in playback depends on it.
void SetCaesuraVersionTarget(unsigned int target);
/// What was set last. Thread-safe.
[[nodiscard]] unsigned int GetCaesuraVersionTarget();

}  // namespace CL
