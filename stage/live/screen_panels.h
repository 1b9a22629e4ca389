#pragma once

#include "stage/live/screen_layout.h"

/// The parts of the screen below the place. Each draws into `rows` rows from `row` on and no further; those that return
/// a number say how many they took.
namespace stage {

/// The notice, or the entry or the question that is open.
void PutNotice(ScreenPicture& picture, const ScreenState& state, int row);
/// The output with its state, volumes, the MIDI input, and what is wrong with the take.
int PutSound(ScreenPicture& picture, const LiveStatus& status, int row, int rows);
/// The last presses, the newest first; what was refused stands out with its reason. From `column` on.
int PutPresses(ScreenPicture& picture, const ScreenState& state, int row, int rows, int column, int end = -1);
/// The last presses and messages.
void PutHappenings(ScreenPicture& picture, const LiveStatus& status, const ScreenState& state, int row, int rows);
/// The list of songs or of keys, if one is open, from `row` up to `end`.
void PutOpen(ScreenPicture& picture, const ScreenState& state, int row, int end);
void PutKeyLine(ScreenPicture& picture, const ScreenState& state, int row);

}  // namespace stage
