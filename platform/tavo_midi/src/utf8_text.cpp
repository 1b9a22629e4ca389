#include "tavo_midi/utf8_text.h"

#include <cstddef>
#include <cstdint>

namespace tavo_midi {

namespace {

/// Length of the well-formed sequence that `text`, not empty, begins with; 0 if there is none.
std::size_t SequenceLength(std::string_view text) {
    const auto byte = [&](std::size_t index) {
        return index < text.size() ? static_cast<std::uint8_t>(text[index]) : std::uint8_t{0};
    };
    const auto isTail = [&](std::size_t index) { return (byte(index) & 0xC0U) == 0x80U; };
    const std::uint8_t first = byte(0);
    if (first < 0x80) return 1;
    if (first >= 0xC2 && first <= 0xDF) return isTail(1) ? 2 : 0;
    // The second byte's range keeps out overlong forms, surrogates and what lies beyond U+10FFFF.
    const std::uint8_t second = byte(1);
    if (first >= 0xE0 && first <= 0xEF) {
        const bool isRight = isTail(1) && (first != 0xE0 || second >= 0xA0) && (first != 0xED || second < 0xA0);
        return isRight && isTail(2) ? 3 : 0;
    }
    if (first >= 0xF0 && first <= 0xF4) {
        const bool isRight = isTail(1) && (first != 0xF0 || second >= 0x90) && (first != 0xF4 || second < 0x90);
        return isRight && isTail(2) && isTail(3) ? 4 : 0;
    }
    return 0;
}

std::string FromLatin1(std::string_view text) {
    std::string utf8;
    utf8.reserve(text.size());
    for (const char character : text) {
        const auto byte = static_cast<std::uint8_t>(character);
        if (byte >= 0x80) utf8 += static_cast<char>(0xC0U | byte >> 6U);
        utf8 += static_cast<char>(byte < 0x80 ? byte : 0x80U | (byte & 0x3FU));
    }
    return utf8;
}

}  // namespace

bool IsUtf8(std::string_view text) {
    while (!text.empty()) {
        const std::size_t length = SequenceLength(text);
        if (length == 0) return false;
        text.remove_prefix(length);
    }
    return true;
}

std::string ToUtf8Line(std::string_view text) {
    std::string line = IsUtf8(text) ? std::string(text) : FromLatin1(text);
    for (char& character : line)
        if (static_cast<std::uint8_t>(character) < 0x20 || character == 0x7F) character = ' ';
    const std::size_t first = line.find_first_not_of(' ');
    if (first == std::string::npos) return {};
    return line.substr(first, line.find_last_not_of(' ') - first + 1);
}

}  // namespace tavo_midi
