#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace tavo_midi {

/// How many of the ascending `ticks` are not after `tick`: the index of the one in force, plus one. The steps of the
/// search depend on the number of ticks only, not on their values, so no branch is mispredicted. Real-time safe.
template <class Tick>
[[nodiscard]] std::size_t CountNotAfter(std::span<const Tick> ticks, Tick tick) {
    if (ticks.empty()) return 0;
    const Tick* base = ticks.data();
    std::size_t length = ticks.size();
    while (length > 1) {
        const std::size_t half = length / 2;
        // A product, because a conditional is compiled into a branch.
        base += static_cast<std::size_t>(base[half - 1] <= tick) * half;
        length -= half;
    }
    return static_cast<std::size_t>(base - ticks.data()) + (*base <= tick ? 1 : 0);
}

/// The same with a guess: when the answer is `guess` or the next one, which it is while playback goes on, the cost does
/// not depend on how many ticks there are. Any guess gives the right answer. Real-time safe.
template <class Tick>
[[nodiscard]] std::size_t CountNotAfter(std::span<const Tick> ticks, Tick tick, std::size_t guess) {
    const std::size_t size = ticks.size();
    if (size == 0) return 0;
    // Between two ticks one comparison decides, because tick - from wraps round where tick is before from.
    const auto isAnswer = [&](std::size_t count) {
        if (count - 1 < size - 1) return tick - ticks[count - 1] < ticks[count] - ticks[count - 1];
        return count == 0 ? tick < ticks[0] : count == size && ticks[size - 1] <= tick;
    };
    if (isAnswer(guess)) return guess;
    if (isAnswer(guess + 1)) return guess + 1;
    return CountNotAfter(ticks, tick);
}

}  // namespace tavo_midi
