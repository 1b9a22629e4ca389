#pragma once

#include <string>

#include "tavo_core/change_log.h"

namespace tavo_core {

/// Reads the text of a `.logdata` file; `name` stands for the file in the sentence of the std::runtime_error that
/// refuses a bad one.
[[nodiscard]] CL::ChangeLog ReadChangeLog(const std::string& text, const std::string& name);

}  // namespace tavo_core
