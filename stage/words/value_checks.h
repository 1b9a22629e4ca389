#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace stage {

/// Checks for the values of options. What they refuse reads on from the option's name: "needs a whole number, not
/// "two"". Every option that is read into a number has one of them, so that no text of a library reaches the user.

/// A whole number from `lowest` to `highest`.
[[nodiscard]] CLI::Validator IsWholeNumber(long long lowest, long long highest);
/// A whole number that fits into an int, for rules of their own.
[[nodiscard]] CLI::Validator IsWholeNumber();
/// A finite number from `lowest` on.
[[nodiscard]] CLI::Validator IsNumberFrom(double lowest);
[[nodiscard]] CLI::Validator IsNumber();
/// One of these words, in just these letters.
[[nodiscard]] CLI::Validator IsOneOf(std::vector<std::string> words);

}  // namespace stage
