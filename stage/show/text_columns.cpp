#include "stage/show/text_columns.h"

#include <algorithm>
#include <array>
#include <utility>

namespace stage {

namespace {

Character DecodeFirst(std::string_view text) {
    const auto byte = [&](std::size_t i) { return static_cast<std::uint8_t>(text[i]); };
    const std::uint8_t lead = byte(0);
    if (lead < 0x80) return {lead, 1, true};
    const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC0 ? 2 : 0;
    if (length == 0 || length > text.size()) return {lead, 1, false};
    std::uint32_t value = lead & (0xFFU >> (length + 1));
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80) return {lead, 1, false};
        value = value << 6 | (byte(i) & 0x3F);
    }
    return {value, length, true};
}

using Range = std::pair<std::uint32_t, std::uint32_t>;

template <std::size_t Count>
bool IsInside(const std::array<Range, Count>& ranges, std::uint32_t value) {
    return std::any_of(ranges.begin(), ranges.end(),
                       [&](const Range& range) { return value >= range.first && value <= range.second; });
}

/// Combining marks, joiners and variation selectors.
constexpr std::array<Range, 9> NoColumn{{{0x300, 0x36F},
                                         {0x483, 0x489},
                                         {0x591, 0x5BD},
                                         {0x1AB0, 0x1AFF},
                                         {0x1DC0, 0x1DFF},
                                         {0x200B, 0x200F},
                                         {0x20D0, 0x20FF},
                                         {0xFE00, 0xFE0F},
                                         {0xFE20, 0xFE2F}}};
/// East Asian wide characters and pictures.
constexpr std::array<Range, 9> TwoColumns{{{0x1100, 0x115F},
                                           {0x2E80, 0x303E},
                                           {0x3041, 0xA4CF},
                                           {0xAC00, 0xD7A3},
                                           {0xF900, 0xFAFF},
                                           {0xFE30, 0xFE6F},
                                           {0xFF00, 0xFF60},
                                           {0x1F300, 0x1FAFF},
                                           {0x20000, 0x3FFFD}}};

}  // namespace

Character ReadCharacter(std::string_view text) {
    Character character = DecodeFirst(text);
    if (character.isWellFormed && IsInside(NoColumn, character.value)) character.columns = 0;
    if (character.isWellFormed && IsInside(TwoColumns, character.value)) character.columns = 2;
    return character;
}

std::size_t CountColumns(std::string_view text) {
    std::size_t columns = 0;
    while (!text.empty()) {
        const Character character = ReadCharacter(text);
        columns += character.columns;
        text.remove_prefix(character.bytes);
    }
    return columns;
}

}  // namespace stage
