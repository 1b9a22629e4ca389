#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "stage/import/musicxml/written_score.h"

namespace stage::musicxml {

/// A passage between repeat signs, its endings included. Bars are indices, ranges half-open.
struct RepeatedPassage {
    std::size_t begin = 0;
    std::size_t end = 0;
    /// The bars at whose end it goes back; one for each ending that does.
    std::vector<std::size_t> repeatBars;
    /// Passes in all, 1 or more.
    int times = 2;
    bool repeatsAfterJump = false;
    bool hasEndings = false;
    /// Index of the innermost passage around this one; -1 without.
    int parent = -1;
};

/// Bars that sound in some passes only.
struct Ending {
    std::size_t begin = 0;
    std::size_t end = 0;
    std::vector<int> numbers;
    /// Index of the passage whose passes are meant; -1: how often playback arrives here.
    int passage = -1;
    /// Index of the first of the endings that stand side by side.
    std::size_t chain = 0;
};

/// Which repeat signs and endings belong together.
struct RepeatPlan {
    std::vector<RepeatedPassage> passages;
    std::vector<Ending> endings;
    /// By bar; -1 for none: the innermost passage around it, the passage that goes back at its end, the ending that
    /// begins there.
    std::vector<int> innermost;
    std::vector<int> goesBack;
    std::vector<int> endingAt;
    /// By bar: the passages that begin there, outer ones first.
    std::vector<std::vector<int>> beginsAt;
    /// What was odd, a sentence each.
    std::vector<std::string> notes;
};

/// More repeats inside one another than this are not believed.
inline constexpr std::size_t MaxRepeatDepth = 64;

/// Finds what belongs together. A sign that goes back belongs to the last open forward sign; without one the passage
/// begins behind the last one, or with the score. Endings side by side belong to one passage and decide how often it
/// is played; a single one that goes back leaves its last pass to the bars behind it.
[[nodiscard]] RepeatPlan PlanRepeats(const std::vector<WrittenBar>& bars);

/// "bar 12"; "the bar behind bar 12" where nothing is printed.
[[nodiscard]] std::string NameBar(const std::vector<WrittenBar>& bars, std::size_t bar);

}  // namespace stage::musicxml
