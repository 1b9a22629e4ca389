#pragma once

#include <cstdint>

namespace tavo_midi {

/// Room for the product of two 64-bit numbers.
__extension__ using Wide = __int128;

/// Quotients of a positive divisor, rounded down, up, and to the nearest.
constexpr std::int64_t DivideDown(Wide dividend, Wide divisor) {
    const Wide quotient = dividend / divisor;
    return static_cast<std::int64_t>(dividend % divisor < 0 ? quotient - 1 : quotient);
}
constexpr std::int64_t DivideUp(Wide dividend, Wide divisor) {
    return -DivideDown(-dividend, divisor);
}
constexpr std::int64_t DivideToNearest(Wide dividend, Wide divisor) {
    return DivideDown(2 * dividend + divisor, 2 * divisor);
}

constexpr std::int64_t NanosecondsPerSecond = 1'000'000'000;

}  // namespace tavo_midi
