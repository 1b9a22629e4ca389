#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tests/tavo_core/test_timelines.h"

/// An evening's editing of one show directory, and what must be found there after whatever ended it.
namespace test_support {

/// Two songs of twenty bars.
[[nodiscard]] const TestTimelines& EveningSongs();

/// A new show directory's first log; returns its path.
std::string BeginShow(const std::string& directory);

/// Edits with a journal, saves, edits again, takes back: one step after the other. After each says 'a' (done) or 'r'
/// (refused with a sentence); nothing at all where the show cannot be opened.
void SpendEvening(const std::string& directory, const std::function<void(char)>& say);

/// The edits behind the steps that were done, "" for the log at the start; `done` as SpendEvening tells.
[[nodiscard]] std::string EditsAfter(const std::string& done);
/// The steps of an evening.
[[nodiscard]] std::size_t CountSteps();

/// Opens the show as a host does: the log that the scan takes, its recovered changes upon it; checks that a journal of
/// the log before is not offered again, and that editing and saving go on. Returns the edits found.
[[nodiscard]] std::string Reopen(const std::string& directory);

}  // namespace test_support
