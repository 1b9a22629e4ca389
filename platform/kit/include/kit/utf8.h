#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/// UTF-8 (RFC 3629): no overlong forms, no surrogates, nothing beyond U+10FFFF. All functions are thread-safe and do
/// not block.
namespace kit {

/// Offset of the first byte that does not belong to well-formed UTF-8; npos where all of it does.
[[nodiscard]] std::size_t FindIllFormedUtf8(std::string_view text);
/// Whether all of it is well-formed; true for an empty text.
[[nodiscard]] bool IsUtf8(std::string_view text);

/// The greatest length not above `longest` at which `text` can be cut without cutting a character.
[[nodiscard]] std::size_t CutUtf8(std::string_view text, std::size_t longest);

/// One character of a text, or one byte that is none.
struct Character {
    /// The code point, or the byte.
    std::uint32_t value = 0;
    /// How many bytes of the text it takes, 1 to 4.
    std::size_t bytes = 1;
    /// False for a byte that does not begin a well-formed character.
    bool isWellFormed = false;
    /// Columns that it takes where letters are equally wide: combining marks none, wide characters two, others one.
    std::size_t columns = 1;
};
/// The first character of a text that is not empty.
[[nodiscard]] Character ReadCharacter(std::string_view text);
/// The sum of the columns of all characters.
[[nodiscard]] std::size_t CountColumns(std::string_view text);

/// A text of a music file as one line of UTF-8: one that is not UTF-8 is taken as Latin-1; control characters become
/// blanks, and blanks at both ends go.
[[nodiscard]] std::string ToUtf8Line(std::string_view text);

}  // namespace kit
