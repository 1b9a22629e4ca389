#pragma once

#include <cstddef>
#include <map>
#include <mutex>
#include <vector>

#include "benchmarks/harness.h"

/// What the machine charges for the plainest form of what the system does; measured in the same rounds.
namespace bench {

/// Random look-ups ask this many questions in turn, so that drawing random numbers is not part of the figure.
inline constexpr std::size_t Questions = 4096;

/// One recursive mutex taken and released.
[[nodiscard]] Candidate LockAndUnlock();
/// std::map::lower_bound at random among `size` keys.
[[nodiscard]] Candidate MapLowerBound(std::size_t size);
/// A branchless search at random among `size` keys in a sorted vector.
[[nodiscard]] Candidate BranchlessSearch(std::size_t size);
/// Insertion of ascending keys into a std::map that is emptied, untimed, every `batch` of them.
[[nodiscard]] Candidate MapInsert(std::size_t batch);
/// The same with the erasing.
[[nodiscard]] Candidate MapInsertAndErase();
/// A byte through a pipe to another thread: from the write until the thread runs.
/// Between the bytes the thread sleeps; the longer, the colder it is.
[[nodiscard]] Timing MeasurePipeWakes(std::size_t times, unsigned int pauseMicroseconds = 300);
/// The median.
[[nodiscard]] double MeasurePipeWakeNanoseconds(std::size_t times);

/// Index of the first of the ascending `keys` that is not less than `key`; the steps depend on the size only.
template <class Key>
[[nodiscard]] std::size_t FindBranchless(const std::vector<Key>& keys, Key key) {
    const Key* base = keys.data();
    for (std::size_t length = keys.size(); length > 1;) {
        const std::size_t half = length / 2;
        base += static_cast<std::size_t>(base[half - 1] < key) * half;
        length -= half;
    }
    return static_cast<std::size_t>(base - keys.data()) + (*base < key ? 1 : 0);
}

}  // namespace bench
