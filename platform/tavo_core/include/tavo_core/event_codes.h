#pragma once

#include <map>
#include <string>

/// The one-byte codes by which events say what kind they are (cmn::TavoEvent::code), and the names the production knows
/// the kinds by. Files hold the names, never the codes. In a display's list, edits of one tick stand in order of code.
namespace codes {

// The timeline's entries, as the score has them. Each is in force from its tick to the next one of its kind.
inline constexpr unsigned char Tempo = 0x20;      ///< the written tempo, no tempo scale applied
inline constexpr unsigned char Meter = 0x21;      ///< the time signature, and how long its click is
inline constexpr unsigned char Key = 0x22;        ///< the written key, not transposed
inline constexpr unsigned char BarsBeats = 0x23;  ///< a beat, with its bar's label
inline constexpr unsigned char PageNum = 0x24;    ///< the page of the printed score that begins here

// The production's edits; their classes are in change_log_events.h. "It" is the range [start, end) of the edit. Vamp
// and repeat, and only they, are the codes from 0x40 up to but not including 0x42.

/// Goes round from its end to its start until the operator goes on. int_value: the most passes, 0 for any number.
inline constexpr unsigned char Vamp = '@';
/// Goes round until it has been played int_value times in all, then on by itself.
inline constexpr unsigned char Repeat = 'A';
/// Is left out: on arriving at its start, playback goes on from its end. A seek into it leads to its end.
inline constexpr unsigned char Cut = 'B';
/// Notes that begin in it sound int_value semitones higher, on top of the operator's transposition.
inline constexpr unsigned char Transposition = 'C';
/// Its tempo is the written one times a factor, on top of the operator's. value: "90.00%".
inline constexpr unsigned char TempoScale = 'D';
/// From its first beat on, beats come every int_value thirty-second notes, for the display, countdowns and the click.
inline constexpr unsigned char Click = 'E';
/// Names the music from its tick to the next marker; steps from marker to marker lead here. value: the text.
inline constexpr unsigned char Marker = 'F';
/// Is held just short of its end until the operator goes on. A press before that skips what is left of it.
inline constexpr unsigned char Fermata = 'M';
/// Stops the music at its tick until the operator goes on; up to four beats before it count down. value: the text.
inline constexpr unsigned char Caesura = 'N';
/// A sound that begins once whenever playback arrives at its start. value: the sound's file.
inline constexpr unsigned char Sfx = 'O';
/// A sound that goes round while playback is in it. value: the sound's file.
inline constexpr unsigned char SfxAmbient = 'P';
/// A message to another device, sent when playback arrives at its tick. value: address and arguments.
inline constexpr unsigned char Osc = 'Q';

/// Whether it is the code of an edit that jumps back. A fermata, which flow control keeps with the loops, is not.
[[nodiscard]] constexpr bool IsVampOrRepeat(unsigned char code) {
    return code >= 0x40 && code < 0x42;
}

/// Edit name by code ("Vamp", "Tempo Scale", ...), which is also the "kind" of an edit in a `.logdata` file. Holds the
/// kinds of edits only. Constant, never destroyed.
extern const std::map<unsigned char, std::string>& editNameByTavoEventCode;

/// The edit name of `code`; an empty name for a code that is not an edit's. Thread-safe, until the very end of the
/// process.
[[nodiscard]] const std::string& EditName(unsigned char code);

}  // namespace codes
