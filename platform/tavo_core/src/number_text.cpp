#include "number_text.h"

#include <array>
#include <charconv>

namespace tavo_core {

std::string ShortestText(float number) {
    std::array<char, 64> buffer{};
    const auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), number);
    std::string text(buffer.data(), result.ptr);
    if (text.find_first_not_of("-0123456789") == std::string::npos) text += ".0";
    return text;
}

}  // namespace tavo_core
