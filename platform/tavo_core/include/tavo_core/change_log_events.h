#pragma once

#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "tavo_core/tavo_event.h"

/// The production's edits. Ticks are indices from the start of the song's data; ranges are half-open. Plain values; not
/// thread-safe. Values are checked by the reader of a log and by whoever adds an edit, not here.
namespace CL {

/// An edit that stands at one tick.
class PointEvent : public cmn::TavoEvent {
public:
    unsigned int abs_time() const override { return tick_; }

protected:
    PointEvent() = default;
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
    PairedEvent(unsigned int startTick, unsigned int endTick) : start_(startTick), end_(endTick) {}

private:
    unsigned int start_ = 0;
    unsigned int end_ = 0;
};

/// Plays its range again and again until released; with a maximum count above 0 it leaves by itself after that many
/// passes.
class Vamp : public PairedEvent {
public:
    Vamp() = default;
    Vamp(unsigned int startTick, unsigned int endTick, int maxCount = 0)
        : PairedEvent(startTick, endTick), maxCount_(maxCount) {}
    unsigned char code() const override;
    /// The maximum count; 0 is unlimited.
    int int_value() const override { return maxCount_; }
    std::string value() const override;

private:
    int maxCount_ = 0;
};

/// Plays its range `count` times in all.
class Repeat : public PairedEvent {
public:
    Repeat() = default;
    Repeat(unsigned int startTick, unsigned int endTick, int count) : PairedEvent(startTick, endTick), count_(count) {}
    unsigned char code() const override;
    int int_value() const override { return count_; }
    std::string value() const override;

private:
    int count_ = 2;
};

/// Skips its range.
class Cut : public PairedEvent {
public:
    Cut() = default;
    Cut(unsigned int startTick, unsigned int endTick) : PairedEvent(startTick, endTick) {}
    unsigned char code() const override;
};

/// Holds its range until released.
class Fermata : public PairedEvent {
public:
    Fermata() = default;
    Fermata(unsigned int startTick, unsigned int endTick) : PairedEvent(startTick, endTick) {}
    unsigned char code() const override;
};

/// A stop with a countdown before it.
class Caesura : public PointEvent {
public:
    Caesura() = default;
    Caesura(unsigned int tick, const std::string& text, unsigned int versionTarget)
        : PointEvent(tick), text_(text), versionTarget_(versionTarget) {}
    unsigned char code() const override;
    std::string value() const override { return text_; }
    /// Which of the production's versions the caesura belongs to; 0 is every version.
    [[nodiscard]] unsigned int VersionTarget() const { return versionTarget_; }

private:
    std::string text_;
    unsigned int versionTarget_ = 0;
};

/// Multiplies the tempo in its range.
class TempoScale : public PairedEvent {
public:
    static constexpr float LowestPlayable = 0.5F;
    static constexpr float HighestPlayable = 2.0F;

    TempoScale() = default;
    TempoScale(unsigned int startTick, unsigned int endTick, float scale)
        : PairedEvent(startTick, endTick), scale_(scale) {}
    unsigned char code() const override;
    /// "90.00%".
    std::string value() const override;
    /// The factor: 1 is as written, 2 twice as fast.
    [[nodiscard]] float float_value() const { return scale_; }
    /// Whether the factor is from LowestPlayable to HighestPlayable, ends included.
    [[nodiscard]] bool ValueWithinRange() const { return scale_ >= LowestPlayable && scale_ <= HighestPlayable; }

private:
    float scale_ = 1.0F;
};

/// Transposes its range by semitones.
class Transposition : public PairedEvent {
public:
    static constexpr int LowestSemitones = -24;
    static constexpr int HighestSemitones = 24;

    Transposition() = default;
    Transposition(unsigned int startTick, unsigned int endTick, int semitones)
        : PairedEvent(startTick, endTick), semitones_(semitones) {}
    unsigned char code() const override;
    int int_value() const override { return semitones_; }
    std::string value() const override;

private:
    int semitones_ = 0;
};

/// Sets the length of the click in its range.
class Click : public PairedEvent {
public:
    Click() = default;
    Click(unsigned int startTick, unsigned int endTick, int thirtySecondsPerClick)
        : PairedEvent(startTick, endTick), value_(thirtySecondsPerClick) {}
    unsigned char code() const override;
    /// The length of one click in thirty-second notes.
    int int_value() const override { return value_; }
    std::string value() const override;
    /// The length of one click in MIDI clocks (24 a quarter note); 0 where `thirtySecondsPerQuarter` is 0.
    [[nodiscard]] unsigned int ClocksPerClick(unsigned char thirtySecondsPerQuarter) const;

private:
    int value_ = 8;
};

/// A named place.
class Marker : public PointEvent {
public:
    Marker() = default;
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
    Sfx(unsigned int startTick, unsigned int endTick, std::string sound, float gainDb = 0.0F)
        : PairedEvent(startTick, endTick), sound_(std::move(sound)), gainDb_(gainDb) {}
    unsigned char code() const override;
    std::string value() const override { return sound_; }
    /// Name of the sound: a file name relative to the show directory.
    [[nodiscard]] const std::string& sound() const { return sound_; }
    /// Gain in decibels, -60 to 12.
    [[nodiscard]] float gain_db() const { return gainDb_; }

private:
    std::string sound_;
    float gainDb_ = 0.0F;
};

/// A sound that goes round for as long as its range lasts.
class SfxAmbient : public Sfx {
public:
    SfxAmbient() = default;
    using Sfx::Sfx;
    unsigned char code() const override;
};

/// One argument of an OSC message: int32, float32 or string (OSC 1.0 type tags i, f, s).
using OscArgument = std::variant<int, float, std::string>;

/// An OSC message sent when playback reaches its tick.
class Osc : public PointEvent {
public:
    Osc() = default;
    Osc(unsigned int tick, std::string target, std::string address, std::vector<OscArgument> arguments = {})
        : PointEvent(tick),
          target_(std::move(target)),
          address_(std::move(address)),
          arguments_(std::move(arguments)) {}
    unsigned char code() const override;
    /// The address followed by the arguments, separated by blanks.
    std::string value() const override;
    /// Name of a target of the show's settings; empty for the default one.
    [[nodiscard]] const std::string& target() const { return target_; }
    /// OSC address pattern, beginning with '/'.
    [[nodiscard]] const std::string& address() const { return address_; }
    [[nodiscard]] const std::vector<OscArgument>& arguments() const { return arguments_; }

private:
    std::string target_;
    std::string address_;
    std::vector<OscArgument> arguments_;
};

/// The version target that marks a caesura to be left out everywhere. Constant.
[[nodiscard]] unsigned int GetCaesuraIgnoredVersionTarget();

/// The production's choice of version target, process-wide. Thread-safe; 0 until set.
void SetCaesuraVersionTarget(unsigned int target);
[[nodiscard]] unsigned int GetCaesuraVersionTarget();

}  // namespace CL
