#pragma once

#include <string>

namespace test_support {

/// A place of its own for the marker of this text in song 2, for markers of one place become one: "m12" at tick 12,
/// others between 4000 and 14000.
inline unsigned int TickOf(const std::string& text) {
    if (text.size() > 1 && text[0] == 'm' && text.find_first_not_of("0123456789", 1) == std::string::npos)
        return static_cast<unsigned int>(std::stoul(text.substr(1)));
    unsigned int tick = 0;
    for (const char c : text)
        tick = (tick * 31 + static_cast<unsigned char>(c)) % 10000;
    return 4000 + tick;
}

}  // namespace test_support
