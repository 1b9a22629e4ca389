#pragma once

#include <cstddef>
#include <vector>

#include "stage/import/musicxml/played_order.h"
#include "stage/import/musicxml/repeat_plan.h"

namespace stage::musicxml {

/// A passage that a loop repeats. Bars are indices of the order, half-open.
struct WrittenLoop {
    PassageIndex passage = 0;
    std::size_t begin = 0;
    std::size_t end = 0;
    int times = 2;
};

/// The bars of a song that stays as it is written, and the loops that repeat them in the order in which they are
/// played.
struct WrittenOrder {
    PlayedOrder order;
    /// Those inside come before those around them.
    std::vector<WrittenLoop> loops;
    /// Passages that a loop cannot repeat.
    std::vector<PassageIndex> passed;
};

/// Every bar stands once, as printed, but for one case: where a sign goes back to where the one before it goes,
///
///     |: 1  :|  2  :|      played: 1 1 2 1 2
///
/// the shorter passage is written out, 1 |: 1 2 :|, since a loop inside a loop is repeated each time. `isVamp` has
/// the passages that go on until the operator says so.
[[nodiscard]] WrittenOrder OrderAsWritten(const std::vector<WrittenBar>& bars, const RepeatPlan& plan,
                                          const std::vector<bool>& isVamp, std::size_t maxBars);

/// By passage: whether the word "vamp" stands over it.
[[nodiscard]] std::vector<bool> FindVamps(const std::vector<WrittenBar>& bars, const RepeatPlan& plan);

}  // namespace stage::musicxml
