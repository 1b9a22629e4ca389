#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

/// Words that people typed, as sentences give them back. Thread-safe; none of it blocks.
namespace kit {

/// What a sentence quotes of a word that somebody typed; file names are quoted whole.
inline constexpr std::size_t LongestQuotedColumns = 60;

/// The text in quotation marks, on one line: cut to LongestQuotedColumns with an ellipsis, and a blank for every
/// control character.
[[nodiscard]] std::string Quote(std::string_view text);

/// What is thrown as a sentence on its own: with a capital letter at its beginning and a full stop at its end.
[[nodiscard]] std::string AsSentence(std::string words);

/// The text in at most so many columns; what is cut off is an ellipsis in the last of them.
[[nodiscard]] std::string CutToColumns(std::string_view text, std::size_t columns);

/// The one of `known` that `word` was most likely meant to be: the same in other letters, begun, or with few letters
/// wrong, missing or swapped. Empty where none is near.
[[nodiscard]] std::string_view FindNearest(std::string_view word, std::span<const std::string_view> known);

}  // namespace kit
