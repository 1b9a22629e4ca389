#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace stage {

/// One character of UTF-8 text (RFC 3629), or one byte that is none.
struct Character {
    /// The code point, or the byte.
    std::uint32_t value = 0;
    std::size_t bytes = 1;
    bool isWellFormed = false;
    /// Columns that it takes where letters are equally wide: combining marks none, wide characters two, others one.
    std::size_t columns = 1;
};

/// The first character of a text that is not empty.
[[nodiscard]] Character ReadCharacter(std::string_view text);

/// The sum of the columns of all characters.
[[nodiscard]] std::size_t CountColumns(std::string_view text);

}  // namespace stage
