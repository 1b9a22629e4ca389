#include "utf8.h"

namespace tavo_core {

namespace {

bool IsContinuation(std::string_view text, std::size_t offset) {
    return offset < text.size() && (static_cast<unsigned char>(text[offset]) & 0xC0U) == 0x80U;
}

/// Length of the character that begins at `offset`; 0 where none does.
std::size_t MeasureCharacter(std::string_view text, std::size_t offset) {
    const auto first = static_cast<unsigned char>(text[offset]);
    if (first < 0x80) return 1;
    const std::size_t length = first >= 0xC2 && first <= 0xDF   ? 2
                               : first >= 0xE0 && first <= 0xEF ? 3
                               : first >= 0xF0 && first <= 0xF4 ? 4
                                                                : 0;
    for (std::size_t i = 1; i < length; ++i) {
        if (!IsContinuation(text, offset + i)) return 0;
    }
    if (length < 3) return length;
    const auto second = static_cast<unsigned char>(text[offset + 1]);
    const bool overlong = (first == 0xE0 && second < 0xA0) || (first == 0xF0 && second < 0x90);
    const bool surrogate = first == 0xED && second > 0x9F;
    const bool beyondUnicode = first == 0xF4 && second > 0x8F;
    return overlong || surrogate || beyondUnicode ? 0 : length;
}

}  // namespace

std::size_t FindIllFormedUtf8(std::string_view text) {
    for (std::size_t offset = 0; offset < text.size();) {
        const std::size_t length = MeasureCharacter(text, offset);
        if (length == 0) return offset;
        offset += length;
    }
    return std::string_view::npos;
}

std::size_t CutUtf8(std::string_view text, std::size_t longest) {
    if (text.size() <= longest) return text.size();
    std::size_t length = longest;
    while (length > 0 && IsContinuation(text, length))
        --length;
    return length;
}

}  // namespace tavo_core
