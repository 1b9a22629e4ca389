#include "stage/import/musicxml/xml_values.h"

#include <algorithm>
#include <charconv>
#include <cmath>

#include "kit/utf8.h"

namespace stage::musicxml {

namespace {

constexpr int MaxPassNumber = 99;
constexpr std::size_t MaxListBytes = 300;
/// Whole numbers beyond would not be exact as decimals.
constexpr double MaxWhole = 9e15;

bool IsDigit(char character) {
    return character >= '0' && character <= '9';
}

std::string_view Trim(std::string_view text) {
    constexpr std::string_view Blanks = " \t\r\n";
    const std::size_t first = text.find_first_not_of(Blanks);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(Blanks) - first + 1);
}

}  // namespace

std::string MakeLine(std::string_view text) {
    std::string line = kit::ToUtf8Line(text.substr(0, kit::CutUtf8(text, MaxLineBytes)));
    line.erase(std::unique(line.begin(), line.end(), [](char a, char b) { return a == ' ' && b == ' '; }), line.end());
    return line;
}

std::string ReadLine(const pugi::xml_node& node) {
    return MakeLine(node.child_value());
}

std::string ReadLine(const pugi::xml_attribute& attribute) {
    return MakeLine(attribute.value());
}

std::optional<double> ReadDecimal(std::string_view text) {
    text = Trim(text);
    if (text.starts_with('+')) text.remove_prefix(1);
    if (text.empty() || text.find_first_not_of("-.0123456789") != std::string_view::npos) return std::nullopt;
    double value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, std::chars_format::fixed);
    if (error != std::errc{} || end != text.data() + text.size() || !std::isfinite(value)) return std::nullopt;
    return value;
}

std::optional<std::int64_t> ReadWhole(std::string_view text) {
    const std::optional<double> value = ReadDecimal(text);
    if (!value || *value != std::floor(*value) || std::abs(*value) > MaxWhole) return std::nullopt;
    return static_cast<std::int64_t>(*value);
}

std::optional<double> FindNumber(std::string_view text) {
    const std::size_t first = text.find_first_of("0123456789");
    if (first == std::string_view::npos) return std::nullopt;
    std::size_t end = first;
    while (end < text.size() &&
           (IsDigit(text[end]) || (text[end] == '.' && end + 1 < text.size() && IsDigit(text[end + 1]))))
        ++end;
    // A second point ends the number.
    const std::size_t point = text.find('.', first);
    if (point < end) end = std::min(end, text.find('.', point + 1));
    return ReadDecimal(text.substr(first, end - first));
}

std::vector<int> ReadNumbers(std::string_view text) {
    std::vector<int> numbers;
    int last = 0;
    bool isRange = false;
    text = text.substr(0, MaxListBytes);
    for (std::size_t at = 0; at < text.size();) {
        if (!IsDigit(text[at])) {
            isRange = last != 0 && (text[at] == '-' || (isRange && (text[at] == ' ' || text[at] == '.')));
            ++at;
            continue;
        }
        int number = 0;
        for (; at < text.size() && IsDigit(text[at]); ++at)
            number = std::min(number * 10 + (text[at] - '0'), MaxPassNumber + 1);
        if (number == 0 || number > MaxPassNumber) continue;
        for (int between = isRange ? last + 1 : number; between <= number; ++between)
            numbers.push_back(between);
        if (isRange && last >= number) numbers.push_back(number);
        last = number;
        isRange = false;
    }
    std::sort(numbers.begin(), numbers.end());
    numbers.erase(std::unique(numbers.begin(), numbers.end()), numbers.end());
    return numbers;
}

bool IsYes(const pugi::xml_attribute& attribute) {
    return std::string_view(attribute.value()) == "yes";
}

}  // namespace stage::musicxml
