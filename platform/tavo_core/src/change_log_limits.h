#pragma once

#include "tavo_core/change_log.h"

namespace tavo_core {

/// Whether the reader takes the text that the writer makes of `log`: all values lie within what the format allows. Far
/// quicker than to read that text.
[[nodiscard]] bool LiesWithinFormat(const CL::ChangeLog& log);

}  // namespace tavo_core
