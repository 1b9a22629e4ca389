#pragma once

#include <map>
#include <string>

/// The one-byte codes by which events say what kind they are, and the names the production knows the kinds by.
namespace codes {

// The timeline's entries.
inline constexpr unsigned char Tempo = 0x20;
inline constexpr unsigned char Meter = 0x21;
inline constexpr unsigned char Key = 0x22;
inline constexpr unsigned char BarsBeats = 0x23;
inline constexpr unsigned char PageNum = 0x24;

// The production's edits. Vamp and repeat, and only they, are the range from 0x40 up to but not including 0x42.
inline constexpr unsigned char Vamp = '@';
inline constexpr unsigned char Repeat = 'A';
inline constexpr unsigned char Cut = 'B';
inline constexpr unsigned char Transposition = 'C';
inline constexpr unsigned char TempoScale = 'D';
inline constexpr unsigned char Click = 'E';
inline constexpr unsigned char Marker = 'F';
inline constexpr unsigned char Fermata = 'M';
inline constexpr unsigned char Caesura = 'N';
inline constexpr unsigned char Sfx = 'O';
inline constexpr unsigned char SfxAmbient = 'P';
inline constexpr unsigned char Osc = 'Q';

[[nodiscard]] constexpr bool IsVampOrRepeat(unsigned char code) {
    return code >= 0x40 && code < 0x42;
}

/// Edit name by code ("Vamp", "Tempo Scale", ...). Holds the kinds of edits only. Never destroyed.
extern const std::map<unsigned char, std::string>& editNameByTavoEventCode;

/// The edit name of `code`; an empty name for a code that is not an edit's. Thread-safe, until the very end of the
/// process.
[[nodiscard]] const std::string& EditName(unsigned char code);

}  // namespace codes
