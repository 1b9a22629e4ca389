#include "kit/numeric_string_compare.h"

#include <algorithm>
#include <compare>

namespace kit {

namespace {

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

/// Takes the digits at the front away from the text and returns them without leading zeros.
std::string_view TakeNumber(std::string_view& text) {
    const std::size_t length =
        static_cast<std::size_t>(std::find_if_not(text.begin(), text.end(), IsDigit) - text.begin());
    std::string_view digits = text.substr(0, length);
    text.remove_prefix(length);
    digits.remove_prefix(std::min(digits.find_first_not_of('0'), digits.size()));
    return digits;
}

std::strong_ordering CompareNumbers(std::string_view left, std::string_view right) {
    if (left.size() != right.size()) return left.size() <=> right.size();
    return left.compare(right) <=> 0;
}

std::strong_ordering CompareByValue(std::string_view left, std::string_view right) {
    while (!left.empty() && !right.empty()) {
        if (IsDigit(left.front()) && IsDigit(right.front())) {
            const std::strong_ordering order = CompareNumbers(TakeNumber(left), TakeNumber(right));
            if (order != 0) return order;
            continue;
        }
        if (left.front() != right.front())
            return static_cast<unsigned char>(left.front()) <=> static_cast<unsigned char>(right.front());
        left.remove_prefix(1);
        right.remove_prefix(1);
    }
    return left.size() <=> right.size();
}

}  // namespace

bool NumericStringCompare::operator()(std::string_view left, std::string_view right) const {
    const std::strong_ordering order = CompareByValue(left, right);
    return order != 0 ? order < 0 : left < right;
}

}  // namespace kit
