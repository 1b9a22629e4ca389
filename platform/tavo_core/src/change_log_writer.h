#pragma once

#include <string>

#include "tavo_core/change_log.h"

namespace tavo_core {

/// The text of a `.logdata` file.
[[nodiscard]] std::string WriteChangeLog(const CL::ChangeLog& log);

}  // namespace tavo_core
