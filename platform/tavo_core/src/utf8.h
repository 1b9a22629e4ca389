#pragma once

#include <cstddef>
#include <string_view>

namespace tavo_core {

/// Offset of the first byte that does not belong to well-formed UTF-8 (RFC 3629); npos where all of it does.
[[nodiscard]] std::size_t FindIllFormedUtf8(std::string_view text);

/// The greatest length not above `longest` at which `text` can be cut without cutting a character.
[[nodiscard]] std::size_t CutUtf8(std::string_view text, std::size_t longest);

}  // namespace tavo_core
