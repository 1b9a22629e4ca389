#pragma once

#include <string>

namespace stage {

/// Writes Settings::pressGuardMs into the file and leaves everything else in it as it is; a file that does not exist is
/// made. Durable; throws as ChooseChangeLog does, and std::invalid_argument with a sentence where the value is out of
/// range.
void KeepPressGuard(const std::string& settingsPath, int milliseconds);

/// Writes the value of `key`, JSON text (RFC 8259), into the file in the same way; what is open goes on with what it
/// was opened with. Durable; throws as KeepPressGuard does: std::invalid_argument where the file could not be read with
/// it, its sentence naming the place.
void KeepSetting(const std::string& settingsPath, const std::string& key, const std::string& json);

}  // namespace stage
