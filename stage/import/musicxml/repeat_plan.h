#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "stage/import/musicxml/written_score.h"

namespace stage::musicxml {

// A repeat with two endings as it is printed, the bars' numbers and their indices:
//
//                         1.     2.
//                        _____  _____
//     |  1  |: 2  3  4  |  5  :|  6  |  7  |
//        0     1  2  3     4      5     6
//
// One passage, [1, 6), since its last ending is part of it; repeatBars {4}, times 2, hasEndings. Two endings, [4, 5)
// with number 1 and [5, 6) with number 2: they stand side by side, are one chain, and count the passes of that passage.
// Played: 1 2 3 4 5 2 3 4 6 7.
//
// A sign that goes back closes the forward sign that was opened last, so passages lie inside one another or apart:
//
//     |: 1  |: 2  :|  3  :|     [0, 3) is the parent of [1, 2); played: 1 2 2 3 1 2 2 3
//        0     1      2
//
// A sign that goes back without a forward sign of its own goes where the one before it goes, or to the beginning. What
// the one before repeats is then not repeated again:
//
//     |: 1  :|  2  :|           [0, 2) is the parent of [0, 1), which has onceInParent; played: 1 1 2 1 2
//        0      1

/// One of RepeatPlan::passages.
using PassageIndex = std::size_t;
/// One of RepeatPlan::endings.
using EndingIndex = std::size_t;

/// A passage between repeat signs, its endings included. Bars are indices, ranges half-open.
struct RepeatedPassage {
    std::size_t begin = 0;
    std::size_t end = 0;
    /// The bars at whose end it goes back; one for each ending that does, whether or not its sign is written.
    std::vector<std::size_t> repeatBars;
    /// Passes in all, 1 or more.
    int times = 2;
    bool repeatsAfterJump = false;
    bool hasEndings = false;
    /// Begins with the passage around it, whose sign had no forward sign of its own, and is not repeated again there.
    bool onceInParent = false;
    /// The innermost passage around this one.
    std::optional<PassageIndex> parent;
};

/// Bars that sound in some passes only.
struct Ending {
    std::size_t begin = 0;
    std::size_t end = 0;
    std::vector<int> numbers;
    /// The passage whose passes are meant; without one the numbers count how often playback arrives here.
    std::optional<PassageIndex> passage;
    /// The first of the endings that stand side by side.
    EndingIndex chain = 0;
};

/// Which repeat signs and endings belong together.
struct RepeatPlan {
    std::vector<RepeatedPassage> passages;
    std::vector<Ending> endings;
    /// By bar, if there is one: the innermost passage around it, the ending that begins there.
    std::vector<std::optional<PassageIndex>> innermost;
    std::vector<std::optional<EndingIndex>> endingAt;
    /// By bar: the passages that go back at its end, inner ones first.
    std::vector<std::vector<PassageIndex>> goesBack;
    /// By bar: the passages that begin there, outer ones first.
    std::vector<std::vector<PassageIndex>> beginsAt;
    /// What was odd, a sentence each.
    std::vector<std::string> notes;
};

/// More repeats inside one another than this are not believed.
inline constexpr std::size_t MaxRepeatDepth = 64;

/// Finds what belongs together.
///   - A sign that goes back belongs to the last open forward sign; without one it goes where the sign before it goes,
///     or to the beginning.
///   - Endings side by side belong to one passage and decide how often it is played. One that has no sign, but another
///     after it, goes back all the same, with a note. If the last one goes back, or the only one, the bars after it are
///     one more pass.
///   - An ending whose end is not written lasts up to the next sign that goes back, or the next ending of its passage.
[[nodiscard]] RepeatPlan PlanRepeats(const std::vector<WrittenBar>& bars);

/// "bar 12"; "the bar after bar 12" where nothing is printed.
[[nodiscard]] std::string NameBar(const std::vector<WrittenBar>& bars, std::size_t bar);
/// "bars 12 to 14", half-open; "bar 12".
[[nodiscard]] std::string NameBars(const std::vector<WrittenBar>& bars, std::size_t begin, std::size_t end);

}  // namespace stage::musicxml
