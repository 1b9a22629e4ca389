#pragma once

#include <string>

#include "tavo_core/change_log.h"

namespace tavo_core {

/// The text of a `.logdata` file.
[[nodiscard]] std::string WriteChangeLog(const CL::ChangeLog& log);

/// One song of it, an object of the list "songs".
[[nodiscard]] std::string WriteSong(const std::string& number, const CL::SongLog& songLog);

}  // namespace tavo_core
