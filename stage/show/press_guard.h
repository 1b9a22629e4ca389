#pragma once

#include <string>

namespace stage {

/// Writes Settings::pressGuardMs into the file and leaves everything else in it as it is; a file that does not exist is
/// made. Durable; throws as ChooseChangeLog does, and std::invalid_argument with a sentence where the value is out of
/// range.
void KeepPressGuard(const std::string& settingsPath, int milliseconds);

}  // namespace stage
