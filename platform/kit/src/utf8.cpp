#include "kit/utf8.h"

#include <utf8.h>
#include <utf8proc.h>

#include <iterator>

namespace kit {

namespace {

bool IsContinuation(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
}

std::string FromLatin1(std::string_view text) {
    std::string utf8;
    utf8.reserve(text.size());
    for (const char character : text)
        utf8::append(static_cast<char32_t>(static_cast<unsigned char>(character)), std::back_inserter(utf8));
    return utf8;
}

std::size_t CountColumnsOf(std::uint32_t value) {
    const auto character = static_cast<utf8proc_int32_t>(value);
    // A control character has no width of its own; it is shown as one sign.
    if (utf8proc_category(character) == UTF8PROC_CATEGORY_CC) return 1;
    return static_cast<std::size_t>(utf8proc_charwidth(character));
}

}  // namespace

std::size_t FindIllFormedUtf8(std::string_view text) {
    const auto* const found = utf8::find_invalid(text.data(), text.data() + text.size());
    return found == text.data() + text.size() ? std::string_view::npos : static_cast<std::size_t>(found - text.data());
}

bool IsUtf8(std::string_view text) {
    return FindIllFormedUtf8(text) == std::string_view::npos;
}

std::size_t CutUtf8(std::string_view text, std::size_t longest) {
    if (text.size() <= longest) return text.size();
    std::size_t length = longest;
    while (length > 0 && IsContinuation(text[length]))
        --length;
    return length;
}

Character ReadCharacter(std::string_view text) {
    Character character;
    const char* next = text.data();
    try {
        character.value = utf8::next(next, text.data() + text.size());
    } catch (const utf8::exception&) {
        character.value = static_cast<unsigned char>(text.front());
        return character;
    }
    character.bytes = static_cast<std::size_t>(next - text.data());
    character.isWellFormed = true;
    character.columns = CountColumnsOf(character.value);
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

std::string ToUtf8Line(std::string_view text) {
    std::string line = IsUtf8(text) ? std::string(text) : FromLatin1(text);
    for (char& character : line)
        if (static_cast<std::uint8_t>(character) < 0x20 || character == 0x7F) character = ' ';
    const std::size_t first = line.find_first_not_of(' ');
    if (first == std::string::npos) return {};
    return line.substr(first, line.find_last_not_of(' ') - first + 1);
}

}  // namespace kit
