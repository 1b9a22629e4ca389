#pragma once

#include <algorithm>
#include <cctype>
#include <string>

namespace stage {

/// The text with the letters A to Z lower-cased.
[[nodiscard]] inline std::string ToLower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

}  // namespace stage
