#pragma once

#include <cstdint>
#include <optional>
#include <pugixml.hpp>
#include <string>
#include <string_view>
#include <vector>

namespace stage::musicxml {

/// Longer texts are cut.
inline constexpr std::size_t MaxLineBytes = 2000;

/// The text of an element as one line of UTF-8, runs of blanks made one; empty for no element.
[[nodiscard]] std::string ReadLine(const pugi::xml_node& node);
[[nodiscard]] std::string ReadLine(const pugi::xml_attribute& attribute);
/// The same of a text that is not an element's alone.
[[nodiscard]] std::string MakeLine(std::string_view text);

/// A decimal number as XML Schema writes it, without an exponent, blanks around it allowed.
[[nodiscard]] std::optional<double> ReadDecimal(std::string_view text);
/// A whole number; "4.0" is one.
[[nodiscard]] std::optional<std::int64_t> ReadWhole(std::string_view text);
/// The first number in a text, "80" of "c. 80-84".
[[nodiscard]] std::optional<double> FindNumber(std::string_view text);
/// "1, 3", "1-3", "1." and "1.3." as ascending numbers from 1 to 99; others are left out.
[[nodiscard]] std::vector<int> ReadNumbers(std::string_view text);

[[nodiscard]] bool IsYes(const pugi::xml_attribute& attribute);

}  // namespace stage::musicxml
