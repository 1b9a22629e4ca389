#pragma once

#include <string>

#include "benchmarks/harness.h"

/// Each fills its part of the table.
namespace bench {

void AddYardstickRows(Table& table, const Effort& effort);
void AddAdvanceRows(Table& table, const Effort& effort);
void AddSeekRows(Table& table, const Effort& effort);
void AddLoopRows(Table& table, const Effort& effort);
void AddLoadRows(Table& table, const Effort& effort);
void AddStatusRows(Table& table, const Effort& effort);
void AddFeedRows(Table& table, const Effort& effort);
void AddTimeRows(Table& table, const Effort& effort);
void AddArithmeticRows(Table& table, const Effort& effort);
void AddWholeShowRows(Table& table, const Effort& effort);
void AddBeatsRows(Table& table, const Effort& effort);
void AddOpenRows(Table& table, const Effort& effort);
void AddSaveRows(Table& table, const Effort& effort);
void AddRenderRows(Table& table, const Effort& effort);
/// Part of the former: what rendering and other threads wait for each other.
void AddRenderLockRows(Table& table, const Effort& effort);
/// Part of it, too: sound effects.
void AddSoundRows(Table& table, const Effort& effort);
void AddControlRows(Table& table, const Effort& effort);
void AddCLibraryRows(Table& table, const Effort& effort);
void AddLiveRows(Table& table, const Effort& effort);
void AddOscRows(Table& table, const Effort& effort);
void AddScoreRows(Table& table, const Effort& effort);
void AddMidiRows(Table& table, const Effort& effort);
/// Part of the former: time code's look-ups.
void AddConverterRows(Table& table, const Effort& effort);

/// What a process does that was started with one of these and a path: it opens the show, or plays it over the null
/// output until it is heard, and writes how many milliseconds opening took and the most memory that it has held, in MB.
inline constexpr const char* OpenShowArgument = "--open-show";
void OpenShow(const char* path);
inline constexpr const char* PlayShowArgument = "--play-show";
void PlayShow(const char* path);

/// What a process of its own needs.
struct Opening {
    double milliseconds = 0;
    double peakMegabytes = 0;
};
[[nodiscard]] Opening OpenInOwnProcess(const char* argument, const std::string& path);
void PrintOpening(double milliseconds);

}  // namespace bench
